// What a search costs beside the scan of the same folder, in turn with it.
//
// The environment's TARNWELL_BENCHMARK_TREE names the folder, such as one that make-tree made. The counter
// "of_scan" is the search's time as a part of the scan's.

#include "TarnwellCore/Analysis/Search.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <vector>

namespace tarnwell {
namespace {

SearchConditions conditionsOf(std::int64_t number) {
    using Kind = TextCondition::Kind;
    switch (number) {
    case 0:
        return {.names = {{Kind::contains, "index"}}};
    case 1:
        return {.names = {{Kind::contains, "é"}}};
    case 2:
        return {.names = {{Kind::glob, "*.js*"}}};
    case 3:
        return {.names = {{Kind::expression, "[0-9]{3}\\.js$"}}};
    case 4:
        return {.paths = {{Kind::contains, "lib/index"}}};
    default:
        return {.minimumSize = 1'000'000};
    }
}

void searchAfterScan(benchmark::State& state) {
    const char* const tree = std::getenv("TARNWELL_BENCHMARK_TREE");
    if (tree == nullptr) {
        state.SkipWithError("TARNWELL_BENCHMARK_TREE is not set");
        return;
    }
    using Clock = std::chrono::steady_clock;
    const SearchConditions conditions = conditionsOf(state.range(0));
    std::vector<double> shares;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const ScanResult scan = DiskScanner().scan(tree).get();
        const Clock::time_point scanned = Clock::now();
        const LargestMatches found = Search::largest(*scan.root, conditions, 20);
        const Clock::time_point searched = Clock::now();
        state.SetIterationTime(std::chrono::duration<double>(searched - scanned).count());
        shares.push_back(std::chrono::duration<double>(searched - scanned) /
                         std::chrono::duration<double>(scanned - start));
        state.counters["matches"] = static_cast<double>(found.totals.count);
    }
    std::ranges::sort(shares);
    state.counters["of_scan"] = shares[shares.size() / 2];
}
BENCHMARK(searchAfterScan)
    ->ArgName("conditions")
    ->DenseRange(0, 5)
    ->UseManualTime()
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

} // namespace
} // namespace tarnwell
