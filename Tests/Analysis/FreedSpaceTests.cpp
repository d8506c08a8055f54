#include "TarnwellCore/Analysis/FreedSpace.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarnwell {
namespace {

/// A tree of every kind of file that folder sums cannot be trusted for. All files have 100 allocated bytes.
class Tree {
public:
    explicit Tree(bool hasUnseen = true) {
        SharingAttributes linked{.links = {.inode = 7, .device = 1, .count = 2}};
        add(*a_, "link", {.sharing = &linked});
        add(*b_, "link", {.flags = FileNodeFlags::hardlinkDuplicate, .sharing = &linked});
        linked.links = {.inode = 8, .device = 1, .count = 2};
        add(*a_, "link outside", {.sharing = &linked});
        for (FileNode* folder : {a_, b_}) {
            const HeldSpace held{.traits = HeldSpace::wholeExtents, .fileSystem = 3, .extents = {{1000, 60}}};
            const SharingAttributes shared{.held = &held};
            add(*folder, "clone", {.sharing = &shared});
        }
        // The same places on another disk have nothing to do with it.
        const HeldSpace held{.traits = HeldSpace::wholeExtents, .fileSystem = 4, .extents = {{1000, 60}}};
        const SharingAttributes alone{.held = &held};
        add(*b_, "on another disk", {.sharing = &alone});
        for (const char* name : {"twin", "twin 2"}) {
            const HeldSpace twins{.traits = HeldSpace::cloneGroup,
                                  .fileSystem = 1,
                                  .references = 2,
                                  .exclusive = 10,
                                  .extents = {{99, 90}}};
            const SharingAttributes shared{.held = &twins};
            add(*c_, name, {.sharing = &shared});
        }
        add(*d_, "cloud", {.flags = FileNodeFlags::dataless});
        const HeldSpace compressed{.traits = HeldSpace::encoded};
        const SharingAttributes stored{.held = &compressed};
        add(*d_, "compressed", {.sharing = &stored});
        add(*d_, "unknown sharers",
            {.privateSize = 30, .reportsPrivateSize = true, .extFlags = mayShareBlocksFlag});
        add(*d_, "plain", {});
        if (hasUnseen)
            builder_.addFolder(*d_, "closed", {.flags = FileNodeFlags::inaccessible});
        add(*e_, "held by a snapshot", {.privateSize = 20, .reportsPrivateSize = true});
        FileNode& package = builder_.addFolder(*e_, "Package.app", {.flags = FileNodeFlags::collapsed});
        package.size = package.allocatedSize = package.reclaimableSize =
            500; // of which other links may lie outside
        for (FileNode* folder : {e_, f_}) {
            const HeldSpace pieces{.traits = HeldSpace::wholeExtents,
                                   .fileSystem = 3,
                                   .extents = {{5000, 10}, {6000, 10}, {7000, 10}}};
            const SharingAttributes shared{.held = &pieces};
            add(*folder, "in pieces", {.sharing = &shared});
        }
        scan_.root = builder_.finish();
    }

    FreedBytes of(const std::vector<std::string>& paths, bool holdsAll,
                  const std::vector<std::string>& gone = {}) const {
        const FreedSpace freedSpace(scan_, [&](const std::string&) { return holdsAll; });
        const auto nodes = [&](const std::vector<std::string>& named) {
            std::vector<const FileNode*> found;
            for (const std::string& path : named)
                found.push_back(scan_.root->node("/r/" + path));
            return found;
        };
        return freedSpace.of(nodes(paths), nodes(gone));
    }

private:
    void add(FileNode& folder, const char* name, FileNodeAttributes attributes) {
        attributes.size = attributes.allocatedSize = 100;
        builder_.addFile(folder, name, attributes);
    }

    FileTreeBuilder builder_{"/r"};
    FileNode* a_ = &builder_.addFolder(builder_.root(), "a");
    FileNode* b_ = &builder_.addFolder(builder_.root(), "b");
    FileNode* c_ = &builder_.addFolder(builder_.root(), "c");
    FileNode* d_ = &builder_.addFolder(builder_.root(), "d");
    FileNode* e_ = &builder_.addFolder(builder_.root(), "e");
    FileNode* f_ = &builder_.addFolder(builder_.root(), "f");
    ScanResult scan_;
};

TEST(FreedSpace, TellsWhatGoesTogetherAndWhyNotMore) {
    using enum FreedSpaceReason;
    struct Case {
        std::vector<std::string> paths;
        std::int64_t atLeast, atMost;
        std::vector<FreedSpaceReason> reasons;
        std::vector<std::string> gone = {};
    };
    const Case cases[] = {
        {{}, 0, 0, {}},
        {{"d/plain", "d/plain"}, 100, 100, {}},
        {{"a/link"}, 0, 0, {linksElsewhere}},
        {{"b/link"}, 0, 0, {linksElsewhere}},
        {{"a/link", "b/link"}, 100, 100, {}},
        {{"a/link outside"}, 0, 100, {linksOutside}},
        {{"a/clone"}, 40, 40, {sharedElsewhere}},
        // Something could not be read, so there may be a third.
        {{"a/clone", "b/clone"}, 80, 140, {sharersUnknown}},
        {{"b/on another disk"}, 40, 100, {sharersUnknown}},
        {{"a", "a/clone"}, 40, 140, {linksElsewhere, linksOutside, sharedElsewhere}},
        {{"a", "b"}, 100 + 80 + 40, 100 + 100 + 80 + 60 + 100, {linksOutside, sharersUnknown}},
        {{"c/twin"}, 10, 10, {sharedElsewhere}},
        // A third that was changed since may lie anywhere.
        {{"c"}, 20, 110, {sharersUnknown}},
        {{"e/held by a snapshot"}, 20, 100, {sharersUnknown}},
        {{"e/Package.app"}, 0, 500, {onlySums}},
        {{"d"}, 30 + 100, 100 + 100 + 100, {sharersUnknown, storedOtherwise, placeholder, unseen}},
        // What has left the disk before keeps nothing, and adds nothing.
        {{"b/link"}, 100, 100, {}, {"a"}},
        {{"a/clone"}, 40, 100, {sharersUnknown}, {"b/clone"}},
        {{"c/twin"}, 10, 100, {sharersUnknown}, {"c/twin 2"}},
        {{"d/plain"}, 100, 100, {}, {"a", "c", "e", "d/compressed"}},
        {{"a/link outside"}, 0, 100, {linksOutside}, {"b"}},
    };
    const Tree tree;
    for (const Case& each : cases) {
        SCOPED_TRACE(each.paths.empty() ? "nothing" : each.paths.front());
        const FreedBytes freed = tree.of(each.paths, true, each.gone);
        EXPECT_EQ(freed.atLeast, each.atLeast);
        EXPECT_EQ(freed.atMost, each.atMost);
        std::vector<FreedSpaceReason> reasons;
        for (const FreedBytes::Reason& reason : freed.reasons) {
            reasons.push_back(reason.kind);
            EXPECT_FALSE(text(reason.kind).empty());
        }
        EXPECT_EQ(reasons, each.reasons);
    }
    // One file, whatever it shares is in how many pieces.
    EXPECT_EQ(tree.of({"e/in pieces"}, true).reasons.at(0).count, 1);
    const FreedBytes linked = tree.of({"a/link"}, true);
    ASSERT_EQ(linked.reasons.at(0).elsewhere.size(), 1u);
    EXPECT_EQ(linked.reasons[0].elsewhere[0]->path(), "/r/b/link");
    EXPECT_THROW(FreedSpace{ScanResult()}, std::invalid_argument);
}

} // namespace
} // namespace tarnwell
