#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/NodeRuns.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

/// Names that differ early, late, only by their end, or by bytes that a careless comparison takes for others.
std::string anyName(std::mt19937_64& random) {
    static const std::string parts[] = {
        "",         "a",    "IMG_0001",           "IMG_0001IMG_0001",   std::string(40, 'x'),
        "\xFF\xFE", "\x01", std::string(1, '\0'), std::string(9, '\0'), "~",
        "\xC3\xA4"};
    std::string name;
    for (int count = static_cast<int>(random() % 4); count >= 0; --count)
        name += parts[random() % std::size(parts)];
    return name + (random() % 2 == 0 ? "" : std::to_string(random() % 100));
}

bool precedes(const FileNode* a, const FileNode* b) {
    return NodeSorter::precedes(*a, *b);
}

TEST(NodeSorter, AgreesWithThePlainOrder) {
    std::mt19937_64 random(1);
    NodeSorter sorter; // one for all: what a folder leaves behind must not disturb the next
    for (const int count : {0, 1, 2, 15, 16, 17, 40, 300, 20'000, 70'000, 500}) {
        for (const std::uint64_t sizeCount : {1u, 3u, 100'000u}) {
            FileTreeBuilder tree("/r");
            std::vector<FileNode*> expected;
            for (int item = 0; item < count; ++item) {
                const auto size = static_cast<std::int64_t>(random() % sizeCount) - 1;
                const auto allocated = static_cast<std::int64_t>(random() % sizeCount) * 4096;
                const std::string name = anyName(random);
                const FileNodeAttributes attributes{.size = size, .allocatedSize = allocated};
                FileNode& file = tree.addFile(tree.root(), name, attributes);
                expected.push_back(&file);
                sorter.add(file);
            }
            // The same in runs of any length, and in those that a large folder is cut into.
            NodeRuns runs;
            for (std::size_t begin = 0, end = 0; begin < expected.size(); begin = end) {
                end = std::min<std::size_t>(begin + random() % 40, expected.size());
                std::vector<FileNode*> run(expected.begin() + static_cast<std::ptrdiff_t>(begin),
                                           expected.begin() + static_cast<std::ptrdiff_t>(end));
                std::ranges::stable_sort(run, precedes);
                runs.add(std::move(run));
            }
            NodeRuns byAllocated(SizeMode::allocated);
            byAllocated.sort(expected, 3);
            EXPECT_EQ(byAllocated.count(), expected.size());
            std::vector<FileNode*> allocated(expected.size());
            EXPECT_TRUE(byAllocated.takeInto(allocated, 3).empty());
            EXPECT_EQ(byAllocated.count(), 0u);
            std::vector<FileNode*> expectedAllocated = expected;
            std::ranges::stable_sort(expectedAllocated, [](const FileNode* a, const FileNode* b) {
                return a->allocatedSize != b->allocatedSize ? a->allocatedSize > b->allocatedSize
                                                            : a->name() < b->name();
            });
            EXPECT_TRUE(allocated == expectedAllocated) << count << " nodes of " << sizeCount << " sizes";
            std::vector<FileNode*> merged(expected.size() + 1);
            EXPECT_EQ(runs.takeInto(merged, 2).size(), 1u);
            merged.pop_back();
            std::ranges::stable_sort(expected, precedes);
            std::vector<FileNode*> found(expected.size() + 1);
            EXPECT_EQ(sorter.takeInto(found).size(), 1u);
            found.pop_back();
            EXPECT_TRUE(merged == expected) << count << " nodes of " << sizeCount << " sizes";
            EXPECT_TRUE(found == expected) << count << " nodes of " << sizeCount << " sizes";

            // By another size than their own, and from the order that they are in already.
            for (FileNode* node : expected)
                sorter.add(*node, -node->size);
            const auto byOther = sorter.sorted();
            EXPECT_TRUE(std::is_sorted(byOther.begin(), byOther.end(), [](const auto& a, const auto& b) {
                return a.size != b.size ? a.size > b.size : a.node->name() < b.node->name();
            }));
            sorter.clear();
        }
    }
}

} // namespace
} // namespace tarnwell
