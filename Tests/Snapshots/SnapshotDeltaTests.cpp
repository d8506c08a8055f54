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

const Change* changeAt(const SnapshotDelta& delta, std::string_view path) {
    const auto change = std::ranges::find(delta.changes, path, &Change::path);
    return change == delta.changes.end() ? nullptr : &*change;
}

TEST(SnapshotDelta, ChangesOfTheThresholdAreListed) {
    const ScanSnapshot before =
        snapshotOf({makeEntry("", 0), makeEntry("a", 500), makeEntry("b", 500), makeEntry("c", 500)});
    const ScanSnapshot after =
        snapshotOf({makeEntry("", 99), makeEntry("a", 600), makeEntry("b", 599), makeEntry("c", 400)});
    const SnapshotDelta delta = SnapshotDelta::compare(before, after, 100, SizeMode::apparent);
    EXPECT_EQ(delta.changes, (std::vector<Change>{{"a", Kind::grew, 500, 600, 100, false},
                                                  {"c", Kind::shrank, 500, 400, -100, false}}));
    EXPECT_TRUE(SnapshotDelta::compare(after, after, 1, SizeMode::apparent).changes.empty());
    // Without a threshold everything is listed, also what did not change.
    const SnapshotDelta all = SnapshotDelta::compare(after, after, 0, SizeMode::apparent);
    ASSERT_EQ(all.changes.size(), 4u);
    EXPECT_EQ(all.changes[0], (Change{"", Kind::shrank, 99, 99, 0, false}));
    EXPECT_EQ(all.changes[1], (Change{"a", Kind::shrank, 600, 600, 0, true}));
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

TEST(SnapshotDelta, AnItemUnderTheFloorIsTakenForOneOnlyInAFolderOfTheSameCount) {
    constexpr std::int64_t size = 50'000'000;
    const auto folder = [](std::int64_t files) { return makeEntry("folder", 0, files, true); };
    const struct {
        const char* what;
        ScanSnapshot without;
        ScanSnapshot with;
        bool isBelowThreshold;
    } cases[] = {
        {"same count", snapshotOf({folder(3)}), snapshotOf({folder(3), makeEntry("folder/x", size)}), true},
        {"other count", snapshotOf({folder(3)}), snapshotOf({folder(4), makeEntry("folder/x", size)}), false},
        {"no floor", snapshotOf({folder(3)}, 0), snapshotOf({folder(3), makeEntry("folder/x", size)}), false},
        {"no folder without", snapshotOf({}), snapshotOf({folder(3), makeEntry("folder/x", size)}), false},
        {"no folder with", snapshotOf({folder(3)}), snapshotOf({makeEntry("folder/x", size)}), false},
        {"in the root", snapshotOf({makeEntry("", 0, 3)}),
         snapshotOf({makeEntry("", 0, 3), makeEntry("x", size)}), true},
        {"the root", snapshotOf({}), snapshotOf({makeEntry("", size)}), false},
        {"the floor of the one that has it", snapshotOf({folder(3)}, 1),
         snapshotOf({folder(3), makeEntry("folder/x", size)}, 0), true},
    };
    for (const auto& sample : cases) {
        const auto kinds = [](const ScanSnapshot& before, const ScanSnapshot& after) {
            return SnapshotDelta::compare(before, after, size, SizeMode::allocated).changes.at(0).kind;
        };
        EXPECT_EQ(kinds(sample.without, sample.with),
                  sample.isBelowThreshold ? Kind::belowThreshold : Kind::added)
            << sample.what;
        EXPECT_EQ(kinds(sample.with, sample.without),
                  sample.isBelowThreshold ? Kind::belowThreshold : Kind::removed)
            << sample.what;
    }
}

TEST(SnapshotDelta, AChangeIsNestedWhereOneAboveTellsMostOfIt) {
    const struct {
        std::string above;
        std::string path;
        std::int64_t aboveDelta;
        std::int64_t delta;
        bool isNested;
    } cases[] = {
        {"a", "a/b", 80, 100, true},   {"a", "a/b", 79, 100, false},    {"a", "a/b", -100, 100, false},
        {"a", "a/b", -80, -100, true}, {"a", "a/b/c/d", 90, 100, true}, {"", "a/b", 90, 100, true},
        {"a", "ab", 90, 100, false},   {"a", "a//b", 90, 100, true},    {"a/", "a//b", 90, 100, true},
        {"a/", "a/b", 90, 100, false}, {"a", "a/", 90, 100, true},      {"", "/", 90, 100, true},
        {"/", "//x", 90, 100, true},   {"/", "/x", 90, 100, false},     {"\xff", "\xff/\xfe", 90, 100, true},
    };
    for (const auto& sample : cases) {
        const auto side = [](std::int64_t delta) {
            return std::pair(delta < 0 ? -delta : 0, delta > 0 ? delta : 0);
        };
        const SnapshotDelta delta =
            SnapshotDelta::compare(snapshotOf({makeEntry(sample.above, side(sample.aboveDelta).first),
                                               makeEntry(sample.path, side(sample.delta).first)}),
                                   snapshotOf({makeEntry(sample.above, side(sample.aboveDelta).second),
                                               makeEntry(sample.path, side(sample.delta).second)}),
                                   1, SizeMode::allocated);
        ASSERT_TRUE(changeAt(delta, sample.path) && changeAt(delta, sample.above)) << sample.path;
        EXPECT_EQ(changeAt(delta, sample.path)->isNested, sample.isNested)
            << sample.above << " " << sample.path;
        EXPECT_FALSE(changeAt(delta, sample.above)->isNested) << sample.above << " " << sample.path;
    }
}

TEST(SnapshotDelta, OfEqualPathsTheFirstCounts) {
    const ScanSnapshot twice =
        snapshotOf({makeEntry("", 0), makeEntry("\uFFFD", 500), makeEntry("\uFFFD", 100)});
    const ScanSnapshot once = snapshotOf({makeEntry("", 0), makeEntry("\uFFFD", 700)});
    EXPECT_EQ(SnapshotDelta::compare(twice, once, 1, SizeMode::allocated).changes,
              (std::vector<Change>{{"\uFFFD", Kind::grew, 500, 700, 200, false}}));
    EXPECT_EQ(SnapshotDelta::compare(once, twice, 1, SizeMode::allocated).changes,
              (std::vector<Change>{{"\uFFFD", Kind::shrank, 700, 500, -200, false}}));
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

Kind mirrored(Kind kind) {
    switch (kind) {
    case Kind::grew:
        return Kind::shrank;
    case Kind::shrank:
        return Kind::grew;
    case Kind::added:
        return Kind::removed;
    case Kind::removed:
        return Kind::added;
    case Kind::belowThreshold:
        return Kind::belowThreshold;
    }
    return kind;
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

            // A higher threshold lists some of the same changes.
            const SnapshotDelta higher = SnapshotDelta::compare(before, after, threshold + 3, mode);
            for (Change change : higher.changes) {
                const Change* same = changeAt(delta, change.path);
                ASSERT_NE(same, nullptr);
                ASSERT_GE(same->isNested, change.isNested); // an ancestor may have fallen away
                change.isNested = same->isNested;
                ASSERT_EQ(change, *same);
            }
            // Turned round, everything is turned round, but for what did not change.
            SnapshotDelta turned =
                SnapshotDelta::compare(after, before, std::max<std::int64_t>(threshold, 1), mode);
            ASSERT_EQ(turned.totalChange, -delta.totalChange);
            for (Change& change : turned.changes) {
                std::swap(change.before, change.after);
                change.delta = -change.delta;
                change.kind = mirrored(change.kind);
            }
            ASSERT_EQ(
                turned.changes,
                SnapshotDelta::compare(before, after, std::max<std::int64_t>(threshold, 1), mode).changes);
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
