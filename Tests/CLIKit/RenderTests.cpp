#include "TarnwellCLIKit/CLIRender.hpp"
#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"

#include "Tests/Support/JSONListing.hpp"
#include "Tests/Support/PlainCSV.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

constexpr std::int64_t endless = std::numeric_limits<std::int64_t>::max();

// A listing made the plain way, to compare with.
struct PlainListing {
    SizeMode mode;
    std::optional<std::int64_t> top;

    struct Row {
        const FileNode* node;
        double share;
        std::int64_t depth;
    };

    std::vector<const FileNode*> children(const FileNode& of) const {
        std::vector<const FileNode*> children(of.children().begin(), of.children().end());
        std::sort(children.begin(), children.end(), [&](const FileNode* a, const FileNode* b) {
            return a->sizeFor(mode) != b->sizeFor(mode) ? a->sizeFor(mode) > b->sizeFor(mode)
                                                        : a->name() < b->name();
        });
        if (top && *top < std::ssize(children))
            children.resize(static_cast<std::size_t>(std::max<std::int64_t>(*top, 0)));
        return children;
    }

    double share(const FileNode& node) const {
        const std::int64_t total = node.parent()->sizeFor(mode);
        return total < 1 ? 0 : static_cast<double>(node.sizeFor(mode)) / static_cast<double>(total);
    }

    void addRows(std::vector<Row>& rows, const FileNode& of, std::int64_t depthRemaining,
                 std::int64_t level) const {
        if (depthRemaining < 1)
            return;
        for (const FileNode* child : children(of)) {
            rows.push_back({child, share(*child), level});
            addRows(rows, *child, depthRemaining - 1, level + 1);
        }
    }

    void writeChildren(JSONWriter& json, const FileNode& of, std::int64_t depthRemaining) const {
        json.key("children");
        json.beginArray();
        for (const FileNode* child : depthRemaining < 1 ? std::vector<const FileNode*>() : children(of)) {
            json.beginObject();
            json.key("allocatedSize");
            json.integer(child->allocatedSize);
            if (depthRemaining > 1 && !children(*child).empty())
                writeChildren(json, *child, depthRemaining - 1);
            json.key("isDirectory");
            json.boolean(child->isDirectory());
            json.key("name");
            json.string(child->name());
            json.key("path");
            json.string(child->path());
            json.key("reclaimableSize");
            json.integer(child->reclaimableSize);
            json.key("share");
            json.number(share(*child));
            json.key("size");
            json.integer(child->size);
            json.endObject();
        }
        json.endArray();
    }
};

std::vector<std::vector<std::string>> readCSV(const std::string& document) {
    const auto rows = test::readCSV(document);
    EXPECT_TRUE(rows) << document;
    return rows.value_or(std::vector<std::vector<std::string>>());
}

std::string randomName(std::mt19937& random, int number) {
    static const std::string pieces[] = {"a",      ",",        "\"",       "\n",
                                         "\r",     "\t",       "\\",       "\x1B",
                                         "\xFF",   "\xC3\xA4", "\xE2\x82", "longer-piece.tar",
                                         "\u202E", "\u200D"};
    std::string name;
    for (auto count = random() % 6; count > 0; --count)
        name += pieces[random() % std::size(pieces)];
    return name + std::to_string(number);
}

