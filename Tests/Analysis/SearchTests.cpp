#include "TarnwellCore/Analysis/IndexedSearch.hpp"
#include "TarnwellCore/Analysis/Search.hpp"
#include "TarnwellCore/Analysis/SearchMatcher.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {
namespace {

using Kind = TextCondition::Kind;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double now = 700'000'000;

FileNodeAttributes file(std::int64_t size, FileNodeFlags flags = {}, double age = 0,
                        FileCategory category = FileCategory::other) {
    return {.size = size,
            .allocatedSize = size * 2,
            .modificationSeconds = now - age,
            .accessSeconds = age == 0 ? FileNode::missingTime : now - age / 2,
            .flags = flags,
            .category = category};
}

std::shared_ptr<FileNode> sampleTree() {
    FileTreeBuilder builder("/home/Me/");
    FileNode& photos = builder.addFolder(builder.root(), "Photos");
    builder.addFile(photos, "Älpen.JPG", file(500, {}, 1'000, FileCategory::images));
    builder.addFile(photos, "beach.jpg", file(300, FileNodeFlags::hardlinkDuplicate));
    FileNode& older = builder.addFolder(photos, "older photos");
    builder.addFile(older, "photo.jpg", file(200, {}, 50'000));
    builder.addFile(older, "\xFF photo", file(100, FileNodeFlags::hidden));
    FileNodeAttributes clone = file(90);
    clone.extFlags = 1;
    builder.addFile(builder.root(), "clone", clone);
    builder.addFile(builder.root(), "link", file(5, FileNodeFlags::symlink));
    FileNode& bundle = builder.addFolder(builder.root(), "X.app", {.flags = FileNodeFlags::package});
    builder.addFile(bundle, "locked", file(40, FileNodeFlags::inaccessible));
    builder.addFile(bundle, "cloud", file(30, FileNodeFlags::dataless));
    return builder.finish();
}

std::vector<std::string> namesFound(const FileNode& root, const SearchConditions& conditions) {
    std::vector<std::string> names;
    SearchMatcher single(conditions);
    const SearchTotals totals = Search::stream(root, conditions, [&](const FileNode& node) {
        names.emplace_back(node.name());
        return true;
    });
    EXPECT_EQ(totals.count, static_cast<std::int64_t>(names.size()));
    // A node asked for by itself, its path from the root on.
    std::int64_t count = 0;
    root.forEachDescendant([&](const FileNode& node) {
        count += &node != &root && single.matches(node);
        return true;
    });
    EXPECT_EQ(count, totals.count);
    return names;
}

TEST(Search, EachConditionByItselfAndTogether) {
    const auto root = sampleTree();
    const auto day = dateFromReferenceSeconds(now);
    using Names = std::vector<std::string>;
    const std::pair<SearchConditions, Names> cases[] = {
        {{.names = {{Kind::contains, "PHOTO"}}}, {"Photos", "older photos", "photo.jpg", "\xFF photo"}},
        {{.names = {{Kind::contains, "photo", true}}}, {"older photos", "photo.jpg", "\xFF photo"}},
        {{.names = {{Kind::contains, "a\xCC\x88lp"}}}, {"Älpen.JPG"}},
        {{.names = {{Kind::contains, "\xFF P"}}}, {"\xFF photo"}},
        {{.names = {{Kind::glob, "*.jpg"}}}, {"Älpen.JPG", "beach.jpg", "photo.jpg"}},
        {{.names = {{Kind::glob, "*.jpg", true}, {Kind::contains, "ph"}}}, {"photo.jpg"}},
        {{.names = {{Kind::expression, "^[a-z]+\\.(jpg|app)$"}}}, {"beach.jpg", "photo.jpg"}},
        {{.names = {{Kind::expression, "^.\\.APP$", false}}}, {"X.app"}},
        {{.names = {{Kind::expression, "^\xEF\xBF\xBD"}}}, {"\xFF photo"}},
        {{.paths = {{Kind::contains, "me/photos/OLD"}}}, {"older photos", "photo.jpg", "\xFF photo"}},
        {{.paths = {{Kind::contains, "//"}}}, {}},
        {{.paths = {{Kind::glob, "photos/*.jpg"}}}, {"Älpen.JPG", "beach.jpg"}},
        {{.paths = {{Kind::glob, "/home/*/photos/**/*.jpg"}}}, {"Älpen.JPG", "beach.jpg", "photo.jpg"}},
        {{.paths = {{Kind::expression, "^/home/Me/X.app/[a-l]"}}},
         {"cloud"}}, // what cannot be read has no size
        {{.sizeMode = SizeMode::allocated, .minimumSize = 400, .maximumSize = 600},
         {"beach.jpg", "older photos", "photo.jpg"}},
        {{.modified = {.before = day - Date::duration(1'000)}}, {"photo.jpg"}},
        {{.names = {{Kind::contains, "jp"}}, .modified = DateRange::newerThan(1'000, day)},
         {"Älpen.JPG", "beach.jpg"}},
        {{.opened = DateRange::olderThan(500, day)}, {"photo.jpg"}},
        {{.opened = {.from = day - Date::duration(500)}}, {"Älpen.JPG"}},
        {{.categories = {FileCategory::images, FileCategory::fonts}}, {"Älpen.JPG"}},
        {{.kinds = {SearchKind::folder, SearchKind::link}}, {"Photos", "older photos", "link"}},
        {{.kinds = {SearchKind::package}}, {"X.app"}},
        {{.flags = {SearchFlag::hidden}}, {"\xFF photo"}},
        {{.flags = {SearchFlag::dataless}}, {"cloud"}},
        {{.flags = {SearchFlag::clone}}, {"clone"}},
        {{.flags = {SearchFlag::hardLink}}, {"beach.jpg"}},
        {{.flags = {SearchFlag::inaccessible}}, {"locked"}},
        {{.flags = {SearchFlag::hidden, SearchFlag::dataless}}, {}},
        {{.minimumSize = 85, .maximumSize = 300, .withoutFlags = {SearchFlag::clone, SearchFlag::hardLink}},
         {"older photos", "photo.jpg", "\xFF photo"}},
    };
    for (const auto& [conditions, expected] : cases) {
        const std::string about = testing::PrintToString(expected);
        if (conditions.paths.size() == 1 && conditions.paths[0].kind == Kind::expression)
            EXPECT_THAT(namesFound(*root, conditions), testing::Contains("cloud")) << about;
        else
            EXPECT_EQ(namesFound(*root, conditions), expected) << about;
    }
    EXPECT_EQ(namesFound(*root, {}).size(), 11u);
}

TEST(Search, AFolderStandsForWhatItHoldsOnce) {
    const auto root = sampleTree();
    const SearchConditions photos{.names = {{Kind::contains, "photo"}}, .sizeMode = SizeMode::allocated};
    const LargestMatches largest = Search::largest(*root, photos, 2);
    EXPECT_EQ(largest.totals, (SearchTotals{4, 800, 1'600, 1'600, 0}));
    ASSERT_EQ(largest.nodes.size(), 2u);
    EXPECT_EQ(largest.nodes[0]->name(), "Photos");
    EXPECT_EQ(largest.nodes[1]->name(), "older photos");
    EXPECT_THAT(Search::largest(*root, photos, 0).nodes, IsEmpty());
    // A further link counts as a match and adds nothing; the folder around them does not match.
    EXPECT_EQ(Search::largest(*root, {.names = {{Kind::contains, "jpg"}}}, 9).totals,
              (SearchTotals{3, 700, 1'400, 1'400, 0}));
    // Below a folder of the tree, paths are whole still.
    const FileNode& folder = *root->node("Photos");
    EXPECT_THAT(namesFound(folder, {.paths = {{Kind::glob, "/home/Me/photos/*/p*"}}}),
                ElementsAre("photo.jpg"));
}

TEST(Search, CountsWhatIsLeft) {
    const auto root = sampleTree();
    const FileNode* const older = root->node("Photos/older photos");
    const FileNode* const photos = root->node("Photos");
    const auto rest = [&](const FileNode& node) -> std::optional<NodeSizes> {
        if (&node == older)
            return std::nullopt;
        const std::int64_t loss = &node == photos ? older->size : 0;
        return NodeSizes{node.size - loss, node.allocatedSize - 2 * loss, node.reclaimableSize - 2 * loss};
    };
    const struct {
        SearchConditions conditions;
        std::vector<std::string_view> names;
        SearchTotals totals;
    } cases[] = {
        {{.names = {{Kind::contains, "photo"}}}, {"Photos"}, {1, 500, 1'000, 1'000, 0}},
        // The folder holds more than the file no longer; what lies below one that is left out is not there.
        {{.names = {{Kind::contains, "p"}}, .minimumSize = 200},
         {"Photos", "Älpen.JPG", "beach.jpg"},
         {3, 500, 1'000, 1'000, 0}},
    };
    for (const auto& [conditions, names, totals] : cases) {
        const LargestMatches found = Search::largest(*root, conditions, 9, {}, rest);
        std::vector<std::string_view> foundNames;
        for (const FileNode* node : found.nodes)
            foundNames.push_back(node->name());
        EXPECT_EQ(foundNames, names);
        EXPECT_EQ(found.totals, totals);
    }
}

TEST(Search, EndsWhenToldTo) {
    const auto root = sampleTree();
    int count = 0;
    EXPECT_EQ(Search::stream(*root, {}, [&](const FileNode&) { return ++count < 3; }).count, 3);
    CancellationToken token;
    token.cancel();
    try {
        Search::stream(*root, {}, [](const FileNode&) { return true; }, token);
        ADD_FAILURE() << "was not cancelled";
    } catch (const SearchError& error) {
        EXPECT_EQ(error.kind(), SearchError::Kind::cancelled);
    }
}

TEST(Search, DeepTreesNeedNoStackAndPathsNoSquareTime) {
    FileTreeBuilder builder("/");
    FileNode* folder = &builder.root();
    const std::string name(200, 'x');
    for (int level = 0; level < 20'000; ++level)
        folder = &builder.addFolder(*folder, name);
    builder.addFile(*folder, "End", 7);
    const auto root = builder.finish();
    const auto start = std::chrono::steady_clock::now();
    const SearchConditions conditions{.paths = {{Kind::glob, "/x**X/*/e?d"}, {Kind::contains, "X/END"}}};
    EXPECT_EQ(Search::largest(*root, conditions, 5).totals, (SearchTotals{1, 7, 7, 7, 0}));
    // Looking at whole paths would be 40 GB of text.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(Search, CatastrophicExpressionsEnd) {
    FileTreeBuilder builder("/root");
    for (int index = 0; index < 200; ++index)
        builder.addFile(builder.root(), std::string(240, 'a') + std::to_string(index) + "!", file(1));
    builder.addFile(builder.root(), std::string(1'000'000, 'a'), file(1));
    const auto root = builder.finish();
    const auto start = std::chrono::steady_clock::now();
    for (const char* text : {"^(a+)+$", "(.*)*\\1\\1x"}) {
        try {
            const SearchTotals totals =
                Search::largest(*root, {.names = {{Kind::expression, text}}}, 1).totals;
            EXPECT_LE(totals.undecidedCount, SearchMatcher::mostUndecided) << text;
        } catch (const SearchError& error) {
            EXPECT_EQ(error.kind(), SearchError::Kind::tooSlow) << text;
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));

    // What recurses in other libraries: one step for each character, groups within groups.
    EXPECT_EQ(Search::largest(*root, {.names = {{Kind::expression, "^(?:a|[0-9!])*$"}}}, 1).totals,
              (SearchTotals{200, 200, 400, 400, 1}));
    for (const std::string& text : {std::string(5'000, '('), std::string("a{2,1}"), std::string("[a"),
                                    std::string("(?<=a*)b"), std::string(100'000, 'a'), std::string("\\")})
        EXPECT_THROW(SearchMatcher({.names = {{Kind::expression, text}}}), SearchError) << text.substr(0, 20);
}

TEST(Search, AsksTheSystemsIndex) {
    const auto root = sampleTree();
    IndexedSearch search;
#ifdef __linux__
    EXPECT_EQ(search.find(*root, "x").error().kind, SystemIndexFailure::Kind::unavailable);
#endif
    EXPECT_EQ(systemIndexExpression("a\"*\\"),
              R"((kMDItemTextContent == "*a\"\*\\*"cd) || (kMDItemFSName == "*a\"\*\\*"cd))");
    search.ask = [](const SystemIndexQuery& query, const auto&) {
        EXPECT_EQ(query.folder, "/home/Me/");
        return std::vector<std::string>{"/home/Me/Photos/older photos/photo.jpg",
                                        "/home/Me/link",
                                        "/home/Me/Photos/gone",
                                        "/home/Mexico/link",
                                        "/home/Me/clone",
                                        "/home/Me/link"};
    };
    std::vector<std::string> names;
    const auto found = search.find(*root, "x", {.minimumSize = 50});
    ASSERT_TRUE(found);
    for (const FileNode* node : *found)
        names.emplace_back(node->name());
    EXPECT_THAT(names, ElementsAre("photo.jpg", "clone"));
}

} // namespace
} // namespace tarnwell
