#include "TarnwellCore/Analysis/FreedSpace.hpp"

#include "TarnwellCore/Analysis/SharingIndex.hpp"
#include "TarnwellCore/Platform/Volumes.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace tarnwell {

namespace {

constexpr auto texts = std::to_array<std::string_view>({
    "other links stay",
    "links may lie outside of the scan",
    "files that stay use the same blocks",
    "snapshots or files outside of the scan may use the same blocks",
    "stored in another length than it is read",
    "contents are in the cloud",
    "only sums are known of a folder",
    "could not be read",
});

/// Of the nodes, those that lie below no other of them; each once. There may be a million: only folders among
/// them are worth a place in a table.
std::vector<const FileNode*> outermost(std::span<const FileNode* const> nodes) {
    std::vector<const FileNode*> outer(nodes.begin(), nodes.end());
    std::ranges::sort(outer, std::less<>{});
    const auto repeated = std::ranges::unique(outer);
    outer.erase(repeated.begin(), repeated.end());
    std::erase(outer, nullptr);
    std::unordered_map<const FileNode*, bool> isBelowMarked; // of folders, themselves included
    for (const FileNode* node : outer)
        if (node->isDirectory())
            isBelowMarked.emplace(node, true);
    std::vector<const FileNode*> way;
    std::erase_if(outer, [&](const FileNode* node) {
        way.clear();
        bool isBelow = false;
        for (const FileNode* folder = node->parent(); folder != nullptr; folder = folder->parent()) {
            if (const auto known = isBelowMarked.find(folder); known != isBelowMarked.end()) {
                isBelow = known->second;
                break;
            }
            way.push_back(folder);
        }
        for (const FileNode* folder : way)
            isBelowMarked.emplace(folder, isBelow);
        return isBelow;
    });
    return outer;
}

} // namespace

std::string_view text(FreedSpaceReason reason) {
    return texts[static_cast<std::size_t>(reason)];
}

struct FreedSpace::Index {
    std::shared_ptr<const FileNode> root;
    SharingIndex sharing;
    /// Nothing lies outside of the tree that could use blocks of its files.
    bool isWhole;
};

namespace {

/// One question.
class Reckoning {
public:
    Reckoning(const SharingIndex& index, bool isWhole)
        : index_(index),
          isWhole_(isWhole),
          selectedNames_(index.names().size()),
          selectedLinks_(index.bodies().size()),
          goneNames_(index.names().size()),
          goneLinks_(index.bodies().size()),
          fates_(index.bodies().size(), Fate::stays),
          told_(index.bodies().size()) {}

    static_assert(texts.size() <= 8, "a bit for each reason");

    FreedBytes run(std::span<const FileNode* const> nodes, std::span<const FileNode* const> gone) {
        for (const FileNode* node : outermost(nodes))
            select(*node);
        for (const FileNode* node : outermost(gone))
            leaveOut(*node);
        for (const std::uint32_t body : touched_)
            settle(body);
        sweepIslands();
        settleCloneGroups();
        for (std::size_t kind = 0; kind < reasons_.size(); ++kind)
            if (reasons_[kind].count > 0) {
                reasons_[kind].kind = static_cast<FreedSpaceReason>(kind);
                freed_.reasons.push_back(std::move(reasons_[kind]));
            }
        return std::move(freed_);
    }

private:
    enum class Fate : std::uint8_t { stays, mayGo, goes };

    FreedBytes::Reason& note(FreedSpaceReason kind, std::int64_t bytes, std::int64_t count = 1) {
        FreedBytes::Reason& reason = reasons_[static_cast<std::size_t>(kind)];
        reason.bytes += bytes;
        reason.count += count;
        return reason;
    }

    /// Counts a file once for a reason, however many of its blocks it is the reason for.
    void noteBody(FreedSpaceReason kind, std::uint32_t body) {
        const auto bit = static_cast<std::uint8_t>(1u << static_cast<unsigned>(kind));
        if ((told_[body] & bit) == 0)
            note(kind, 0);
        told_[body] |= bit;
    }

    void free(std::int64_t bytes) {
        freed_.atLeast += bytes;
        freed_.atMost += bytes;
    }

