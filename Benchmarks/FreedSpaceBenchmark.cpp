// What an answer of FreedSpace costs: 10,000 marked nodes in a tree of a million, of which one in twenty
// shares blocks with another, and one in fifty has links elsewhere.

#include "TarnwellCore/Analysis/FreedSpace.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

ScanResult millionFiles() {
    std::mt19937_64 random(1);
    FileTreeBuilder builder("/home/user");
    for (int outer = 0; outer < 100; ++outer) {
        FileNode& top = builder.addFolder(builder.root(), "folder " + std::to_string(outer));
        for (int inner = 0; inner < 100; ++inner) {
            FileNode& folder = builder.addFolder(top, "folder " + std::to_string(inner));
            for (int file = 0; file < 100; ++file) {
                SharingAttributes sharing;
                HeldSpace held;
                FileNodeAttributes attributes{.size = 65536, .allocatedSize = 65536};
                if (random() % 20 == 0) {
                    held = {.traits = HeldSpace::wholeExtents,
                            .fileSystem = 1,
                            .extents = {{random() % 20'000 * 65536, 65536}}};
                    sharing.held = &held;
                    attributes.sharing = &sharing;
                }
                if (random() % 50 == 0) {
                    sharing.links = {.inode = random() % 8'000, .device = 1, .count = 3};
                    attributes.sharing = &sharing;
                }
                builder.addFile(folder, "file " + std::to_string(file), attributes);
            }
        }
    }
    ScanResult result;
    result.root = builder.finish();
    return result;
}

const ScanResult& tree() {
    static const ScanResult result = millionFiles();
    return result;
}

void making(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(FreedSpace(tree()));
}

/// Of files and folders of all levels, so that some lie below others.
void asking(benchmark::State& state) {
    std::vector<const FileNode*> nodes;
    tree().root->forEachDescendant([&](const FileNode& node) {
        nodes.push_back(&node);
        return true;
    });
    std::mt19937_64 random(2);
    std::vector<const FileNode*> marked;
    while (std::ssize(marked) < state.range(0))
        if (const FileNode* node = nodes[random() % nodes.size()]; node->parent() != nullptr)
            marked.push_back(node);
    const FreedSpace freedSpace(tree());
    for (auto _ : state)
        benchmark::DoNotOptimize(freedSpace.of(marked));
}

BENCHMARK(making)->Unit(benchmark::kMillisecond);
BENCHMARK(asking)->Arg(100)->Arg(10'000)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace tarnwell
