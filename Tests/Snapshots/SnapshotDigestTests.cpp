#include "TarnwellCore/Snapshots/SnapshotDigest.hpp"

#include "Tests/Support/SampleSnapshots.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

using test::makeEntry;
using testing::ElementsAre;

constexpr std::int64_t gb = 1'000'000'000;

struct Item {
    const char* path; // a folder's ends in "/"
    std::int64_t before;
    std::int64_t after; // 0 where it is not there
};

SnapshotDigest digestOf(const std::vector<Item>& items) {
    ScanSnapshot before = test::makeSnapshot(1000, 100 * gb);
    ScanSnapshot after = test::makeSnapshot(2000, 100 * gb);
    std::int64_t files = 100; // no two folders hold as many
    for (const Item& item : items) {
        std::string path = item.path;
        const bool isFolder = path.ends_with('/');
        if (isFolder)
            path.pop_back();
        if (item.before > 0)
            before.entries.push_back(makeEntry(path, item.before, ++files, isFolder));
        if (item.after > 0)
            after.entries.push_back(makeEntry(path, item.after, ++files, isFolder));
        if (path.find('/') == path.npos)
            after.totalAllocatedSize += item.after - item.before;
    }
    before.entries[0].fileCount = 1;
    after.entries[0].allocatedSize = after.totalAllocatedSize;
    return SnapshotDigest::of(before, after);
}

std::vector<std::string> causesOf(const std::vector<Item>& items) {
    std::vector<std::string> causes;
    for (const SnapshotDigest::Cause& cause : digestOf(items).causes)
        causes.push_back((cause.change > 0 ? "+" : "-") + cause.path);
    return causes;
}

TEST(SnapshotDigest, TellsCausesWhereTheyAre) {
    // Down to what did it, and nothing twice.
    EXPECT_THAT(causesOf({{"a/", 1 * gb, 51 * gb},
                          {"a/b/", 1 * gb, 50 * gb},
                          {"a/b/c.iso", 1 * gb, 48 * gb},
                          {"z/", 9 * gb, 3 * gb}}),
                ElementsAre("+a/b/c.iso", "-z"));
    // A folder stands for many parts.
    EXPECT_THAT(causesOf({{"a/", 1 * gb, 41 * gb},
                          {"a/1", 0, 10 * gb},
                          {"a/2", 0, 10 * gb},
                          {"a/3", 0, 10 * gb},
                          {"a/4", 0, 10 * gb}}),
                ElementsAre("+a"));
    // Two or three parts tell more than their folder.
    EXPECT_THAT(causesOf({{"u/", 1 * gb, 81 * gb}, {"u/x/", 1 * gb, 41 * gb}, {"u/y/", 1 * gb, 39 * gb}}),
                ElementsAre("+u/x", "+u/y"));
    // What a folder hides, by making up for it.
    EXPECT_THAT(causesOf({{"m/", 50 * gb, 51 * gb}, {"m/old/", 40 * gb, 0}, {"m/new/", 0, 41 * gb}}),
                ElementsAre("+m/new", "-m/old"));
    EXPECT_THAT(causesOf({{"n/", 50 * gb, 50 * gb}, {"n/old", 40 * gb, 1 * gb}, {"n/new", 1 * gb, 40 * gb}}),
                ElementsAre("+n/new", "-n/old"));
    // What came is told as a whole.
    EXPECT_THAT(causesOf({{"g/", 0, 50 * gb}, {"g/data", 0, 49 * gb}}), ElementsAre("+g"));
    EXPECT_THAT(causesOf({{"a", 1, 1 + gb / 1000 - 1}}), ElementsAre()) << "below the smallest";
    EXPECT_THAT(causesOf({{"1", 0, 1 * gb},
                          {"2", 0, 2 * gb},
                          {"3", 0, 3 * gb},
                          {"4", 0, 4 * gb},
                          {"5", 0, 5 * gb},
                          {"6", 6 * gb, 0}}),
                ElementsAre("-6", "+5", "+4", "+3", "+2"));
}

TEST(SnapshotDigest, NoCauseLiesInAnother) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        ScanSnapshot before = test::makeSnapshot(1, 0);
        ScanSnapshot after = test::makeSnapshot(2, 0);
        for (int number = 0; number < 40; ++number) {
            std::string path;
            for (auto depth = random() % 5 + 1; depth > 0; --depth)
                path += (path.empty() ? "" : "/") + std::string(1, static_cast<char>('a' + random() % 3));
            for (ScanSnapshot* snapshot : {&before, &after})
                if (random() % 4 != 0)
                    snapshot->entries.push_back(makeEntry(path, static_cast<std::int64_t>(random() % 9) * gb,
                                                          static_cast<std::int64_t>(random() % 3),
                                                          random() % 2 == 0));
        }
        const SnapshotDigest digest = SnapshotDigest::of(before, after);
        EXPECT_LE(digest.causes.size(), SnapshotDigest::mostItems);
        for (const auto& cause : digest.causes)
            for (const auto& other : digest.causes)
                EXPECT_FALSE(cause.path.starts_with(other.path + "/")) << other.path << " " << cause.path;
    }
    // Nothing but slashes.
    ScanSnapshot odd = test::makeSnapshot();
    for (std::size_t length = 1; length < 400; ++length)
        odd.entries.push_back(makeEntry(std::string(length * 500, '/'), gb));
    EXPECT_EQ(SnapshotDigest::of(test::makeSnapshot(), odd).causes.size(), 1u) << "the one around the others";
}

TEST(SnapshotDigest, TellsFoldersCategoriesAndRoom) {
    const SnapshotDigest digest = digestOf({{"new/", 0, 8 * gb},
                                            {"new/inner/", 0, 7 * gb},
                                            {"file", 0, 9 * gb},
                                            {"a/", 5 * gb, 7 * gb},
                                            {"a/deep/", 0, 2 * gb},
                                            {"gone/", 3 * gb, 0},
                                            {"gone/inner/", 2 * gb, 0}});
    EXPECT_THAT(digest.newFolders,
                ElementsAre(SnapshotDigest::Folder{"new", 8 * gb}, SnapshotDigest::Folder{"a/deep", 2 * gb}));
    EXPECT_THAT(digest.goneFolders, ElementsAre(SnapshotDigest::Folder{"gone", 3 * gb}));
    EXPECT_EQ(digest.netChange, 16 * gb);
    EXPECT_EQ(digest.spaceBefore, std::nullopt);
    EXPECT_TRUE(digest.categories.empty());

    ScanRecord then;
    ScanRecord now;
    then.categories = {{FileCategory::video, 5}, {FileCategory::audio, 9}, {FileCategory::fonts, 1}};
    now.categories = {{FileCategory::video, 7}, {FileCategory::fonts, 1}};
    now.volume = VolumeSpace{.capacity = 10, .free = 1};
    const SnapshotDigest known =
        SnapshotDigest::of(test::makeSnapshot(1), test::makeSnapshot(2), &then, &now);
    using CategoryChange = SnapshotDigest::CategoryChange;
    EXPECT_THAT(known.categories, ElementsAre(CategoryChange{FileCategory::audio, 9, 0},
                                              CategoryChange{FileCategory::video, 5, 7}));
    EXPECT_EQ(known.spaceAfter, now.volume);
    EXPECT_EQ(known.spaceBefore, std::nullopt);
}

} // namespace
} // namespace tarnwell
