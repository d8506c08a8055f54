// What reading one folder of a scanned tree again costs beside the scan, and what the ledger of its volume
// does.
//
// The environment's TARNWELL_BENCHMARK_TREE names the scanned folder, such as one that make-tree made. The
// counter "of_scan" is the time as a part of the scan's, "below" how many entries the folder that is read
// again holds.

#include "TarnwellCore/Analysis/VolumeLedger.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace tarnwell {
namespace {

struct Scanned {
    ScanResult result;
    double seconds;
};

/// Scanned once for all benchmarks, after a scan that warms the caches.
const Scanned* scanned() {
    static const std::optional<Scanned> kept = []() -> std::optional<Scanned> {
        const char* const tree = std::getenv("TARNWELL_BENCHMARK_TREE");
        if (tree == nullptr)
            return std::nullopt;
        DiskScanner().scan(tree).get();
        ScanResult result = DiskScanner().scan(tree).get();
        const double seconds = result.duration;
        return Scanned{std::move(result), seconds};
    }();
    return kept ? &*kept : nullptr;
}

std::int64_t entriesBelow(const FileNode& folder) {
    return std::int64_t{folder.fileCount()} + folder.directoryCount();
}

/// The folder whose count of entries is nearest.
const FileNode* folderOfAbout(const FileNode& root, std::int64_t entries) {
    const FileNode* nearest = nullptr;
    const auto distance = [&](const FileNode& folder) { return std::abs(entriesBelow(folder) - entries); };
    root.forEachDescendant([&](const FileNode& node) {
        if (node.isDirectory() && &node != &root &&
            (nearest == nullptr || distance(node) < distance(*nearest)))
            nearest = &node;
        return true;
    });
    return nearest;
}

void rescan(benchmark::State& state) {
    const Scanned* const all = scanned();
    const FileNode* const folder =
        all != nullptr ? folderOfAbout(*all->result.root, state.range(0)) : nullptr;
    if (folder == nullptr) {
        state.SkipWithError("TARNWELL_BENCHMARK_TREE names no folder with folders in it");
        return;
    }
    double shortest = 1e9;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(DiskScanner().rescan(all->result, *folder).get());
        shortest = std::min(shortest,
                            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    state.counters["below"] = static_cast<double>(entriesBelow(*folder));
    state.counters["of_scan"] = shortest / all->seconds;
}
BENCHMARK(rescan)->Arg(10)->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMillisecond)->UseRealTime();

void ledger(benchmark::State& state) {
    const Scanned* const all = scanned();
    if (all == nullptr) {
        state.SkipWithError("TARNWELL_BENCHMARK_TREE is not set");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(makeVolumeLedger(all->result));
}
BENCHMARK(ledger)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
} // namespace tarnwell
