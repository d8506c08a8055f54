#include "TarnwellCore/Scanning/HardlinkRegistry.hpp"
#include "TarnwellCore/Scanning/NodeArena.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {
namespace {

/// A tree of random folders whose names are chosen so that a "/" stands against bytes on both sides of it.
class LinkedTree {
public:
    explicit LinkedTree(std::mt19937& random) : random_(random) {
        root_ = arena_->makeNode(nullptr, "/root", true, {});
        folders_.push_back(root_);
        places_.push_back(FolderRef::root(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC), "/root"));
        for (int index = 0; index < 60; ++index) {
            const std::size_t parent = random() % folders_.size();
            const std::string_view name = names[random() % names.size()];
            if (usedPaths_.insert(folders_[parent]->path() + "/" + std::string(name)).second) {
                folders_.push_back(arena_->makeNode(folders_[parent], name, true, {}));
                places_.push_back(places_[parent].child(name));
            }
        }
    }

    struct Link {
        FileNode* node = nullptr; // null: in a folder without nodes
        HardlinkRegistry::CollapsedLink collapsed = {};
        std::string path = {};
    };

    /// Links of one file, at different paths; some in folders without nodes where that is asked for.
    std::vector<Link> makeLinks(std::size_t count, bool mayCollapse) {
        std::vector<Link> links;
        while (links.size() < count) {
            const std::size_t folder = random_() % folders_.size();
            std::string name(names[random_() % names.size()]);
            if (random_() % 2 == 0)
                name += std::to_string(random_() % 100);
            const std::string path = folders_[folder]->path() + "/" + name;
            if (!usedPaths_.insert(path).second)
                continue;
            Link link{.path = path};
            if (mayCollapse && random_() % 3 == 0)
                link.collapsed = {.collapseTarget = folders_[folder],
                                  .folder = places_[folder],
                                  .name = name,
                                  .size = 1000,
                                  .allocatedSize = 4096,
                                  .reclaimableSize = 4096};
            else
                link.node = arena_->makeNode(folders_[folder], name, false, {.size = 1000});
            links.push_back(std::move(link));
        }
        return links;
    }

private:
    static constexpr std::array<std::string_view, 9> names = {"a", "a.b", "a!",   "ab", "a\xff",
                                                              "b", "-",   "\x01", "a0"};

    std::mt19937& random_;
    std::shared_ptr<NodeArena> arena_ = std::make_shared<NodeArena>();
    FileNode* root_ = nullptr;
    std::vector<FileNode*> folders_;
    std::vector<FolderRef> places_;
    std::set<std::string> usedPaths_;
};

TEST(HardlinkRegistry, TheSmallestPathCarriesTheBytesInWhateverOrderLinksAreMet) {
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        LinkedTree tree(random);
        HardlinkRegistry registry;
        std::vector<std::vector<LinkedTree::Link>> files;
        for (std::uint64_t file = 0; file < 5; ++file) {
            const INodeKey key{.device = 1, .inode = file};
            auto& links = files.emplace_back(tree.makeLinks(1 + random() % 6, round % 2 == 1));
            for (std::size_t index = 0; index < links.size(); ++index) {
                LinkedTree::Link& link = links[index];
                const bool isFirst = link.node != nullptr ? registry.record(key, *link.node)
                                                          : registry.record(key, link.collapsed);
                EXPECT_EQ(isFirst, index == 0);
                if (!isFirst && link.node != nullptr)
                    link.node->flags.insert(FileNodeFlags::hardlinkDuplicate);
            }
        }
        registry.assignOwners();
        // What marks and folders without nodes took into and out of each folder's bytes.
        std::map<FileNode*, std::int64_t> moved;
        for (const auto& links : files) {
            const auto owner = std::ranges::min_element(links, {}, &LinkedTree::Link::path);
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
