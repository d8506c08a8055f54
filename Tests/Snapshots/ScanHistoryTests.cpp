#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Snapshots/GrowthTrend.hpp"
#include "TarnwellCore/Snapshots/ScanHistory.hpp"

#include "Tests/Support/FaultyFileCalls.hpp"
#include "Tests/Support/SampleSnapshots.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::dateAt;
using test::FaultyFileCalls;
using test::readFile;
using test::TemporaryFolder;
using testing::ElementsAre;

constexpr std::int64_t gigabyte = 1'000'000'000;
constexpr double day = 86'400;

ScanRecord recordAt(double seconds, std::int64_t size = 1, std::string root = "/home") {
    ScanRecord record;
    record.rootPath = std::move(root);
    record.finishedAt = dateAt(seconds);
    record.duration = 1.25;
    record.totalSize = size + 1;
    record.totalAllocatedSize = size;
    record.totalReclaimableSize = size - 1;
    return record;
}

TEST(ScanHistory, KeepsWhatIsNotedAndWhatOthersAdd) {
    const TemporaryFolder folder;
    const ScanHistory history(folder / "new/scan-history.json");
    EXPECT_TRUE(history.list().empty());
    ScanRecord full = recordAt(3000, gigabyte, "/home/\xE9\\x41");
    full.volume = VolumeSpace{.capacity = 500 * gigabyte, .free = 7};
    full.categories = {{FileCategory::video, 5}, {FileCategory::folder, 1}};
    full.fileCount = 1;
    full.directoryCount = 2;
    full.unreadableFolderCount = 3;
    const ScanRecord other = recordAt(1000);
    const ScanRecord later = recordAt(2000, 2);
    for (const ScanRecord& record : {full, other, later})
        history.note(record);
    EXPECT_THAT(history.list(), ElementsAre(full, later, other));
    EXPECT_THAT(history.series("/home"), ElementsAre(other, later));
    EXPECT_EQ(fs::status(history.file()).permissions(), fs::perms(0600));

    const std::string foreign =
        "{\n  \"later\": {\"a\": 1.10},\n  \"scans\": [\n    {\"rootPath\": \"/x\", \"finishedAt\": "
        "\"2024-05-01T09:30:00Z\", \"totalAllocatedSize\": 5, \"new\": [1e999, \"]},{\"]},\n    "
        "{\"rootPath\": 1}, \"[text]\", []\n  ],\n  \"version\": 2\n}\n";
    const ScanHistory shared(folder.writeFile("foreign.json", foreign));
    ASSERT_EQ(shared.list().size(), 1u);
    EXPECT_EQ(shared.list()[0].totalReclaimableSize, 5);
    shared.note(other);
    EXPECT_EQ(shared.list().size(), 2u);
    std::string rest = readFile(shared.file());
    for (const char* part : {"\"later\": {\"a\": 1.10}", "\"new\": [1e999, \"]},{\"]}", "{\"rootPath\": 1}",
                             "\"[text]\"", "[],", "\"version\": 2"})
        EXPECT_NE(rest.find(part), std::string::npos) << part << rest;
}

