#pragma once

// The files of a scanned tree whose space is not simply their own, in the order of a walk, so that those
// below a folder stand side by side; what they share; and who shares it.

#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnwell {

/// Immutable once made. Refers to the nodes of the tree.
class SharingIndex {
public:
    static constexpr std::uint32_t none = 0xFFFF'FFFF;

    /// One file on the disk, under one name or several.
    struct Body {
        /// Bytes that go with it alone, on the disk or, where that is not known, at most.
        std::int64_t exclusive = 0;
        std::int64_t allocated = 0;
        /// Bytes that others use too, without a word on who.
        std::int64_t sharedSomewhere = 0;
        std::uint32_t links = 1;      // as the file system says
        std::uint32_t knownLinks = 0; // in the tree
        std::uint32_t firstName = none;
        std::uint32_t firstExtent = 0;
        std::uint32_t extentCount = 0;
        std::uint32_t cloneGroup = none;
        std::uint8_t traits = 0;
    };

    /// A name in the tree that the folder sums cannot be trusted for.
    struct Name {
        const FileNode* node;
        std::uint32_t body;     // none: no file with a body, but a placeholder, sums without nodes, or unseen
        std::uint32_t nextName; // of the same body
    };

    struct Range {
        std::uint32_t first = 0;
        std::uint32_t end = 0;
    };

    /// Where a run of shared bytes begins or ends for one body.
    struct Edge {
        std::uint64_t place;
        std::uint32_t body;
        bool isEnd;
    };

    /// Files that are clones of one another and say so by a common identifier.
    struct CloneGroup {
        std::uint32_t references = 0; // as the file system says
        std::uint32_t known = 0;      // in the tree
        std::int64_t length = 0;
    };

    explicit SharingIndex(const FileNode& root);

    /// The names at or below a node.
    Range namesBelow(const FileNode& node) const;
    std::span<const Name> names() const { return names_; }
    std::span<const Body> bodies() const { return bodies_; }
    std::span<const CloneGroup> cloneGroups() const { return cloneGroups_; }
    /// Files that share some of their blocks without a word on with whom.
    std::span<const std::uint32_t> changedClones() const { return changedClones_; }
    /// Runs that overlap belong to one island; islands share nothing.
    std::span<const std::uint32_t> islandsOf(const Body& body) const {
        return std::span(islandOfExtent_).subspan(body.firstExtent, body.extentCount);
    }
    std::size_t islandCount() const { return islands_.size(); }
    std::span<const Edge> edgesOf(std::uint32_t island) const {
        const Range range = islands_[island];
        return std::span(edges_).subspan(range.first, range.end - range.first);
    }
    /// Something in the tree could not be seen, or who shares it could not: no more can be said to lie in the
    /// tree alone.
    bool hasUnseen() const { return hasUnseen_; }

private:
    /// While it is made: where an edge belongs.
    struct PlacedEdge {
        std::uint32_t fileSystem;
        std::uint32_t extent;
        Edge edge;
    };

    void addFile(const FileNode& node);
    void addFolder(const FileNode& node);
    void addName(const FileNode& node, std::uint32_t body);
    std::uint32_t bodyOf(const FileNode& node);
    void fill(Body& body, std::uint32_t index, const FileNode& node, const KeptSharing& kept);
    void joinCloneGroup(Body& body, const KeptSharing& kept);
    void makeIslands();

    std::vector<Name> names_;
    std::vector<std::uint32_t> byAddress_; // names in ascending order of their nodes' addresses
    std::vector<Body> bodies_;
    std::unordered_map<INodeKey, std::uint32_t> bodyOfINode_;
    std::unordered_map<const FileNode*, Range> ranges_; // of folders with names below
    std::vector<PlacedEdge> placedEdges_;               // empty once made
    std::vector<Edge> edges_;
    std::vector<std::uint32_t> islandOfExtent_;
    std::vector<Range> islands_;
    std::vector<CloneGroup> cloneGroups_;
    std::vector<std::uint32_t> changedClones_;
    std::map<std::pair<std::uint32_t, std::uint64_t>, std::uint32_t> groupOfIdentifier_;
    bool hasUnseen_ = false;
};

} // namespace tarnwell
