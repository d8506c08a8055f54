// Cleanup rules over a tree of a million nodes, with few and many rules of all kinds of conditions.

#include "TarnwellCore/Analysis/RuleEvaluator.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <benchmark/benchmark.h>

#include <array>
#include <random>
#include <string>
#include <vector>

namespace tarnwell::benchmarks {
namespace {

constexpr double nowSeconds = 700'000'000;
constexpr double day = 86'400;

/// A home of a million nodes: ten files to a folder, folders at any depth, extensions and dates mixed.
std::shared_ptr<FileNode> makeTree(std::size_t nodeCount) {
    static constexpr std::array extensions{".txt", ".jpg", ".swift", ".o",    ".dmg",
                                           ".zip", "",     ".mp4",   ".json", ".pkg"};
    static constexpr std::array places{"Downloads", "Documents", "Library", "Projects", "Pictures"};
    std::mt19937_64 random(1);
    FileTreeBuilder builder("/Users/someone");
    std::vector<FileNode*> folders;
    for (const char* place : places)
        folders.push_back(&builder.addFolder(builder.root(), place));
    for (std::size_t count = folders.size() + 1; count < nodeCount; ++count) {
        FileNode& parent = *folders[random() % folders.size()];
        const std::string name = "item " + std::to_string(count);
        if (count % 11 == 0) {
            folders.push_back(&builder.addFolder(parent, name));
            continue;
        }
        FileNodeAttributes attributes;
        attributes.size = attributes.allocatedSize = static_cast<std::int64_t>(random() % 10'000'000);
        attributes.modificationSeconds = nowSeconds - static_cast<double>(random() % 1000) * day;
        attributes.accessSeconds = nowSeconds - static_cast<double>(random() % 200) * day;
        attributes.category = static_cast<FileCategory>(random() % fileCategoryCount);
        builder.addFile(parent, name + extensions[random() % extensions.size()], attributes);
    }
    return builder.finish();
}

/// Rules as users write them, over and over with other numbers: most match some per cent of the nodes.
std::vector<CleanupRule> makeRules(std::size_t count) {
    std::vector<CleanupRule> rules;
    for (std::size_t index = 0; index < count; ++index) {
        const auto step = static_cast<std::int64_t>(index);
        CleanupRule rule;
        rule.id = rule.name = std::to_string(index);
        switch (index % 5) {
        case 0:
            rule.locationPrefix = "~/Downloads";
            rule.minimumSize = 9'000'000 + step;
            rule.olderThanDays = 30;
            // Folders are as large as what they hold: without this the rule would end at the first one.
            rule.extensions = {"mp4", "zip"};
            break;
        case 1:
            rule.extensions = {"dmg", "pkg"};
            rule.olderThanDays = 180 + step;
            break;
        case 2:
            rule.categories = {FileCategory::video, FileCategory::archives, FileCategory::logs};
            rule.lastOpenedBeforeDays = 150 + step % 40;
            break;
        case 3:
            rule.olderThanDays = 900 + step % 90;
            rule.lastOpenedBeforeDays = 100;
            break;
        default:
            rule.locationPrefix = "/Users/someone/Projects/item 11";
            rule.extensions = {"o"};
            break;
        }
        rules.push_back(rule);
    }
    return rules;
}

void evaluateRules(benchmark::State& state) {
    static const std::shared_ptr<FileNode> tree = makeTree(1'000'000);
    const auto rules = makeRules(static_cast<std::size_t>(state.range(0)));
    std::size_t nodeCount = 0;
    for (auto _ : state) {
        nodeCount = 0;
        for (const RuleMatch& match :
             RuleEvaluator::evaluate(rules, *tree, dateFromReferenceSeconds(nowSeconds), "/Users/someone"))
            nodeCount += match.nodes.size();
    }
    state.counters["matched"] = static_cast<double>(nodeCount);
}

BENCHMARK(evaluateRules)->Arg(1)->Arg(20)->Arg(200)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace tarnwell::benchmarks