std::shared_ptr<FileNode> randomTree(unsigned seed, std::string_view rootPath, int count = 300) {
    std::mt19937 random(seed);
    FileTreeBuilder builder(rootPath);
    std::vector<FileNode*> folders{&builder.root()};
    for (int number = 0; number < count; ++number) {
        FileNode& parent = *folders[random() % 3 == 0 ? folders.size() - 1 : random() % folders.size()];
        if (random() % 4 == 0) {
            folders.push_back(&builder.addFolder(parent, randomName(random, number)));
            continue;
        }
        const std::int64_t size =
            random() % 3 == 0 ? 0 : static_cast<std::int64_t>(random()) >> random() % 32;
        builder.addFile(parent, randomName(random, number),
                        {.size = size,
                         .allocatedSize = (size + 4'095) / 4'096 * 4'096,
                         .privateSize = size / 2,
                         .reportsPrivateSize = random() % 2 == 0});
    }
    return builder.finish();
}

/// A document's memory may exceed the text by a tenth or so, beside some bytes that every document has room
/// for.
void expectLittleSlack(const std::string& document) {
    EXPECT_LE(document.capacity(), document.size() * 13 / 10 + 300);
}

/// The rows as human text and as CSV in one style.
void expectRows(const CLIListedScan& scan, const std::vector<PlainListing::Row>& rows, NameStyle style) {
    const auto fields = readCSV(CLIRender::csv(scan, style));
    ASSERT_EQ(fields.size(), rows.size() + 1);
    std::string lines;
    for (std::size_t index = 0; index < rows.size(); ++index) {
        const auto& [node, share, level] = rows[index];
        const std::string name = styled(node->name(), style);
        lines += ByteFormatter::string(node->sizeFor(scan.mode), "0 bytes") + "  " +
                 ByteFormatter::percent(share, 1) + "  " +
                 std::string(static_cast<std::size_t>(level) * 2, ' ') + name + "\n";
        ASSERT_EQ(fields[index + 1],
                  (std::vector<std::string>{name, styled(node->path(), style),
                                            node->isDirectory() ? "true" : "false",
                                            std::to_string(node->size), std::to_string(node->allocatedSize),
                                            std::to_string(node->reclaimableSize), decimalText(share)}));
    }
    lines += ByteFormatter::string(scan.selectedTotal, "0 bytes") + "  total\n";
    ASSERT_EQ(CLIRender::human(scan, style), lines);
}

/// The document in the style for a terminal says the same.
void expectHarmlessJSON(const CLIListedScan& scan, const std::string& document) {
    const std::string shown = CLIRender::json(scan, NameStyle::harmless);
    std::string inOneLine = shown;
    std::erase(inOneLine, '\n');
    EXPECT_TRUE(isHarmless(inOneLine)) << shown;
    const auto expected = test::readJSONListing(document);
    const auto actual = test::readJSONListing(shown);
    ASSERT_TRUE(expected && actual) << shown;
    EXPECT_EQ(actual->sizes, expected->sizes);
}

TEST(CLIRender, EveryFormAgreesWithThePlainWay) {
    unsigned seed = 0;
    for (const std::string rootPath : {"/", "/we,ird \"\xFF", "/data/"})
        for (const SizeMode mode : {SizeMode::apparent, SizeMode::allocated, SizeMode::reclaimable})
            for (const std::int64_t depth : {std::int64_t{-1}, std::int64_t{1}, std::int64_t{3}, endless})
                for (const std::optional<std::int64_t> top :
                     {std::optional<std::int64_t>(), {-3}, {2}, {endless}}) {
                    const auto root = randomTree(++seed, rootPath);
                    const CLIListedScan scan = CLIRender::listedScan(*root, mode, depth, top);
                    const PlainListing plain{.mode = mode, .top = top};

                    std::string children;
                    JSONWriter json(children);
                    json.beginObject();
                    plain.writeChildren(json, *root, depth);
                    const std::string document = CLIRender::json(scan);
                    ASSERT_EQ(document.substr(0, children.size()), children);
                    expectLittleSlack(document);

                    std::vector<PlainListing::Row> rows;
                    plain.addRows(rows, *root, depth, 0);
                    ASSERT_EQ(scan.children.size(), rows.size());
                    for (std::size_t index = 0; index < rows.size(); ++index)
                        ASSERT_EQ(scan.children[index].path(), rows[index].node->path());
                    expectLittleSlack(CLIRender::csv(scan));
                    expectLittleSlack(CLIRender::human(scan));
                    for (const NameStyle style : {NameStyle::verbatim, NameStyle::harmless})
                        ASSERT_NO_FATAL_FAILURE(expectRows(scan, rows, style));
                    expectHarmlessJSON(scan, document);
                }
}

TEST(CLIRender, NodesOfOneSizeAndNameKeepTheirOrder) {
    FileTreeBuilder builder("/data");
    for (int number = 0; number < 60; ++number)
        builder.addFile(builder.root(), number % 3 == 0 ? "b" : "a", {.size = number, .allocatedSize = 8});
    const auto root = builder.finishWithoutAggregation();
    const CLIListedScan scan = CLIRender::listedScan(*root, SizeMode::allocated, 1, 50);
    ASSERT_EQ(scan.children.size(), 50u);
    for (std::size_t index = 1; index < scan.children.size(); ++index) {
        const FileNode& previous = *scan.children[index - 1].node;
        const FileNode& next = *scan.children[index].node;
        EXPECT_TRUE(previous.name() == next.name() ? previous.size < next.size : next.name() == "b")
            << previous.name() << previous.size << " " << next.name() << next.size;
    }
}

TEST(CLIRender, WritesExactlyThis) {
    FileTreeBuilder builder("/data");
    FileNode& folder = builder.addFolder(builder.root(), "photos, \"old\"");
    builder.addFile(folder, "a\nb",
                    {.size = 1, .allocatedSize = 2, .privateSize = 1, .reportsPrivateSize = true});
    builder.addFile(builder.root(), "plain", {.size = 3, .allocatedSize = 6});
    const auto root = builder.finish();
    const CLIListedScan scan = CLIRender::listedScan(*root, SizeMode::allocated, 2, std::nullopt);
    EXPECT_EQ(CLIRender::json(scan), R"({
  "children": [
    {
      "allocatedSize": 6,
      "isDirectory": false,
      "name": "plain",
      "path": "/data/plain",
      "reclaimableSize": 6,
      "share": 0.75,
      "size": 3
    },
    {
      "allocatedSize": 2,
      "children": [
        {
          "allocatedSize": 2,
          "isDirectory": false,
          "name": "a\nb",
          "path": "/data/photos, \"old\"/a\nb",
          "reclaimableSize": 1,
          "share": 1.0,
          "size": 1
        }
      ],
      "isDirectory": true,
      "name": "photos, \"old\"",
      "path": "/data/photos, \"old\"",
      "reclaimableSize": 1,
      "share": 0.25,
      "size": 1
    }
  ],
  "path": "/data",
  "sizeMode": "allocated",
  "total": 8,
  "totalAllocatedSize": 8,
  "totalReclaimableSize": 7,
  "totalSize": 4,
  "version": 1
}
)");
    EXPECT_EQ(CLIRender::csv(scan), "name,path,isDirectory,size,allocatedSize,reclaimableSize,share\n"
                                    "plain,/data/plain,false,3,6,6,0.75\n"
                                    "\"photos, \"\"old\"\"\",\"/data/photos, \"\"old\"\"\",true,1,2,1,0.25\n"
                                    "\"a\nb\",\"/data/photos, \"\"old\"\"/a\nb\",false,1,2,1,1.0\n");
    EXPECT_EQ(CLIRender::human(scan), "6 bytes  75.0%  plain\n"
                                      "2 bytes  25.0%  photos, \"old\"\n"
                                      "2 bytes  100.0%    a\nb\n"
                                      "8 bytes  total\n");
    for (const auto& [mode, total] : {std::pair(SizeMode::apparent, "4"), {SizeMode::reclaimable, "7"}})
        EXPECT_EQ(CLIRender::json(CLIRender::listedScan(*root, mode, 0, std::nullopt)),
                  "{\n  \"children\": [],\n  \"path\": \"/data\",\n  \"sizeMode\": \"" +
                      std::string(rawValue(mode)) + "\",\n  \"total\": " + total +
                      ",\n  \"totalAllocatedSize\": 8,\n  \"totalReclaimableSize\": 7,\n"
                      "  \"totalSize\": 4,\n  \"version\": 1\n}\n");
}

