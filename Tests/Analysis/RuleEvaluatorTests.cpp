#include "TarnwellCore/Analysis/RuleEvaluator.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace tarnwell {
namespace {

using testing::ElementsAre;

constexpr double nowSeconds = 700'000'000.25;
const Date now = dateFromReferenceSeconds(nowSeconds);
constexpr double day = 86'400;
constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
constexpr auto largest = std::numeric_limits<std::int64_t>::max();

CleanupRule makeRule(std::string id) {
    CleanupRule rule;
    rule.name = rule.id = std::move(id);
    return rule;
}

std::vector<std::string> matchedPaths(const CleanupRule& rule, const FileNode& root,
                                      std::string_view home = "/home/u") {
    std::vector<std::string> paths;
    for (const RuleMatch& match : RuleEvaluator::evaluate({rule}, root, now, home))
        for (const FileNode* node : match.nodes)
            paths.push_back(node->path());
    return paths;
}

// --- The definition, in the plainest way: whole paths, one rule after the other ---------------------------

bool oracleMatches(const CleanupRule& rule, const FileNode& node, const std::string& home) {
    if (rule.locationPrefix) {
        std::string prefix = *rule.locationPrefix;
        if (prefix.starts_with("~/"))
            prefix = home + "/" + prefix.substr(2);
        while (prefix.size() >= 2 && prefix.back() == '/')
            prefix.pop_back();
        const std::string path = node.path();
        if (prefix != "/" && path != prefix && !path.starts_with(prefix + "/"))
            return false;
    }
    if (!rule.categories.empty() &&
        std::ranges::find(rule.categories, node.category) == rule.categories.end())
        return false;
    if (!rule.extensions.empty() &&
        std::ranges::find(rule.extensions, PathUtil::fileExtension(node.name())) == rule.extensions.end())
        return false;
    if (rule.minimumSize && node.size < *rule.minimumSize)
        return false;
    const auto isOlder = [](double time, std::int64_t days) {
        return time != FileNode::missingTime && nowSeconds - time > static_cast<double>(days) * day;
    };
    return (!rule.olderThanDays || isOlder(node.modificationSeconds, *rule.olderThanDays)) &&
           (!rule.lastOpenedBeforeDays || isOlder(node.accessSeconds, *rule.lastOpenedBeforeDays));
}

std::vector<RuleMatch> oracle(const std::vector<CleanupRule>& rules, const FileNode& root,
                              const std::string& home) {
    std::vector<RuleMatch> results;
    for (const CleanupRule& rule : rules) {
        RuleMatch match{.rule = rule};
        std::vector<const FileNode*> pending{&root};
        while (rule.isEnabled && !pending.empty()) {
            const FileNode* node = pending.back();
            pending.pop_back();
            if (oracleMatches(rule, *node, home)) {
                match.nodes.push_back(node);
                match.totalSize += node->size;
                match.reclaimableSize += node->reclaimableSize;
                ++match.itemCount;
                continue;
            }
            pending.insert(pending.end(), node->children().rbegin(), node->children().rend());
        }
        if (!match.nodes.empty())
            results.push_back(std::move(match));
    }
    return results;
}

class RandomCase {
public:
    explicit RandomCase(std::uint64_t seed) : random_(seed) {}

    template <class Values>
    const auto& pick(const Values& values) {
        return *(std::begin(values) + static_cast<std::ptrdiff_t>(random_() % std::size(values)));
    }

    std::shared_ptr<FileNode> tree(const std::string& rootPath) {
        FileTreeBuilder builder(rootPath);
        std::vector<FileNode*> folders{&builder.root()};
        for (int count = static_cast<int>(random_() % 300); count > 0; --count) {
            FileNode& parent = *pick(folders);
            FileNodeAttributes made;
            made.size = static_cast<std::int64_t>(random_() % 1000);
            made.allocatedSize = 2 * made.size;
            made.modificationSeconds = time();
            made.accessSeconds = time();
            made.category = static_cast<FileCategory>(random_() % fileCategoryCount);
            if (random_() % 3 == 0)
                folders.push_back(&builder.addFolder(parent, name(), made));
            else
                builder.addFile(parent, name(), made);
        }
        return random_() % 2 == 0 ? builder.finish() : builder.finishWithoutAggregation();
    }

    std::vector<CleanupRule> rules(std::size_t count) {
        std::vector<CleanupRule> made;
        while (made.size() < count)
            made.push_back(rule(made.size()));
        return made;
    }

private:
    // Few, short names that begin like one another, so that prefixes meet them often. No scan finds a "/" in
    // a name, a tree made by hand may.
    std::string name() {
        static const char* const names[] = {"a",  "b",  "ab",   "a.X", "b.x", "a.yy",
                                            ".x", "b.", "\xFF", "yy",  "a/b"};
        return pick(names);
    }

    double time() {
        const double times[] = {FileNode::missingTime,
                                std::nan(""),
                                std::numeric_limits<double>::infinity(),
                                nowSeconds,
                                nowSeconds - day,
                                nowSeconds - day - 1,
                                nowSeconds - 40 * day,
                                nowSeconds + 3 * day};
        return pick(times);
    }

