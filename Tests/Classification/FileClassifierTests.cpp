#include "TarnwellCore/Classification/FileCategoryMemo.hpp"
#include "TarnwellCore/Classification/FileClassifier.hpp"
#include "TarnwellCore/Classification/FileClassifierTables.hpp"
#include "TarnwellCore/Classification/UTTypeCache.hpp"
#include "TarnwellCore/Platform/TypeDatabase.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace tarnwell::FileClassifier {
namespace {

using enum FileCategory;

// An extension that neither a table nor a type database knows.
constexpr std::string_view unknown = "zzqx";

/// How many names each row has.
std::vector<std::size_t> counts(std::span<const CategoryNames> rows) {
    std::vector<std::size_t> counts;
    for (const CategoryNames& row : rows)
        counts.push_back(row.names.size());
    return counts;
}

TEST(FileClassifierTables, AreComplete) {
    using testing::ElementsAre;
    EXPECT_THAT(counts(extensionCategories), ElementsAre(88, 35, 6, 8, 10, 23, 18, 15, 8, 6, 11, 37, 27, 29));
    EXPECT_THAT(counts(bareNameCategories), ElementsAre(13));
    EXPECT_THAT(counts(componentCategories), ElementsAre(24, 3, 3, 2, 1, 4));
    EXPECT_THAT(counts(folderExtensionCategories), ElementsAre(2, 12, 5, 3, 2, 5, 3, 1, 2, 6));
    EXPECT_THAT(counts(folderNameCategories), ElementsAre(19, 3, 2, 1, 2, 1));
    EXPECT_THAT(counts(pathFragmentCategories), ElementsAre(26, 9, 4, 3, 4, 9));
    EXPECT_EQ(packageExtensions.size(), 45u);
    EXPECT_EQ(systemPathPrefixes.size(), 9u);
}

TEST(FileClassifierTables, EveryNameIsFound) {
    std::map<std::string_view, FileCategory> byExtension;
    std::string twice;
    for (const auto& [category, names] : extensionCategories)
        for (const std::string_view name : names)
            if (!byExtension.insert_or_assign(name, category).second)
                twice += name;
    EXPECT_EQ(twice, "raw");
    for (const auto& [name, category] : byExtension)
        EXPECT_EQ(classifyExtension(name, "x"), category) << name;

    for (const auto& [category, names] : bareNameCategories)
        for (const std::string_view name : names)
            EXPECT_EQ(classifyExtension("", name), category) << name;
    for (const auto& [category, names] : componentCategories)
        for (const std::string_view name : names) {
            EXPECT_EQ(componentCategory(name), category) << name;
            EXPECT_EQ(classifyDirectoryByNameOrExtension(name, ""), category) << name;
        }
    for (const auto& [category, names] : folderExtensionCategories)
        for (const std::string_view name : names) {
            EXPECT_EQ(classifyDirectoryByNameOrExtension("x", name), category) << name;
            EXPECT_EQ(classify("x." + std::string(name), std::nullopt, true), category) << name;
        }
    for (const auto& [category, names] : folderNameCategories)
        for (const std::string_view name : names)
            EXPECT_EQ(classify(name, std::nullopt, true), category) << name;
    for (const std::string_view name : packageExtensions)
        EXPECT_TRUE(isPackageExtension(name)) << name;
}

TEST(FileClassifierTables, NearMissesAreNot) {
    const std::string_view extensions[] = {
        "",
        "mp",
        "mp44",
        "MP4",
        "sparsebundl",
        "sparsebundlE",
        "sparsebundle-backup2",
        "partial.eml",
        "\xFF\xFE",
        unknown,
        std::string_view("mp4\0", 4),
        std::string_view("\0", 1),
        std::string_view("sparseimage\0", 12),
    };
    for (const std::string_view ext : extensions)
        EXPECT_EQ(classifyExtension(ext, "x"), std::nullopt) << ext;
    EXPECT_EQ(classifyExtension(std::string(100'000, 'a'), "x"), std::nullopt);
    EXPECT_EQ(componentCategory("NODE_MODULES"), std::nullopt);
    EXPECT_EQ(componentCategory(""), std::nullopt);
    EXPECT_FALSE(isPackageExtension(""));
    EXPECT_FALSE(isPackageExtension("zip"));
}

TEST(FileClassifier, Packages) {
    EXPECT_TRUE(isPackage("Photos Library.photoslibrary"));
    EXPECT_TRUE(isPackage("Some.APP"));
    EXPECT_TRUE(isPackage(".app"));
    EXPECT_FALSE(isPackage("app"));
    EXPECT_FALSE(isPackage("Some.app."));
    EXPECT_FALSE(isPackage(""));
}

TEST(FileClassifier, Files) {
    const struct {
        std::string_view name;
        std::optional<std::string_view> path;
        FileCategory category;
    } cases[] = {
        {"photo.RAW", {}, images},
        {"Makefile", {}, code},
        {"MAKEFILE", {}, other},
        {"x.zzqx", {}, other},
        {"x.", {}, other},
        {"", {}, other},
        // The path comes before the extension, the extension before the system's places.
        {"x.mp4", "/Users/a/Library/Caches/x.mp4", caches},
        {"libfoo.dylib", "/usr/local/lib/libfoo.dylib", system},
        {"Makefile", "/usr/src/Makefile", code},
        {"readme.md", "/opt/x/readme.md", documents},
        {"x.zzqx", "/opt/x.zzqx", system},
        {"x.zzqx", "/optional/x.zzqx", other},
        // Each list of fragments before the next.
        {"x", "/a/Library/Caches/Parallels/node_modules/x", developer},
        {"x", "/a/MobileSync/Backup/avd/x", virtualMachines},
        {"x", "/a/Library/Mail/Backups.backupdb/x", backups},
        {"x", "/var/log/com.apple.mail/x", mail},
        {"x", "/Library/Logs/.cache/x", logs},
        {"x", "/app/.next/cache/x", developer},
        {"x", "/Library/Containers/com.apple.mail/x", mail},
        {"x", "/Library/Containers/com.utmapp.UTM/x", virtualMachines},
        {"x", "/Library/Containers/com.example/x", caches},
        {"x.zzqx", "node_modules/x.zzqx", other},
        {"x.zzqx", "/a/NODE_MODULES/x.zzqx", other},
    };
    for (const auto& each : cases)
        EXPECT_EQ(classify(each.name, each.path, false), each.category) << each.path.value_or(each.name);
}

TEST(FileClassifier, Folders) {
    const struct {
        std::string_view name;
        std::optional<FileCategory> duringScan;
        FileCategory byName;
    } cases[] = {
        {"Photos Library.photoslibrary", images, images},
        {"MyApp.app", applications, applications},
        {"node_modules", developer, developer},
        {"Projects", {}, folder},
        // In one of the two lists of names only.
        {"Xcode", developer, folder},
        {".git", developer, folder},
        {".bundle", system, system}, // its extension comes before its name
        {"CrashReporter", logs, folder},
        {"MobileSync", backups, folder},
        {"VirtualBox VMs", virtualMachines, folder},
        {"avd", virtualMachines, folder},
        {"vendor", {}, developer},
        {"Developer", {}, developer},
        {"Backup", {}, backups},
        {"Mail", {}, mail},
    };
    for (const auto& each : cases) {
        const std::string_view name = each.name;
        const std::size_t dot = name.rfind('.');
        const std::string_view ext = dot == std::string_view::npos ? "" : name.substr(dot + 1);
        EXPECT_EQ(classifyDirectoryByNameOrExtension(name, ext), each.duringScan) << name;
        EXPECT_EQ(classify(name, std::nullopt, true), each.byName) << name;
    }
}

TEST(FileClassifier, FoldersWithAPath) {
    const struct {
        std::string_view path;
        FileCategory category;
    } cases[] = {
        {"/a/Xcode", folder},
        {"/a/Library/Developer/Xcode", developer},
        {"/a/Library/Developer/Xcode///", developer},
        {"/a/Library/Caches/Some.app", applications}, // the tables come before the path
        {"/a/node_modules/Logs", logs},
        {"/a/node_modules/x", developer},
        {"/usr/lib/x", folder}, // the system's places are for files
        {"/a/avd/", folder},    // a mark, not a part of the path
        {"/", folder},
        {"", folder},
    };
    for (const auto& each : cases)
        EXPECT_EQ(classify(std::filesystem::path(each.path), true), each.category) << each.path;
    EXPECT_EQ(classify(std::filesystem::path("/opt/x/readme.MD"), false), documents);
}

TEST(FileClassifier, TheMostTellingConformanceDecides) {
    const std::pair<TypeConformance::Bit, FileCategory> order[] = {
        {TypeConformance::movie, video},
        {TypeConformance::video, video},
        {TypeConformance::audio, audio},
        {TypeConformance::image, images},
        {TypeConformance::font, fonts},
        {TypeConformance::diskImage, diskImages},
        {TypeConformance::archive, archives},
        {TypeConformance::sourceCode, code},
        {TypeConformance::script, code},
        {TypeConformance::application, applications},
        {TypeConformance::database, databases},
        {TypeConformance::spreadsheet, documents},
        {TypeConformance::presentation, documents},
        {TypeConformance::text, documents},
        {TypeConformance::pdf, documents},
    };
    TypeConformance all;
    for (auto each = std::rbegin(order); each != std::rend(order); ++each) {
        all.insert(each->first);
        EXPECT_EQ(categoryOfType(all), each->second);
    }
    EXPECT_EQ(categoryOfType({}), std::nullopt);
}

TEST(FileClassifier, UnknownToTheTypeDatabase) {
    EXPECT_EQ(classifyByUTType(""), std::nullopt);
    EXPECT_EQ(classifyByUTType(unknown), std::nullopt);
    EXPECT_EQ(utTypeCache().category(unknown), std::nullopt);
}

TEST(FileClassifier, ExtensionsThatSeveralTypesClaim) {
    if (classifyByUTType("kwd") != FileCategory::documents)
        GTEST_SKIP() << "no shared-mime-info database on this machine";
    EXPECT_EQ(classifyByUTType("djv"), FileCategory::images);   // one page or several
    EXPECT_EQ(classifyByUTType("wad"), FileCategory::archives); // more often a game's than a channel's
    EXPECT_EQ(classifyByUTType("3ds"), std::nullopt);           // a scene or a game
}

TEST(FileCategoryMemo, AnswersAsTheClassifierDoes) {
    FileCategoryMemo memo;
    for (int round = 0; round < 2; ++round) // what it found out, and what it remembers
        for (const char* name :
             {"a.c", "FILM.MP4", ".mp4", "mp4", "mp4.", "archive.tar.gz", "a.gz.mp4", "..", "Makefile",
              "a.makefile", "notes.markdown", "seven.torrent", "nine.sparseimage", "\xAE.mp4", "b.zzqx"})
            EXPECT_EQ(memo.category(name), classify(name, std::nullopt, false)) << name;
}

} // namespace
} // namespace tarnwell::FileClassifier