TEST(CLIRender, SharesOfUnusualParents) {
    FileTreeBuilder builder("/data");
    builder.addFile(builder.root(), "big", 70);
    builder.addFile(builder.root(), "a", 0);
    builder.root().size = 35;
    builder.root().allocatedSize = 0;
    const auto root = builder.finishWithoutAggregation();
    EXPECT_EQ(CLIRender::humanListing(*root, SizeMode::apparent, 1, std::nullopt),
              "70 bytes  100.0%  big\n0 bytes  0.0%  a\n35 bytes  total\n");
    EXPECT_NE(CLIRender::csv(CLIRender::listedScan(*root, SizeMode::apparent, 1, 1)).find(",2.0\n"),
              std::string::npos);
    EXPECT_EQ(CLIRender::humanListing(*root, SizeMode::allocated, 1, std::nullopt),
              "70 bytes  0.0%  big\n0 bytes  0.0%  a\n0 bytes  total\n");
}

TEST(CLIRender, ChildrenBelowAnyNodeAtAnyLevel) {
    const auto root = randomTree(2, "/data");
    const auto folder = std::ranges::find_if(
        root->children(), [](const FileNode* node) { return node->children().size() > 3; });
    ASSERT_NE(folder, root->children().end());
    std::vector<PlainListing::Row> rows;
    PlainListing{.mode = SizeMode::allocated, .top = {}}.addRows(rows, **folder, 2, 7);
    const auto listed = CLIRender::children(**folder, SizeMode::allocated, 2, std::nullopt, 7);
    ASSERT_EQ(listed.size(), rows.size());
    for (std::size_t index = 0; index < rows.size(); ++index) {
        EXPECT_EQ(listed[index].node, rows[index].node);
        EXPECT_EQ(listed[index].depth, rows[index].depth);
    }
}

