#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/PathOrder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

using Nodes = std::vector<const FileNode*>;

TEST(PathOrder, IsThatOfTheBytesAlsoOfSeveralTrees) {
    const char* const names[] = {"a",  "a!",   "a b", "a0",
                                 "ab", "\xFF", "B",   "a"}; // one twice: replaced meanwhile
    std::vector<std::shared_ptr<FileNode>> trees;
    Nodes all;
    // Some lie in others, so that their nodes have the same paths.
    for (const char* rootPath : {"/", "/a", "/a/a", "/a b", "/r", "relative", ""}) {
        FileTreeBuilder builder(rootPath);
        std::vector<FileNode*> folders{&builder.root()};
        for (std::size_t next = 0; next < 4; ++next)
            for (const char* name : names)
                folders.push_back(&builder.addFolder(*folders[next], name));
        builder.addFile(*folders.back(), "file", 1);
        trees.push_back(builder.finish());
        trees.back()->forEachDescendant([&](const FileNode& node) {
            all.push_back(&node);
            return true;
        });
    }
    std::mt19937 random(3);
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{20}, all.size()}) {
        std::ranges::shuffle(all, random);
        Nodes nodes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
        std::set<std::string> paths;
        for (const FileNode* node : nodes) {
            paths.insert(node->path());
            EXPECT_EQ(pathLength(*node), node->path().size()) << node->path();
        }
        const std::vector<std::size_t> ranks = pathRanks(nodes);
        for (std::size_t index = 0; index < count; ++index)
            EXPECT_EQ(ranks[index], std::distance(paths.begin(), paths.find(nodes[index]->path())))
                << nodes[index]->path();
        Nodes expected = nodes;
        std::ranges::stable_sort(expected, {}, [](const FileNode* node) { return node->path(); });
        sortByPath(nodes);
        EXPECT_EQ(nodes, expected);
    }
}

TEST(PathOrder, NeverMakesThePathsOfADeepChain) {
    constexpr int depth = 20'000; // 100 GB of paths
    FileTreeBuilder builder("/");
    FileNode* folder = &builder.root();
    Nodes nodes;
    for (int level = 0; level < depth; ++level) {
        nodes.push_back(&builder.addFile(*folder, level % 2 == 0 ? "after" : "before", 1));
        folder = &builder.addFolder(*folder, std::string(255, 'b'));
        nodes.push_back(folder);
    }
    const auto root = builder.finish();
    Nodes sorted = nodes;
    std::ranges::shuffle(sorted, std::mt19937(1));
    sortByPath(sorted);
    // From the top down folders and "after" files, then from the bottom up "before" files.
    EXPECT_EQ(sorted[0], nodes[0]);
    EXPECT_EQ(sorted[1], nodes[1]);
    EXPECT_EQ(sorted.back(), nodes[2]);
}

} // namespace
} // namespace tarnwell
