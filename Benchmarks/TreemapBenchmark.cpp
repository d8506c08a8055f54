// How long a viewer waits for its treemap or another layout, and for the tile under the pointer.

#include "TarnwellCore/Layout/BarsLayout.hpp"
#include "TarnwellCore/Layout/IcicleLayout.hpp"
#include "TarnwellCore/Layout/SunburstLayout.hpp"
#include "TarnwellCore/Layout/TreemapLayout.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>

namespace tarnwell {
namespace {

constexpr Rect screen{0, 0, 2560, 1440};

FileNodeAttributes randomFile(std::mt19937_64& random) {
    // Most files are small, a few hold most of the bytes.
    std::lognormal_distribution<double> bytes(9, 2.5);
    FileNodeAttributes attributes;
    attributes.size = 1 + static_cast<std::int64_t>(bytes(random));
    attributes.allocatedSize = (attributes.size + 4095) / 4096 * 4096;
    return attributes;
}

/// A home folder's shape: a twelfth of the nodes are folders, a few levels deep, some with thousands of
/// files.
std::shared_ptr<FileNode> homeFolder(std::size_t nodeCount) {
    std::mt19937_64 random(1);
    FileTreeBuilder builder("/home/user");
    std::vector<FileNode*> folders{&builder.root()};
    for (std::size_t index = 1; index < nodeCount; ++index) {
        // The product of two draws favours the folders made first, so that some grow large.
        const double draw =
            std::generate_canonical<double, 53>(random) * std::generate_canonical<double, 53>(random);
        FileNode& parent = *folders[static_cast<std::size_t>(draw * static_cast<double>(folders.size()))];
        if (index % 12 == 0)
            folders.push_back(&builder.addFolder(parent, "folder " + std::to_string(index)));
        else
            builder.addFile(parent, "file " + std::to_string(index) + ".dat", randomFile(random));
    }
    return builder.finish();
}

std::shared_ptr<FileNode> wideFolder(std::size_t fileCount) {
    std::mt19937_64 random(2);
    FileTreeBuilder builder("/wide");
    for (std::size_t index = 0; index < fileCount; ++index)
        builder.addFile(builder.root(), "IMG_" + std::to_string(random() % 1'000'000) + ".jpg",
                        randomFile(random));
    return builder.finish();
}

void millionNodes(benchmark::State& state) {
    const auto root = homeFolder(1'000'000);
    TreemapConfiguration configuration;
    configuration.maximumDepth = 4;
    configuration.sizeMode = static_cast<SizeMode>(state.range(0));
    RemovedNodes removed;
    if (state.range(1) != 0) {
        std::size_t index = 0;
        root->forEachDescendant([&](const FileNode& node) {
            if (++index % 1000 == 0)
                removed.insert(node);
            return true;
        });
    }
    std::size_t tileCount = 0;
    for (auto _ : state)
        tileCount = TreemapLayout::layout(*root, screen, configuration, removed).size();
    state.counters["tiles"] = static_cast<double>(tileCount);
}
BENCHMARK(millionNodes)
    ->ArgNames({"mode", "removed"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 1})
    ->Unit(benchmark::kMillisecond);

/// The four layouts of a million nodes to depth 6.
void sixLevels(benchmark::State& state) {
    const auto root = homeFolder(1'000'000);
    TreemapConfiguration configuration;
    configuration.maximumDepth = 6;
    configuration.sizeMode = SizeMode::allocated;
    configuration.minimumSideForRecursion = 4;
    std::size_t itemCount = 0;
    for (auto _ : state) {
        switch (state.range(0)) {
        case 0:
            itemCount = TreemapLayout::layout(*root, screen, configuration).size();
            break;
        case 1:
            itemCount = IcicleLayout::layout(*root, screen, configuration).size();
            break;
        case 2:
            itemCount = SunburstLayout::layout(*root, {{720, 720}, 100, 720}, configuration).size();
            break;
        default:
            itemCount = BarsLayout::layout(*root, screen, 100, configuration).size();
        }
    }
    state.counters["items"] = static_cast<double>(itemCount);
}
BENCHMARK(sixLevels)->ArgName("layout")->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

void hundredThousandChildren(benchmark::State& state) {
    const auto root = wideFolder(100'000);
    TreemapConfiguration configuration =
        state.range(1) == 0 ? TreemapConfiguration::defaultPreset : TreemapConfiguration::exact;
    configuration.sizeMode = static_cast<SizeMode>(state.range(0));
    std::size_t tileCount = 0;
    for (auto _ : state)
        tileCount = TreemapLayout::layout(*root, screen, configuration).size();
    state.counters["tiles"] = static_cast<double>(tileCount);
}
BENCHMARK(hundredThousandChildren)
    ->ArgNames({"mode", "exact"})
    ->Args({0, 0})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond);

void hitTestTenThousandTiles(benchmark::State& state) {
    const auto root = wideFolder(10'000);
    const auto items = TreemapLayout::layout(*root, screen, TreemapConfiguration::exact);
    // The first tile is the last that is looked at.
    const Point point{items.front().rect.minX(), items.front().rect.minY()};
    for (auto _ : state)
        benchmark::DoNotOptimize(TreemapLayout::hitTest(items, point));
    state.counters["tiles"] = static_cast<double>(items.size());
}
BENCHMARK(hitTestTenThousandTiles)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace tarnwell