    /// Takes the folder sums for all that is simply a file's own, and leaves the rest to the bodies.
    void select(const FileNode& top) {
        free(top.allocatedSize);
        const SharingIndex::Range range = index_.namesBelow(top);
        for (std::uint32_t number = range.first; number < range.end; ++number) {
            const SharingIndex::Name& name = index_.names()[number];
            const FileNode& node = *name.node;
            selectedNames_[number] = true;
            if (node.isDirectory()) {
                selectFolder(node);
                continue;
            }
            const bool isCounted = &node == &top || !node.isHardlinkDuplicate();
            free(isCounted ? -node.allocatedSize : 0);
            if (name.body == SharingIndex::none) {
                const bool isPlaceholder = node.flags.contains(FileNodeFlags::dataless);
                note(isPlaceholder ? FreedSpaceReason::placeholder : FreedSpaceReason::unseen,
                     node.allocatedSize);
            } else if (selectedLinks_[name.body]++ == 0) {
                touched_.push_back(name.body);
            }
        }
    }

    void leaveOut(const FileNode& top) {
        const SharingIndex::Range range = index_.namesBelow(top);
        for (std::uint32_t number = range.first; number < range.end; ++number)
            if (const std::uint32_t body = index_.names()[number].body;
                body != SharingIndex::none && !selectedNames_[number] && !goneNames_[number]) {
                goneNames_[number] = true;
                ++goneLinks_[body];
            }
    }

    /// Whether all links of a body have gone before.
    bool isGone(std::uint32_t number) const {
        const SharingIndex::Body& body = index_.bodies()[number];
        return goneLinks_[number] > 0 && goneLinks_[number] >= body.knownLinks &&
               body.knownLinks >= body.links;
    }

    void selectFolder(const FileNode& folder) {
        if (!folder.flags.contains(FileNodeFlags::collapsed)) {
            note(FreedSpaceReason::unseen, 0);
            return;
        }
        // Also what each of its files would free alone is no promise: other links may lie elsewhere.
        freed_.atLeast -= folder.allocatedSize;
        if (folder.allocatedSize > 0)
            note(FreedSpaceReason::onlySums, folder.allocatedSize);
    }

    void settle(std::uint32_t number) {
        const SharingIndex::Body& body = index_.bodies()[number];
        if (selectedLinks_[number] + goneLinks_[number] < body.knownLinks) {
            FreedBytes::Reason& reason = note(FreedSpaceReason::linksElsewhere, body.allocated);
            for (std::uint32_t name = body.firstName; name != SharingIndex::none;
                 name = index_.names()[name].nextName)
                if (!selectedNames_[name] && !goneNames_[name] &&
                    reason.elsewhere.size() < FreedBytes::largestNamedCount)
                    reason.elsewhere.push_back(index_.names()[name].node);
            return;
        }
        const bool hasAllLinks = body.knownLinks >= body.links;
        fates_[number] = hasAllLinks ? Fate::goes : Fate::mayGo;
        const bool isLengthKnown = (body.traits & (HeldSpace::encoded | HeldSpace::inlineData)) == 0;
        freed_.atMost += body.exclusive + body.sharedSomewhere;
        if (!hasAllLinks)
            note(FreedSpaceReason::linksOutside, body.allocated);
        else if (!isLengthKnown)
            note(FreedSpaceReason::storedOtherwise, body.exclusive);
        else
            freed_.atLeast += body.exclusive;
        if (hasAllLinks && body.sharedSomewhere > 0) {
            note(FreedSpaceReason::sharersUnknown, body.sharedSomewhere, 0);
            noteBody(FreedSpaceReason::sharersUnknown, number);
        }
    }

    void sweepIslands() {
        std::vector<std::uint32_t> islands;
        for (const std::uint32_t body : touched_)
            if (fates_[body] != Fate::stays)
                islands.insert(islands.end(), index_.islandsOf(index_.bodies()[body]).begin(),
                               index_.islandsOf(index_.bodies()[body]).end());
        std::ranges::sort(islands);
        const auto repeated = std::ranges::unique(islands);
        islands.erase(repeated.begin(), repeated.end());
        for (const std::uint32_t island : islands)
            sweep(index_.edgesOf(island));
    }