TEST(ScanHistory, TheNewestThousandAreKept) {
    const TemporaryFolder folder;
    std::string text = "{\"scans\": [5";
    for (int number = 0; number < 1200; ++number)
        text += ",\n{\"rootPath\": \"/" + std::to_string((number * 7) % 1200) +
                "\", \"finishedAt\": \"2024-05-01T" + std::to_string(10 + (number * 7) % 1200 / 100) + ":" +
                std::to_string(10 + (number * 7) % 1200 / 20 % 5 * 10) + ":" +
                std::to_string(10 + (number * 7) % 20) + "Z\"}";
    const ScanHistory history(folder.writeFile("h.json", text + "]}"));
    ASSERT_EQ(history.list().size(), 1200u);
    const std::vector<ScanRecord> before = history.list();
    history.note(recordAt(4'000'000'000));
    const std::vector<ScanRecord> after = history.list();
    ASSERT_EQ(after.size(), ScanHistory::capacity);
    EXPECT_EQ(after[0], recordAt(4'000'000'000));
    EXPECT_TRUE(std::equal(after.begin() + 1, after.end(), before.begin()));
    EXPECT_NE(readFile(history.file()).find("    5,\n"), std::string::npos) << "what is no scan stays";
}

TEST(ScanHistory, NothingIsLostWhateverFails) {
    for (const int error : {EIO, ENOSPC, ENOMEM})
        for (int call = 0;; ++call) {
            const TemporaryFolder folder;
            const fs::path file = folder / "h.json";
            ScanHistory(file).note(recordAt(1000));
            const std::string before = readFile(file);
            FaultyFileCalls faults;
            const ScanHistory history(file, faults.failing(call, error));
            bool isNoted = true;
            try {
                history.note(recordAt(2000));
            } catch (const std::system_error&) {
                isNoted = false;
            }
            if (!faults.hasFailed())
                break;
            // A failing sync of the folder says that the new file may not survive; it is there all the same.
            if (isNoted || readFile(file) != before) {
                EXPECT_EQ(ScanHistory(file).list().size(), 2u) << call;
            }
            EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2) << "the file and its lock";
        }
    const TemporaryFolder folder;
    for (const std::string damage : {"", "[]", "{\"scans\": {}}", "{", "\xFF"}) {
        const ScanHistory history(folder.writeFile("h.json", damage));
        EXPECT_TRUE(history.list().empty());
        history.note(recordAt(1000));
        EXPECT_EQ(history.list().size(), 1u);
        EXPECT_EQ(readFile(folder / "h.json.damaged"), damage);
        fs::remove(folder / "h.json.damaged");
    }
    folder.makeFolder("folder.json");
    EXPECT_THROW(ScanHistory(folder / "folder.json").note(recordAt(1)), std::system_error);
    EXPECT_THROW(ScanHistory(folder / "folder.json").list(), std::system_error);
}

TEST(ScanHistory, ManyMayNoteAtOnce) {
    const TemporaryFolder folder;
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 4; ++writer)
        threads.emplace_back([&, writer] {
            for (int round = 0; round < 10; ++round)
                ScanHistory(folder / "h.json").note(recordAt(writer * 100 + round));
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(ScanHistory(folder / "h.json").list().size(), 40u);
}

TEST(ScanRecord, CountsCategoriesAndFindsItsSnapshot) {
    FileTreeBuilder builder("/home");
    FileNode& inner = builder.addFolder(builder.root(), "d");
    builder.addFile(inner, "a.mp4", 100);
    builder.addFile(inner, "b.mp4", 50);
    builder.addFile(builder.root(), "c.zip", 7);
    builder.addFile(builder.root(), "d.zip",
                    {.size = 7, .allocatedSize = 7, .flags = FileNodeFlags::hardlinkDuplicate});
    ScanResult result;
    result.root = builder.finish();
    result.stats.totalAllocatedSize = result.stats.totalSize = 157;
    VolumeInfo volume;
    volume.totalCapacity = 9;
    volume.availableCapacity = 4;
    ScanRecord record = ScanRecord::of(result, volume, dateAt(10));
    EXPECT_EQ(record.volume, (VolumeSpace{.capacity = 9, .free = 4}));
    EXPECT_EQ(record.categories[FileCategory::video], 150);
    EXPECT_EQ(record.categories[FileCategory::archives], 7);
    EXPECT_EQ(record.categories.size(), 2u);
    EXPECT_EQ(ScanRecord::of(result, VolumeInfo{}).volume, std::nullopt);

    ScanSnapshot snapshot = ScanSnapshot::capture(result, 4, 0);
    snapshot.createdAt = dateAt(100);
    std::vector<ScanRecord> records{recordAt(100), record, record, record};
    records[2].finishedAt = dateAt(90);
    records[3].totalSize = 1;
    EXPECT_EQ(recordOf(snapshot, records), &records[2]);
    snapshot.createdAt = dateAt(5000);
    EXPECT_EQ(recordOf(snapshot, records), nullptr);
}

TEST(GrowthTrend, FollowsTheManyNotTheFew) {
    std::vector<ScanRecord> scans;
    for (int number = 0; number < 20; ++number)
        scans.push_back(recordAt(1e9 + number * day * 0.5, 100 * gigabyte + number * gigabyte));
    // Some scans saw a fraction, or something else as well.
    for (const std::size_t odd : {3u, 8u, 11u, 17u})
        scans[odd].totalAllocatedSize = odd % 2 == 0 ? 0 : 900 * gigabyte;
    scans[18].volume = VolumeSpace{.capacity = 500 * gigabyte, .free = 50 * gigabyte};
    std::swap(scans[1], scans[19]); // in any order
    const auto trend = GrowthTrend::of(scans, SizeMode::allocated);
    ASSERT_TRUE(trend);
    EXPECT_NEAR(trend->bytesPerDay, 2.0 * gigabyte, 0.1 * gigabyte);
    ASSERT_TRUE(trend->fullAt);
    EXPECT_NEAR((*trend->fullAt - scans[18].finishedAt).count(), 25 * day, 2 * day);

    const auto shrinking = [](std::int64_t change, std::int64_t free) {
        std::vector<ScanRecord> two{recordAt(0, gigabyte), recordAt(day, gigabyte + change)};
        two[1].volume = VolumeSpace{.capacity = gigabyte, .free = free};
        return *GrowthTrend::of(two, SizeMode::apparent);
    };
    EXPECT_EQ(shrinking(-5, 9).bytesPerDay, -5);
    EXPECT_EQ(shrinking(-5, 9).fullAt, std::nullopt);
    EXPECT_EQ(shrinking(0, 9).fullAt, std::nullopt);
    EXPECT_EQ(shrinking(5, 0).fullAt, dateAt(day));
    EXPECT_EQ(shrinking(1, 1'000'000).fullAt, std::nullopt) << "in thousands of years";
    EXPECT_EQ(GrowthTrend::of({}, SizeMode::apparent), std::nullopt);
    const std::vector<ScanRecord> same{recordAt(5, 1), recordAt(5, 2)};
    EXPECT_EQ(GrowthTrend::of(same, SizeMode::apparent), std::nullopt);
}

} // namespace
} // namespace tarnwell
