// What snapshots cost: capturing a scan of a million items, comparing two snapshots of up to a hundred
// thousand entries, listing a folder of a thousand.
//
// The environment's TARNWELL_BENCHMARK_TREE may name a real folder, which is then scanned and captured; the
// counter "share" is the capture's part of both.

#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Snapshots/SnapshotCoding.hpp"
#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

constexpr std::int64_t depth = 4;
constexpr std::int64_t floorSize = 1'000'000;

// --- Capture --------------------------------------------------------------------------------------------

/// The dearest shape: every item lies within the captured depth. One in a hundred is large enough to be kept.
ScanResult millionItems() {
    std::mt19937_64 random(1);
    FileTreeBuilder builder("/home/user");
    for (int outer = 0; outer < 100; ++outer) {
        FileNode& top = builder.addFolder(builder.root(), "folder " + std::to_string(outer));
        for (int inner = 0; inner < 100; ++inner) {
            FileNode& folder = builder.addFolder(top, "folder " + std::to_string(inner));
            for (int file = 0; file < 100; ++file)
                builder.addFile(
                    folder, "document " + std::to_string(file) + ".pdf",
                    static_cast<std::int64_t>(random() % 100 == 0 ? 2'000'000 : random() % 10'000));
        }
    }
    ScanResult result;
    result.root = builder.finish();
    return result;
}

void captureMillionItems(benchmark::State& state) {
    const ScanResult result = millionItems();
    std::size_t entries = 0;
    for (auto _ : state) {
        const ScanSnapshot snapshot = ScanSnapshot::capture(result, depth, floorSize);
        entries = snapshot.entries.size();
        benchmark::DoNotOptimize(snapshot);
    }
    state.counters["entries"] = static_cast<double>(entries);
}

void scanAndCapture(benchmark::State& state) {
    const char* const tree = std::getenv("TARNWELL_BENCHMARK_TREE");
    if (tree == nullptr) {
        state.SkipWithError("TARNWELL_BENCHMARK_TREE is not set");
        return;
    }
    using Clock = std::chrono::steady_clock;
    Clock::duration scanning{};
    Clock::duration capturing{};
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const ScanResult result = DiskScanner().scan(tree).get();
        const Clock::time_point scanned = Clock::now();
        benchmark::DoNotOptimize(ScanSnapshot::capture(result, depth, floorSize));
        scanning += scanned - start;
        capturing += Clock::now() - scanned;
        state.counters["items"] = static_cast<double>(result.stats.fileCount + result.stats.directoryCount);
    }
    state.counters["share"] =
        static_cast<double>(capturing.count()) / static_cast<double>((scanning + capturing).count());
}

// --- Comparison and listing -----------------------------------------------------------------------------

/// A snapshot of nested folders with paths as long as a home's. Another seed gives the same paths, about one
/// in eight of them missing, with other sizes.
ScanSnapshot snapshot(std::size_t entryCount, unsigned seed) {
    std::mt19937_64 random(seed);
    ScanSnapshot snapshot;
    snapshot.id = UUID::random();
    snapshot.createdAt = Date(Date::duration(1'700'000'000 + seed));
    snapshot.rootPath = "/Users/alice";
    snapshot.minimumSize = floorSize;
    snapshot.entries.reserve(entryCount);
    for (std::size_t index = 0; snapshot.entries.size() < entryCount; ++index) {
        if (index > 0 && random() % 8 == 0)
            continue;
        std::string path;
        if (index > 0) {
            path = "Library " + std::to_string(index / 1000);
            if (index % 1000 != 0)
                path += "/Application Support " + std::to_string(index / 100 % 10);
            if (index % 100 != 0)
                path += "/Container " + std::to_string(index / 10 % 10);
            if (index % 10 != 0)
                path += "/document number " + std::to_string(index % 10);
        }
        const auto size = static_cast<std::int64_t>(floorSize + random() % 200'000'000);
        snapshot.entries.push_back({.path = std::move(path),
                                    .size = size,
                                    .allocatedSize = size,
                                    .reclaimableSize = size,
                                    .fileCount = static_cast<std::int64_t>(random() % 100),
                                    .isDirectory = index % 10 == 0});
    }
    return snapshot;
}

void compareSnapshots(benchmark::State& state) {
    const auto entryCount = static_cast<std::size_t>(state.range(0));
    const ScanSnapshot before = snapshot(entryCount, 1);
    const ScanSnapshot after = snapshot(entryCount, 2);
    std::size_t changes = 0;
    for (auto _ : state) {
        const SnapshotDelta delta =
            SnapshotDelta::compare(before, after, state.range(1), SizeMode::allocated);
        changes = delta.changes.size();
    }
    state.counters["changes"] = static_cast<double>(changes);
    state.SetComplexityN(state.range(0));
}

void listThousandSnapshots(benchmark::State& state) {
    std::string pattern = (fs::temp_directory_path() / "tarnwell-benchmark-XXXXXX").string();
    const fs::path folder = ::mkdtemp(pattern.data());
    std::uintmax_t bytes = 0;
    for (unsigned seed = 0; seed < 1000; ++seed) {
        const ScanSnapshot stored = snapshot(1000, seed);
        const std::string document = SnapshotCoding::encode(stored);
        std::ofstream(folder / (stored.id.text() + ".json"), std::ios::binary) << document;
        bytes += document.size();
    }
    const SnapshotStore store(folder);
    for (auto _ : state)
        if (store.list().size() != 1000)
            state.SkipWithError("not every snapshot was listed");
    state.counters["megabytes"] = static_cast<double>(bytes) / 1e6;
    state.counters["bytes/s"] =
        benchmark::Counter(static_cast<double>(bytes), benchmark::Counter::kIsIterationInvariantRate);
    fs::remove_all(folder);
}

BENCHMARK(captureMillionItems)->Unit(benchmark::kMillisecond);
BENCHMARK(scanAndCapture)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(compareSnapshots)
    ->ArgNames({"entries", "threshold"})
    ->ArgsProduct({{12'500, 25'000, 50'000, 100'000, 200'000}, {0, 10'000'000, 150'000'000}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(listThousandSnapshots)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3);

} // namespace
} // namespace tarnwell