    /// From edge to edge over one island, with a count of who uses the bytes between.
    void sweep(std::span<const SharingIndex::Edge> edges) {
        std::int64_t users = 0;
        std::int64_t goers = 0;
        std::int64_t sureGoers = 0;
        std::int64_t partUsers = 0; // whose extents may be parts of something that stays
        std::int64_t blocked = 0;
        std::int64_t unsure = 0;
        std::uint64_t place = edges.front().place;
        for (const SharingIndex::Edge& edge : edges) {
            const auto length = static_cast<std::int64_t>(edge.place - place);
            place = edge.place;
            if (length > 0 && goers > 0) {
                const bool isSure = sureGoers == users && users > 1 && partUsers == 0 && isWhole_;
                if (goers < users)
                    blocked += length;
                else
                    freed_.atMost += length;
                if (isSure)
                    freed_.atLeast += length;
                else if (goers == users)
                    unsure += length;
            }
            if (isGone(edge.body))
                continue;
            const int step = edge.isEnd ? -1 : 1;
            const Fate fate = fates_[edge.body];
            users += step;
            goers += fate != Fate::stays ? step : 0;
            sureGoers += fate == Fate::goes ? step : 0;
            partUsers += (index_.bodies()[edge.body].traits & HeldSpace::wholeExtents) == 0 ? step : 0;
        }
        for (const auto& [kind, bytes] : {std::pair(FreedSpaceReason::sharedElsewhere, blocked),
                                          std::pair(FreedSpaceReason::sharersUnknown, unsure)}) {
            if (bytes == 0)
                continue;
            note(kind, bytes, 0);
            for (const SharingIndex::Edge& edge : edges)
                if (!edge.isEnd && fates_[edge.body] != Fate::stays)
                    noteBody(kind, edge.body);
        }
    }

    void settleCloneGroups() {
        struct Count {
            std::uint32_t goers = 0;
            std::uint32_t sureGoers = 0;
            std::uint32_t gone = 0;
        };
        std::unordered_map<std::uint32_t, Count> counts;
        for (const std::uint32_t number : touched_) {
            const std::uint32_t group = index_.bodies()[number].cloneGroup;
            if (group == SharingIndex::none || fates_[number] == Fate::stays)
                continue;
            ++counts[group].goers;
            counts[group].sureGoers += fates_[number] == Fate::goes ? 1 : 0;
        }
        for (std::uint32_t number = 0; number < goneLinks_.size(); ++number)
            if (const auto count = counts.find(index_.bodies()[number].cloneGroup);
                count != counts.end() && isGone(number))
                ++count->second.gone;
        // A clone that was changed has no identifier in common with the others any more, and yet uses blocks
        // of theirs.
        const bool mayHaveChangedClones =
            !isWhole_ || !std::ranges::all_of(index_.changedClones(), [this](std::uint32_t body) {
                return fates_[body] == Fate::goes || isGone(body);
            });
        for (const auto& [number, count] : counts) {
            const SharingIndex::CloneGroup& group = index_.cloneGroups()[number];
            if (count.goers + count.gone < group.known) {
                note(FreedSpaceReason::sharedElsewhere, group.length, count.goers);
                continue;
            }
            freed_.atMost += group.length;
            if (count.sureGoers + count.gone >= group.references && !mayHaveChangedClones)
                freed_.atLeast += group.length;
            else
                note(FreedSpaceReason::sharersUnknown, group.length, count.goers);
        }
    }

    const SharingIndex& index_;
    const bool isWhole_;
    std::vector<bool> selectedNames_;
    std::vector<std::uint32_t> selectedLinks_; // by body
    std::vector<bool> goneNames_;
    std::vector<std::uint32_t> goneLinks_; // by body, of those that are not selected
    std::vector<Fate> fates_;              // by body
    std::vector<std::uint8_t> told_;       // by body: for which reasons it has been counted, as bits
    std::vector<std::uint32_t> touched_;
    std::array<FreedBytes::Reason, texts.size()> reasons_ = {};
    FreedBytes freed_;
};

} // namespace

FreedSpace::FreedSpace(const ScanResult& scan) : FreedSpace(scan, holdsWholeFileSystem) {}

FreedSpace::FreedSpace(const ScanResult& scan, const HoldsAll& holdsAll) {
    if (scan.root == nullptr)
        throw std::invalid_argument("The scan kept no tree.");
    SharingIndex sharing(*scan.root);
    const bool isWhole = !sharing.hasUnseen() && !scan.options.excludeHidden && scan.options.keepsSharing &&
                         holdsAll(std::string(scan.root->name()));
    index_ = std::make_unique<const Index>(Index{scan.root, std::move(sharing), isWhole});
}

FreedSpace::~FreedSpace() = default;
FreedSpace::FreedSpace(FreedSpace&&) noexcept = default;
FreedSpace& FreedSpace::operator=(FreedSpace&&) noexcept = default;

FreedBytes FreedSpace::of(std::span<const FileNode* const> nodes,
                          std::span<const FileNode* const> gone) const {
    return Reckoning(index_->sharing, index_->isWhole).run(nodes, gone);
}

} // namespace tarnwell
