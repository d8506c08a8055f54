#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/HardlinkRegistry.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tarnwell {
namespace {

struct Link {
    FileNode* node = nullptr; // null: in a folder without nodes
    HardlinkRegistry::CollapsedLink collapsed = {};
    std::string path = {};
};

/// A tree of random folders whose names are chosen so that a "/" stands against bytes on both sides of it.
class LinkedTree {
public:
    LinkedTree(std::mt19937& random, bool mayCollapse) : random_(random), mayCollapse_(mayCollapse) {
        folders_ = {&builder_.root()};
        places_ = {FolderRef::root(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC), "/root")};
        for (int index = 0; index < 60; ++index) {
            const auto [parent, name] = freePlace("");
            folders_.push_back(&builder_.addFolder(*folders_[parent], name));
            places_.push_back(places_[parent].child(name));
        }
    }

    /// A link at a path of its own; some are in folders without nodes where that is asked for.
    Link makeLink() {
        const auto [folder, name] = freePlace(random_() % 2 == 0 ? "" : std::to_string(random_() % 100));
        Link link{.path = folders_[folder]->path() + "/" + name};
        if (mayCollapse_ && random_() % 3 == 0)
            link.collapsed = {.collapseTarget = folders_[folder],
                              .folder = places_[folder],
                              .name = name,
                              .size = 1000,
                              .allocatedSize = 4096,
                              .reclaimableSize = 4096};
        else
            link.node = &builder_.addFile(*folders_[folder], name, 1000);
        return link;
    }

private:
    /// A folder, by number, and a name that ends so and is free there.
    std::pair<std::size_t, std::string> freePlace(const std::string& end) {
        static const std::string names[] = {"a", "a.b", "a!", "ab", "a\xff", "b", "-", "\x01", "a0"};
        for (;;) {
            const std::size_t folder = random_() % folders_.size();
            const std::string name = names[random_() % std::size(names)] + end;
            if (usedPaths_.insert(folders_[folder]->path() + "/" + name).second)
                return {folder, name};
        }
    }

    std::mt19937& random_;
    const bool mayCollapse_;
    FileTreeBuilder builder_{"/root"};
    std::vector<FileNode*> folders_;
    std::vector<FolderRef> places_;
    std::set<std::string> usedPaths_;
};

TEST(HardlinkRegistry, TheSmallestPathCarriesTheBytesInWhateverOrderLinksAreMet) {
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        LinkedTree tree(random, round % 2 == 1);
        HardlinkRegistry registry;
        std::vector<std::vector<Link>> files(5);
        for (std::uint64_t file = 0; file < files.size(); ++file) {
            const INodeKey key{.device = 1, .inode = file};
            for (auto count = 1 + random() % 6; count > 0; --count) {
                const Link link = tree.makeLink();
                const bool isFirst = link.node != nullptr ? registry.record(key, *link.node)
                                                          : registry.record(key, link.collapsed);
                EXPECT_EQ(isFirst, files[file].empty());
                if (!isFirst && link.node != nullptr)
                    link.node->flags.insert(FileNodeFlags::hardlinkDuplicate);
                files[file].push_back(link);
            }
        }
        registry.assignOwners();
        // What marks and folders without nodes took into and out of each folder's bytes.
        std::map<FileNode*, std::int64_t> moved;
        for (const auto& links : files) {
            const auto owner = std::ranges::min_element(links, {}, &Link::path);
            for (auto link = links.begin(); link != links.end(); ++link)
                if (link->node != nullptr) {
                    EXPECT_EQ(link->node->isHardlinkDuplicate(), link != owner) << link->path;
                }
            if (owner->node == nullptr)
                moved[owner->collapsed.collapseTarget] += 1000;
            else if (owner != links.begin())
                moved[owner->node->parent()] += 1000;
            if (owner != links.begin() && links.front().node != nullptr)
                moved[links.front().node->parent()] -= 1000;
        }
        for (const auto& [folder, bytes] : moved)
            EXPECT_EQ(folder->size, bytes) << folder->path();
    }
}

} // namespace
} // namespace tarnwell