    CleanupRule rule(std::size_t index) {
        CleanupRule made = makeRule(std::to_string(index));
        made.isEnabled = random_() % 8 != 0;
        if (random_() % 3 != 0) {
            static const char* const starts[] = {"/",   "",        "~/",    "//", "a", "/a",
                                                 "/ab", "/home/u", "/home", "~",  "."};
            std::string location = pick(starts);
            for (auto length = random_() % 4; length > 0; --length)
                location += (location.ends_with('/') ? "" : "/") + name();
            made.locationPrefix = location + (random_() % 4 == 0 ? "/" : "");
        }
        if (random_() % 3 == 0)
            for (auto length = random_() % 12; length > 0; --length)
                made.categories.push_back(static_cast<FileCategory>(random_() % fileCategoryCount));
        static const char* const extensions[] = {"x", "X", "yy", "", "xyz", "\xFF"};
        if (random_() % 3 == 0)
            for (auto length = random_() % 3; length > 0; --length)
                made.extensions.emplace_back(pick(extensions));
        static constexpr std::int64_t sizes[] = {smallest, -1, 0, 300, 900, 3000, largest};
        if (random_() % 2 == 0)
            made.minimumSize = pick(sizes);
        static constexpr std::int64_t days[] = {smallest, -2, 0, 1, 30, largest};
        if (random_() % 3 == 0)
            made.olderThanDays = pick(days);
        if (random_() % 3 == 0)
            made.lastOpenedBeforeDays = pick(days);
        return made;
    }

    std::mt19937_64 random_;
};

TEST(RuleEvaluator, AgreesWithTheDefinitionOnRandomTrees) {
    static const char* const roots[] = {"/",         "/a", "/a/", "/a/b",  "/home/u",
                                        "/home/u/a", "a",  "",    "/home", "."};
    static constexpr std::size_t counts[] = {1, 3, 20, 64, 65, 200};
    std::size_t matchCount = 0;
    for (std::uint64_t seed = 1; seed <= 400; ++seed) {
        RandomCase random(seed);
        const auto tree = random.tree(random.pick(roots));
        const auto rules = random.rules(random.pick(counts));
        const FileNode* root = tree.get();
        if (seed % 5 == 0 && !root->children().empty())
            root = root->children().front(); // a walk may start anywhere
        const auto expected = oracle(rules, *root, "/home/u");
        const auto found = RuleEvaluator::evaluate(rules, *root, now, "/home/u");
        ASSERT_EQ(found.size(), expected.size()) << "seed " << seed;
        for (std::size_t index = 0; index < found.size(); ++index)
            ASSERT_EQ(found[index], expected[index])
                << "seed " << seed << ", rule at " << found[index].rule.locationPrefix.value_or("anywhere");
        matchCount += found.size();
    }
    EXPECT_GT(matchCount, 5000u); // the cases are no empty ones
}

TEST(RuleEvaluator, LocationsAreComparedByWholeComponents) {
    FileTreeBuilder builder("/home/u");
    FileNode& downloads = builder.addFolder(builder.root(), "Downloads");
    builder.addFile(downloads, "file", 1);
    builder.addFile(builder.addFolder(builder.root(), "Downloads2"), "file", 1);
    builder.addFile(builder.addFolder(builder.root(), "Down"), "oads", 1);
    const auto root = builder.finish();

    const struct {
        const char* location;
        std::vector<std::string> paths;
    } cases[] = {
        {"~/Downloads/", {"/home/u/Downloads"}},
        {"~//Downloads", {"/home/u/Downloads"}},
        {"/home/u/Downloads/file", {"/home/u/Downloads/file"}},
        {"/home/u/Down", {"/home/u/Down"}},
        {"/home/u/Do", {}},
        {"/home/u/Downloads/file/deeper", {}},
        {"/home", {"/home/u"}},
        {"~/", {"/home/u"}},
        {"~", {}},
        {"/", {"/home/u"}},
        {"", {"/home/u"}},
        {"/home/u2", {}},
        {"Downloads", {}},
    };
    for (const auto& each : cases) {
        CleanupRule rule = makeRule("r");
        rule.locationPrefix = each.location;
        EXPECT_EQ(matchedPaths(rule, *root), each.paths) << each.location;
        EXPECT_EQ(matchedPaths(rule, *root, "/home/u/"), each.paths) << each.location;
    }
}

TEST(RuleEvaluator, DeepTreesNeedNoStack) {
    FileTreeBuilder builder("/r");
    FileNode* folder = &builder.root();
    CleanupRule rule = makeRule("r");
    rule.locationPrefix = "/r";
    rule.extensions = {"bin"};
    for (int level = 0; level < 20'000; ++level) {
        folder = &builder.addFolder(*folder, "d");
        *rule.locationPrefix += "/d";
    }
    builder.addFile(*folder, "deep.bin", 10);
    const auto root = builder.finish();
    EXPECT_THAT(matchedPaths(rule, *root), ElementsAre(*rule.locationPrefix + "/deep.bin"));
}

TEST(RuleEvaluator, CanBeCancelled) {
    FileTreeBuilder builder("/r");
    for (int index = 0; index < 10'000; ++index)
        builder.addFile(builder.root(), "f" + std::to_string(index), 1);
    const auto root = builder.finish();
    const CancellationToken token;
    token.cancel();
    CleanupRule rule = makeRule("r");
    rule.minimumSize = largest;
    EXPECT_THROW(RuleEvaluator::evaluate({rule}, *root, now, "/home/u", token), ScanError);
}

TEST(RuleEvaluatorDeathTest, SumsBeyond64BitsAreFatal) {
    FileTreeBuilder builder("/r");
    builder.addFile(builder.root(), "a.x", largest);
    builder.addFile(builder.root(), "b.x", 1);
    const auto root = builder.finishWithoutAggregation();
    CleanupRule rule = makeRule("r");
    rule.extensions = {"x"};
    EXPECT_DEATH(RuleEvaluator::evaluate({rule}, *root, now, "/home/u"), "fatal error");
}

} // namespace
} // namespace tarnwell