TEST(CLIRender, HugeFoldersAreListedInTheSameOrder) {
    for (const int folders : {0, 3}) {
        FileTreeBuilder builder("/data");
        for (int number = 0; number < 70'000; ++number)
            builder.addFile(builder.root(), "same start " + std::to_string(number * 7919 % 70'001),
                            {.size = number % 1000, .allocatedSize = number % 7 / 5 * 4096});
        for (int number = 0; number < folders; ++number)
            builder.addFile(builder.addFolder(builder.root(), "same start f" + std::to_string(number)),
                            "file", {.allocatedSize = number * 4096});
        const auto root = builder.finish();
        for (const std::int64_t depth : {std::int64_t{1}, endless}) {
            std::vector<PlainListing::Row> rows;
            PlainListing{.mode = SizeMode::allocated, .top = {}}.addRows(rows, *root, depth, 0);
            const auto listed = CLIRender::children(*root, SizeMode::allocated, depth, std::nullopt, 0);
            EXPECT_TRUE(std::ranges::equal(listed, rows, [](const CLIListedNode& a, const auto& b) {
                return a.node == b.node && a.share == b.share && a.depth == b.depth &&
                       a.selected == b.node->allocatedSize;
            })) << folders << " folders, depth " << depth;
        }
    }
}

TEST(CLIRender, ListingsOfEqualTreesAreEqual) {
    const std::shared_ptr<FileNode> trees[] = {randomTree(2, "/data"), randomTree(2, "/data"),
                                               randomTree(2, "/other")};
    const auto listing = [&](std::size_t tree) {
        return CLIRender::listedScan(*trees[tree], SizeMode::allocated, endless, std::nullopt);
    };
    EXPECT_EQ(listing(0), listing(0));
    EXPECT_EQ(listing(0), listing(1));
    EXPECT_NE(listing(0), listing(2));
    EXPECT_NE(listing(0).children.front(), listing(0).children.back());
}

TEST(CLIRender, LongListingsAreWrittenInPiecesOfOneDocument) {
    const auto root = randomTree(99, "/data", 12'000);
    const CLIListedScan scan = CLIRender::listedScan(*root, SizeMode::apparent, endless, std::nullopt);
    const PlainListing plain{.mode = SizeMode::apparent, .top = {}};
    std::string children;
    JSONWriter json(children);
    json.beginObject();
    plain.writeChildren(json, *root, endless);
    ASSERT_TRUE(CLIRender::json(scan).starts_with(children));
    std::vector<PlainListing::Row> rows;
    plain.addRows(rows, *root, endless, 0);
    ASSERT_NO_FATAL_FAILURE(expectRows(scan, rows, NameStyle::verbatim));
    const auto expectSame = [](const std::string& whole, const auto& renderTo) {
        std::string together;
        std::size_t longest = 0;
        const TextSink sink = [&](std::string_view piece) {
            together += piece;
            longest = std::max(longest, piece.size());
        };
        renderTo(sink);
        EXPECT_EQ(together, whole);
        EXPECT_LT(longest, std::size_t{1'100'000});
        // It throws in the middle, where other threads wait for their turn.
        std::size_t taken = 0;
        const TextSink refusing = [&](std::string_view piece) {
            taken += piece.size();
            if (taken > whole.size() / 2)
                throw std::runtime_error("taken away");
        };
        EXPECT_THROW(renderTo(refusing), std::runtime_error);
    };
    expectSame(CLIRender::json(scan), [&](const TextSink& sink) { CLIRender::json(scan, sink); });
    expectSame(CLIRender::csv(scan), [&](const TextSink& sink) { CLIRender::csv(scan, sink); });
    expectSame(CLIRender::human(scan), [&](const TextSink& sink) { CLIRender::human(scan, sink); });
}

} // namespace
} // namespace tarnwell
