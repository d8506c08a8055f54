#include "TarnwellCLIKit/SnapshotReference.hpp"

#include "Tests/Support/SampleSnapshots.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarnwell {
namespace {

constexpr const char* oldest = "AB000000-0000-4000-8000-000000000001";
constexpr const char* middle = "AB0F0000-0000-4000-8000-000000000002";
constexpr const char* newest = "1A000000-0000-4000-8000-000000000003";

ScanSnapshot snapshot(const char* id, double createdAt) {
    ScanSnapshot snapshot = test::makeSnapshot(createdAt);
    snapshot.id = UUID::parse(id).value();
    return snapshot;
}

/// The UUID that a reference resolves to, or the message.
std::string resolved(const std::string& reference, const std::vector<ScanSnapshot>& snapshots) {
    const auto found = SnapshotReference::resolve(reference, snapshots);
    return found ? (*found)->id.text() : found.error().message();
}

TEST(SnapshotReference, NamesASnapshotByPlaceOrPrefixInAnyLetterCase) {
    const std::vector<ScanSnapshot> snapshots{snapshot(middle, 200), snapshot(oldest, 100),
                                              snapshot(newest, 300)};
    const struct {
        std::string reference;
        std::string expected;
    } cases[] = {
        {"latest", newest},
        {"previous", middle},
        {"PreVious", middle},
        {middle, middle},
        {"ab0f0000-0000-4000-8000-000000000002", middle},
        {"aB0f", middle},
        {"1", newest},
        {"AB000", oldest},
        {"aBx", "No snapshot matches 'aBx'."},
        {"", "No snapshot matches ''."},
        {"late", "No snapshot matches 'late'."},
        {"AB0F0000-0000-4000-8000-0000000000020",
         "No snapshot matches 'AB0F0000-0000-4000-8000-0000000000020'."},
        {"\xff", "No snapshot matches '\xff'."},
        // In ascending order, whatever the order of time.
        {"aB",
         "Snapshot prefix 'aB' matches more than one snapshot: " + std::string(oldest) + ", " + middle + "."},
    };
    for (const auto& sample : cases)
        EXPECT_EQ(resolved(sample.reference, snapshots), sample.expected) << sample.reference;
}

TEST(SnapshotReference, TooFewSnapshotsAreSaidToBe) {
    const std::string noPrevious =
        "There is no previous snapshot. `previous` is the second newest, so at least two "
        "snapshots have to be stored.";
    EXPECT_EQ(resolved("Latest", {}), "No snapshots are stored.");
    EXPECT_EQ(resolved("previous", {}), noPrevious);
    EXPECT_EQ(resolved("PREVIOUS", {snapshot(oldest, 1)}), noPrevious);
    EXPECT_EQ(resolved("a", {}), "No snapshot matches 'a'.");
    // Of equal dates the first one given counts as newer.
    EXPECT_EQ(resolved("latest", {snapshot(oldest, 1), snapshot(middle, 1)}), oldest);
    EXPECT_EQ(resolved("previous", {snapshot(oldest, 1), snapshot(middle, 1)}), middle);
}

} // namespace
} // namespace tarnwell
