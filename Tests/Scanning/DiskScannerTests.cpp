#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include "Tests/Support/RandomTree.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tarnwell {
namespace {

using test::TemporaryFolder;

TEST(DiskScanner, RootsAreNormalized) {
    const TemporaryFolder folder;
    folder.makeFile("real/file", 100);
    ::symlink("real", (folder / "link").c_str());
    const std::string real = folder / "real";
    for (const char* spelling : {"real", "real/", "real///", "link", "link/", "./real/.", "link/../real"}) {
        EXPECT_EQ(DiskScanner::normalize(folder / spelling), real) << spelling;
        const ScanResult result = DiskScanner().scan(folder / spelling).get();
        EXPECT_EQ(result.root->name(), real) << spelling;
        EXPECT_EQ(result.root->size, 100) << spelling;
    }
    EXPECT_EQ(DiskScanner::normalize("/"), "/");
    EXPECT_EQ(DiskScanner::normalize("///"), "/");
    EXPECT_EQ(DiskScanner::normalize((folder / "missing/").string()), folder / "missing");
    EXPECT_THROW(DiskScanner().scan(folder / "missing").get(), ScanError);
}

TEST(DiskScanner, Measures) {
    const TemporaryFolder folder;
    folder.makeFile("tree/a/file", 100);
    folder.makeFile("tree/b/file", 5000);
    ::link((folder / "tree/a/file").c_str(), (folder / "tree/b/link").c_str());
    folder.makeFile("file", 5000);
    ::symlink("tree", (folder / "link").c_str());
    const DiskScanner scanner;

    const DirectoryMeasurement tree = scanner.measure((folder / "tree/").string()).get();
    EXPECT_EQ(tree.logicalSize, 5100);
    EXPECT_EQ(tree.fileCount, 3);
    EXPECT_EQ(tree.directoryCount, 2);
    EXPECT_FALSE(tree.isMissing);
    EXPECT_EQ(scanner.measure(folder / "link").get().logicalSize, 4);
    EXPECT_EQ(
        jsonText(DirectoryMeasurement{.isMissing = true}),
        "{\n  \"allocatedSize\": 0,\n  \"directoryCount\": 0,\n  \"fileCount\": 0,\n  \"isMissing\": true,\n"
        "  \"logicalSize\": 0,\n  \"reclaimableSize\": 0\n}");

    const DirectoryMeasurement file = scanner.measure(folder / "file").get();
    EXPECT_GE(file.allocatedSize, 5000);
    EXPECT_EQ(file, (DirectoryMeasurement{.logicalSize = 5000,
                                          .allocatedSize = file.allocatedSize,
                                          .reclaimableSize = file.allocatedSize,
                                          .fileCount = 1}));
    const std::map<std::filesystem::path, DirectoryMeasurement> several = {
        {folder / "tree", tree}, {folder / "missing", {.isMissing = true}}, {folder / "file", file}};
    EXPECT_EQ(scanner.measure(std::vector{folder / "tree", folder / "missing", folder / "file"}).get(),
              several);

    const CancellationToken token;
    token.cancel();
    EXPECT_THROW(scanner.measure(folder / "tree", {}, token).get(), ScanError);
}

TEST(DiskScanner, ReportsProgressUntilItIsDone) {
    const TemporaryFolder folder;
    test::makeRandomTree(folder.path(), 3000, 1);
    int total = 0;
    ScanOptions options;
    for (const double interval : {0.0, 0.001, std::nan(""), 1e300}) {
        options.progressInterval = interval;
        int reports = 0;
        std::int64_t lastFiles = 0;
        const auto note = [&](const ScanProgress& progress) {
            ++reports;
            EXPECT_FALSE(progress.isFinished);
            EXPECT_GE(progress.fileCount, lastFiles);
            EXPECT_TRUE(progress.currentPath.starts_with(folder.path().string()));
            lastFiles = progress.fileCount;
        };
        const ScanResult result = DiskScanner().scan(folder.path(), options, note).get();
        EXPECT_LE(lastFiles, result.stats.fileCount);
        EXPECT_FALSE(interval == 1e300 && reports > 0);
        total += reports;
    }
    EXPECT_GT(total, 0);

    options.progressInterval = 0;
    const auto fail = [](const ScanProgress&) { throw std::runtime_error("from the handler"); };
    // Whether a report comes before a scan of milliseconds ends is up to the system: try until one does.
    const auto scanOften = [&] {
        for (int round = 0; round < 1000; ++round)
            DiskScanner().scan(folder.path(), options, fail).get();
    };
    EXPECT_THROW(scanOften(), std::runtime_error);
}

TEST(ScanSession, StreamsTheNewestReportsAndAFinalOne) {
    const TemporaryFolder folder;
    test::makeRandomTree(folder.path(), 2000, 2);
    ScanOptions options;
    options.progressInterval = 0.001;
    const auto session = DiskScanner().session(folder.path(), options);
    const ScanResult result = session->result(); // nobody has read a report so far
    int reports = 0;
    ScanProgress last;
    while (const auto progress = session->progress().next()) {
        ++reports;
        last = *progress;
    }
    EXPECT_LE(reports, 4);
    EXPECT_TRUE(last.isFinished);
    EXPECT_EQ(last.fileCount, result.stats.fileCount);
    EXPECT_EQ(last.directoryCount, result.stats.directoryCount);
    EXPECT_EQ(last.bytesScanned, result.stats.totalSize);
    EXPECT_EQ(last.currentPath, folder.path());
    EXPECT_EQ(last.elapsed, result.duration);
    EXPECT_EQ(session->result().root, result.root);

    const auto failing = DiskScanner().session(folder / "missing");
    EXPECT_THROW(failing->result(), ScanError);
    EXPECT_FALSE(failing->progress().next());
}

TEST(ScanSession, CancelsAndJoinsAtAnyMoment) {
    const TemporaryFolder folder;
    test::makeRandomTree(folder.path(), 2000, 3);
    for (int round = 0; round < 30; ++round) {
        const auto session = DiskScanner().session(folder.path());
        std::thread reader([stream = session->progress()] {
            while (stream.next()) {
            }
        });
        std::this_thread::sleep_for(std::chrono::microseconds(round * 100));
        if (round % 2 == 0) {
            session->cancel();
            try {
                session->result();
            } catch (const ScanError& error) {
                EXPECT_EQ(error.kind(), ScanError::Kind::cancelled);
            }
        }
        // Or it is just destroyed in the middle of its work.
        const_cast<std::unique_ptr<ScanSession>&>(session).reset();
        reader.join();
    }
}

#ifdef __linux__ // where threads count as processes do
TEST(DiskScanner, ScansOnTheCallingThreadWhenThereIsNoOther) {
    const TemporaryFolder folder;
    folder.makeFile("folder/file", 100);
    ::chmod(folder.path().c_str(), 0755);
    const std::string text = test::runUnprivileged([&] {
        const struct rlimit none = {};
        ::setrlimit(RLIMIT_NPROC, &none);
        const DiskScanner scanner;
        const std::unique_ptr<ScanSession> session = scanner.session(folder.path());
        while (session->progress().next()) {
        }
        return std::to_string(scanner.scan(folder.path(), {}, [](const ScanProgress&) {}).get().root->size) +
               " " + std::to_string(scanner.measure(folder.path()).get().logicalSize) + " " +
               std::to_string(session->result().root->size);
    });
    EXPECT_EQ(text, "100 100 100");
}
#endif

TEST(CancellationToken, TellsEachListenerOnce) {
    const CancellationToken token;
    int first = 0;
    int second = 0;
    const auto kept = token.onCancel([&] { ++first; });
    {
        const auto withdrawn = token.onCancel([&] { ++second; });
    }
    EXPECT_FALSE(token.isCancelled());
    // A copy is the same token.
    const CancellationToken copy = token; // NOLINT(performance-unnecessary-copy-initialization)
    copy.cancel();
    copy.cancel();
    EXPECT_TRUE(token.isCancelled());
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
    const auto late = token.onCancel([&] { ++second; });
    EXPECT_EQ(second, 1);
}

TEST(CancellationToken, AListenerThatIsGoneIsNotCalled) {
    for (int round = 0; round < 200; ++round) {
        const CancellationToken token;
        auto state = std::make_unique<std::atomic<int>>(0);
        auto registration = std::make_unique<CancellationToken::Registration>(
            token.onCancel([pointer = state.get()] { pointer->fetch_add(1); }));
        std::thread canceller([&] { token.cancel(); });
        registration.reset();
        state.reset();
        canceller.join();
    }
}

TEST(AsyncStream, KeepsTheNewestAndEnds) {
    const AsyncStream<int> stream(3);
    for (int value = 1; value <= 10; ++value)
        stream.yield(value);
    stream.finish();
    stream.yield(11);
    EXPECT_EQ(stream.next(), 8);
    EXPECT_EQ(stream.next(), 9);
    EXPECT_EQ(stream.next(), 10);
    EXPECT_EQ(stream.next(), std::nullopt);
    EXPECT_EQ(stream.next(), std::nullopt);
}

} // namespace
} // namespace tarnwell
