#include "TarnwellCore/Snapshots/SnapshotCoding.hpp"

#include "Tests/Support/SampleSnapshots.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tarnwell {
namespace {

using SnapshotCoding::decode;
using SnapshotCoding::encode;

std::string sampleDocument() {
    return test::readFile(TARNWELL_TESTS "/Snapshots/data/sample.json");
}

ScanSnapshot sampleSnapshot() {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    return {
        .id = *UUID::parse("3F2A8C1E-0B4D-4E6F-8A9B-C0D1E2F3A4B5"),
        .createdAt = test::dateAt(1714555800),
        .rootPath = "/Users/alice",
        .totalSize = 47100000001,
        .totalAllocatedSize = 48200003584,
        .totalReclaimableSize = 40100003584,
        .totalFiles = 251342,
        .entries = {{"", 47100000001, 48200003584, 40100003584, 251342, true},
                    {"Pictures/Fotos für Åsa \"2024\"\\\t\x01😀\uFFFD/a", largest, 12000002048, 0, 1, false},
                    {"//strange/", 0, -1, smallest, 0, true}},
        .minimumSize = 1000000};
}

/// The document with a part replaced; the part must be there.
std::string replacing(std::string_view part, std::string_view replacement,
                      std::string document = sampleDocument()) {
    const std::size_t place = document.find(part);
    EXPECT_NE(place, std::string::npos) << part;
    return document.replace(place, part.size(), replacement);
}

/// A source that hands out at most so many bytes at a time.
SnapshotCoding::ByteSource inPieces(std::string_view document, std::size_t length) {
    return [=](std::span<char> piece) mutable {
        const std::size_t count = document.copy(piece.data(), std::min(piece.size(), length));
        document.remove_prefix(count);
        return static_cast<std::ptrdiff_t>(count);
    };
}

TEST(SnapshotCoding, TheStoredSampleIsReadAndWrittenByteForByte) {
    const std::string document = sampleDocument();
    EXPECT_EQ(encode(sampleSnapshot()), document);
    EXPECT_EQ(decode(document), sampleSnapshot());
}

TEST(SnapshotCoding, PiecesMayEndAnywhere) {
    for (std::size_t length = 1; length < 20; ++length)
        EXPECT_EQ(decode(inPieces(sampleDocument(), length)), sampleSnapshot()) << length;
    // Across several of the decoder's own pieces, at every place of a character of four bytes.
    for (std::size_t shift = 0; shift < 8; ++shift) {
        ScanSnapshot snapshot = sampleSnapshot();
        snapshot.rootPath = std::string(shift, 'x');
        for (int index = 0; index < 100'000; ++index)
            snapshot.rootPath += "\U0001F600";
        EXPECT_EQ(decode(encode(snapshot)), snapshot) << shift;
    }
}

TEST(SnapshotCoding, WritesWholeSeconds) {
    ScanSnapshot snapshot = sampleSnapshot();
    snapshot.createdAt += Date::duration(0.75);
    EXPECT_EQ(decode(encode(snapshot)), sampleSnapshot());
    snapshot.createdAt = test::dateAt(1e15);
    EXPECT_THROW(encode(snapshot), std::range_error);
}

TEST(SnapshotCoding, PathsOfAnyBytesAreEscapedAndReadBack) {
    const struct {
        std::string_view path;
        std::string_view stored; // between quotes of JSON
    } cases[] = {
        {"caf\xe9/\xff\xfe", R"(caf\\xE9/\\xFF\\xFE)"},
        {"caf\xe8", R"(caf\\xE8)"},
        {"f\u00fcr \uFFFD \xc3", "f\u00fcr \uFFFD \\\\xC3"},
        // Names that look like escapes, or nearly.
        {"\\xE9", R"(\\x5CxE9)"},
        {"\\x5CxE9", R"(\\x5Cx5CxE9)"},
        {"\\xe9 \\x4 \\ \\\\", R"(\\xe9 \\x4 \\ \\\\)"},
        {"\\\xe9\\x\xe9", R"(\\\\xE9\\x\\xE9)"},
    };
    ScanSnapshot snapshot = sampleSnapshot();
    snapshot.rootPath = "/home/\xe9\\x41";
    for (const auto& each : cases)
        snapshot.entries.push_back({std::string(each.path), 1, 1, 1, 1, false});
    const std::string document = encode(snapshot);
    EXPECT_EQ(decode(document), snapshot);
    EXPECT_EQ(encode(*decode(document)), document);
    for (const auto& each : cases)
        EXPECT_NE(document.find("\"" + std::string(each.stored) + "\""), std::string::npos) << document;
    // Readers that do not know of escapes tell the names apart, too; elsewhere a backslash is a backslash.
    const std::string plain = replacing("/Users", "/\\\\xE9");
    EXPECT_EQ(decode(plain)->rootPath, "/\\xE9/alice");
    EXPECT_EQ(encode(*decode(plain)), plain);
    for (const char* value : {"false", "null", "{\"a\": true}", "1e999", "\"true\""})
        EXPECT_EQ(
            decode(replacing("  \"id\"", std::string("  \"escapedPaths\": ") + value + ",\n  \"id\"", plain)),
            decode(plain))
            << value;
}

TEST(SnapshotCoding, WhatOlderFilesLackIsFilledIn) {
    ScanSnapshot expected = sampleSnapshot();
    expected.totalReclaimableSize = expected.totalAllocatedSize;
    expected.minimumSize = 0;
    expected.entries[0].reclaimableSize = expected.entries[0].allocatedSize;
    std::string missing = replacing("  \"totalReclaimableSize\": 40100003584,\n", "");
    missing = replacing("  \"minimumSize\": 1000000,\n", "", missing);
    missing = replacing("      \"reclaimableSize\": 40100003584,\n", "", missing);
    EXPECT_EQ(decode(missing), expected);
    std::string null = replacing("\"totalReclaimableSize\": 40100003584", "\"totalReclaimableSize\": null");
    null = replacing("\"minimumSize\": 1000000", "\"minimumSize\": null", null);
    null = replacing("\"reclaimableSize\": 40100003584", "\"reclaimableSize\": null", null);
    EXPECT_EQ(decode(null), expected);
}

TEST(SnapshotCoding, WhatIsUnknownOrWrittenOtherwiseChangesNothing) {
    const std::string foreign =
        R"("later": {"id": 1, "entries": [[{"path": null}], 1e300, -0.5, "x"]}, "": [], )"
        R"("numbers": [0e99, 0.00000000001e-2147483639, 1.7976931348623159e308, 1e999, -1E+0999, )" +
        std::string(5000, '8') + R"(.5e-9], "text 1e999 \" 1e999\\": ["1e999", "\\\"1e999"], )";
    for (const std::string& document :
         {replacing("\"createdAt\"", foreign + "\"createdAt\""),
          replacing("\"fileCount\"", foreign + "\"fileCount\""),
          replacing("\"totalSize\": 47100000001", "\"totalSize\": 1, \"totalSize\": 47100000001"),
          replacing("\"entries\": [", "\"entries\": [{\"path\": \"x\", \"size\": 1, \"allocatedSize\": 1, "
                                      "\"fileCount\": 1, \"isDirectory\": true}], \"entries\": ["),
          replacing("3F2A8C1E-0B4D", "3f2a8c1e-0b4D"), replacing("\"/Users", "\"\\/\\u0055sers"),
          replacing("09:30:00Z", "11:30:00+02:00"), replacing("\"fileCount\": 0", "\"fileCount\": -0"),
          " \r\n\t" + sampleDocument() + "\n\n"}) {
        EXPECT_EQ(decode(document), sampleSnapshot()) << document;
        EXPECT_EQ(decode(inPieces(document, 7)), sampleSnapshot()) << document;
    }
}

TEST(SnapshotCoding, AnythingElseIsNoSnapshot) {
    const std::string whole = sampleDocument();
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_EQ(decode(whole.substr(0, length)), std::nullopt) << length;

    enum class Type { identity, date, text, integer, boolean, list, other };
    const struct {
        std::string text;
        Type type;
    } values[] = {{"null", Type::other}, {"{}", Type::other},  {"NaN", Type::other}, {"1e999", Type::other},
                  {"[]", Type::list},    {"\"\"", Type::text}, {"1", Type::integer}, {"true", Type::boolean}};
    const struct {
        std::string key;
        Type type;
    } keys[] = {{"id", Type::identity},        {"createdAt", Type::date},
                {"rootPath", Type::text},      {"totalSize", Type::integer},
                {"totalFiles", Type::integer}, {"totalAllocatedSize", Type::integer},
                {"entries", Type::list},       {"path", Type::text},
                {"size", Type::integer},       {"allocatedSize", Type::integer},
                {"fileCount", Type::integer},  {"isDirectory", Type::boolean}};
    for (const auto& [key, type] : keys) {
        const std::string member = "\"" + key + "\": ";
        EXPECT_EQ(decode(replacing(member, "\"other\": ")), std::nullopt) << key;
        // In front of the right value: of two, each has to be right.
        for (const auto& value : values)
            EXPECT_EQ(decode(replacing(member, member + value.text + ", " + member)).has_value(),
                      value.type == type)
                << key << " " << value.text;
    }
    for (const char* number : {"9223372036854775808", "-9223372036854775809", "1.0", "1e3"})
        EXPECT_EQ(decode(replacing("\"minimumSize\": 1000000", std::string("\"minimumSize\": ") + number)),
                  std::nullopt)
            << number;
    for (const std::string& document :
         {std::string(), std::string("null"), std::string("[]"), "[" + whole + "]", whole + whole,
          whole + '\0', '\0' + whole, replacing("/Users", "/\xff"), replacing("/Users", "/\xed\xa0\x80"),
          replacing("/Users", "\\udc00"), replacing("\"minimumSize\": 1000000", "\"caf\xe9\": 1"),
          replacing("2024-05-01", "2024-05-32"), replacing("3F2A8C1E-", "3F2A8C1E"),
          replacing("    {\n", "    [], {\n"), whole + "\xc3"})
        EXPECT_EQ(decode(document), std::nullopt) << document;
    EXPECT_EQ(decode([&, calls = 0](std::span<char> piece) mutable -> std::ptrdiff_t {
                  return ++calls == 2
                             ? -1
                             : static_cast<std::ptrdiff_t>(whole.copy(piece.data(), whole.size() - 1));
              }),
              std::nullopt);
}

TEST(SnapshotCoding, DepthAndLengthDoNoHarm) {
    // Endless sources: only the bounds end them.
    const auto endless = [](const std::string& start, const std::string& repeated) {
        return decode([=, isFirst = true](std::span<char> piece) mutable {
            if (std::exchange(isFirst, false))
                return static_cast<std::ptrdiff_t>(start.copy(piece.data(), piece.size()));
            std::size_t count = 0;
            while (count + repeated.size() <= piece.size())
                count += repeated.copy(piece.data() + count, repeated.size());
            return static_cast<std::ptrdiff_t>(count);
        });
    };
    EXPECT_EQ(endless("[", "["), std::nullopt);
    EXPECT_EQ(endless("{\"later\": ", "["), std::nullopt);
    EXPECT_EQ(endless("{\"later\": ", "{\"a\":"), std::nullopt);
    EXPECT_EQ(endless("{\"rootPath\": \"", "x"), std::nullopt);
    EXPECT_EQ(endless("{\"", "x"), std::nullopt);
    EXPECT_EQ(endless("{\"later\": ", "1"), std::nullopt);
    EXPECT_EQ(endless("{\"later\": 1e", "1"), std::nullopt);
    EXPECT_EQ(endless("{", " "), std::nullopt);
    const auto nested = [](int depth) {
        return replacing("\"createdAt\"", "\"later\": " + std::string(static_cast<std::size_t>(depth), '[') +
                                              std::string(static_cast<std::size_t>(depth), ']') +
                                              ", \"createdAt\"");
    };
    EXPECT_EQ(decode(nested(500)), sampleSnapshot());
    EXPECT_EQ(decode(nested(1'000'000)), std::nullopt);
}

TEST(SnapshotCoding, DamagedBytesAreReadAsSomethingWholeOrNotAtAll) {
    std::mt19937 random(1);
    const std::string whole = sampleDocument();
    for (int round = 0; round < 20'000; ++round) {
        std::string document = whole;
        for (auto count = random() % 3 + 1; count > 0; --count) {
            const std::size_t place = random() % document.size();
            const std::string other = document.substr(random() % document.size(), random() % 20);
            if (random() % 2 == 0)
                document[place] = static_cast<char>(random());
            else
                document.replace(place, random() % 20, other);
        }
        const std::optional<ScanSnapshot> snapshot = decode(document);
        EXPECT_TRUE(!snapshot || decode(encode(*snapshot)) == snapshot) << document;
    }
}

} // namespace
} // namespace tarnwell
