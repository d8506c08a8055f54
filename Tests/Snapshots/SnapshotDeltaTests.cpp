#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"

#include "Tests/Support/PlainDelta.hpp"
#include "Tests/Support/SampleSnapshots.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace tarnwell {

// Where googletest looks for it: beside the type.
void PrintTo(const SnapshotDelta::Change& change, std::ostream* stream) { // NOLINT(misc-use-internal-linkage)
    *stream << "'" << change.path << "' " << rawValue(change.kind) << " " << change.before << " → "
            << change.after << (change.isNested ? " nested" : "");
}

namespace {

using test::makeEntry;
using test::makeSnapshot;
using test::plainChanges;
using Change = SnapshotDelta::Change;
using Kind = Change::Kind;

ScanSnapshot snapshotOf(std::vector<ScanSnapshot::Entry> entries, std::int64_t floor = 1) {
    ScanSnapshot snapshot = makeSnapshot();
    snapshot.entries = std::move(entries);
    snapshot.minimumSize = floor;
    return snapshot;
}

TEST(SnapshotDelta, AWorkedExample) {
    const ScanSnapshot before =
        snapshotOf({makeEntry("", 1000, 10), makeEntry("a", 500, 3), makeEntry("a/gone", 300),
                    makeEntry("b", 200, 2), makeEntry("twice", 50), makeEntry("twice", 999)});
    const ScanSnapshot after =
        snapshotOf({makeEntry("", 1180, 11), makeEntry("a", 300, 3), makeEntry("b", 400, 2),
                    makeEntry("b/new", 200), makeEntry("c", 100), makeEntry("twice", 149)});
    EXPECT_EQ(SnapshotDelta::compare(before, after, 100, SizeMode::apparent).changes,
              (std::vector<Change>{{"a/gone", Kind::belowThreshold, 300, 0, -300, false},
                                   {"a", Kind::shrank, 500, 300, -200, false},
                                   {"b", Kind::grew, 200, 400, 200, true},
                                   {"b/new", Kind::belowThreshold, 0, 200, 200, true},
                                   {"", Kind::grew, 1000, 1180, 180, false},
                                   {"c", Kind::added, 0, 100, 100, true}}));
}

TEST(SnapshotDelta, TotalsAndRootsAreComparedApartFromTheEntries) {
    ScanSnapshot before = makeSnapshot();
    before.totalSize = 10;
    before.totalAllocatedSize = 20;
    before.totalReclaimableSize = 30;
    ScanSnapshot after = makeSnapshot();
    after.totalSize = 11;
    after.totalAllocatedSize = 18;
    after.totalReclaimableSize = 33;
    EXPECT_EQ(SnapshotDelta::compare(before, after, 1, SizeMode::apparent).totalChange, 1);
    EXPECT_EQ(SnapshotDelta::compare(before, after, 1, SizeMode::allocated).totalChange, -2);
    EXPECT_EQ(SnapshotDelta::compare(before, after, 1, SizeMode::reclaimable).totalChange, 3);
    EXPECT_TRUE(SnapshotDelta::compare(before, after, 1, SizeMode::apparent).rootsMatch);
    after.rootPath += "/";
    EXPECT_FALSE(SnapshotDelta::compare(before, after, 1, SizeMode::apparent).rootsMatch);
}

TEST(SnapshotDelta, SizesOfAnyKindHaveADifference) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    ScanSnapshot low = snapshotOf({makeEntry("", smallest), makeEntry("a", smallest)});
    ScanSnapshot high = snapshotOf({makeEntry("", largest), makeEntry("a", 0)});
    low.totalAllocatedSize = -2;
    high.totalAllocatedSize = largest;
    const SnapshotDelta up = SnapshotDelta::compare(low, high, largest, SizeMode::allocated);
    EXPECT_EQ(up.totalChange, largest);
    EXPECT_EQ(up.changes, (std::vector<Change>{{"", Kind::grew, smallest, largest, largest, false},
                                               {"a", Kind::grew, smallest, 0, largest, true}}));
    const SnapshotDelta down = SnapshotDelta::compare(high, low, smallest, SizeMode::allocated);
    EXPECT_EQ(down.totalChange, smallest);
    EXPECT_EQ(down.changes, (std::vector<Change>{{"", Kind::shrank, largest, smallest, smallest, false},
                                                 {"a", Kind::shrank, 0, smallest, smallest, true}}));
}

TEST(SnapshotDelta, PathsOfNothingButSlashesCostNoMoreThanOthers) {
    std::vector<ScanSnapshot::Entry> entries;
    for (std::size_t length = 0; length < 20; ++length)
        entries.push_back(makeEntry(std::string(1'000'000 + length, '/'), 100));
    const SnapshotDelta delta =
        SnapshotDelta::compare(snapshotOf({}), snapshotOf(entries), 1, SizeMode::allocated);
    EXPECT_EQ(std::ranges::count(delta.changes, true, &Change::isNested), 19);
}

// --- Against the rules as they are told -----------------------------------------------------------------

ScanSnapshot randomSnapshot(std::mt19937& random) {
    static const std::vector<std::string> names = {"a", "b", "a", "ab", "", "\xff", "x y"};
    ScanSnapshot snapshot = makeSnapshot();
    snapshot.entries.clear();
    snapshot.minimumSize = static_cast<std::int64_t>(random() % 3) - 1;
    for (auto count = random() % 40; count > 0; --count) {
        std::string path;
        for (auto depth = random() % 4; depth > 0; --depth)
            path += (path.empty() && random() % 4 != 0 ? "" : "/") + names[random() % names.size()];
        ScanSnapshot::Entry entry = makeEntry(path, static_cast<std::int64_t>(random() % 20),
                                              static_cast<std::int64_t>(random() % 2));
        entry.allocatedSize = static_cast<std::int64_t>(random() % 1000);
        entry.reclaimableSize = static_cast<std::int64_t>(random() % 5) - 2;
        snapshot.entries.push_back(entry);
    }
    snapshot.totalSize = static_cast<std::int64_t>(random() % 100);
    return snapshot;
}

TEST(SnapshotDelta, RandomPairsFollowTheRules) {
    std::mt19937 random(3);
    std::map<Kind, int> seen;
    int nested = 0;
    for (int round = 0; round < 3000; ++round) {
        const ScanSnapshot before = randomSnapshot(random);
        const ScanSnapshot after = random() % 8 == 0 ? before : randomSnapshot(random);
        for (const SizeMode mode : {SizeMode::apparent, SizeMode::allocated, SizeMode::reclaimable}) {
            const auto threshold = static_cast<std::int64_t>(random() % 12) - 1;
            const SnapshotDelta delta = SnapshotDelta::compare(before, after, threshold, mode);
            ASSERT_EQ(delta.changes, plainChanges(before, after, threshold, mode)) << "round " << round;
            for (const Change& change : delta.changes) {
                ++seen[change.kind];
                nested += change.isNested ? 1 : 0;
            }
        }
    }
    EXPECT_EQ(seen.size(), 5u);
    EXPECT_GT(nested, 1000);
}

} // namespace
} // namespace tarnwell
