// Pictures as documents and, where there is a browser, as a reader sees them.

#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellTidyKit/Pictures/Picture.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace tarnwell {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr PictureKind allKinds[] = {PictureKind::treemap, PictureKind::sunburst, PictureKind::icicle,
                                    PictureKind::bars};

/// Names that would be markup, script or orders to whoever reads them.
std::shared_ptr<FileNode> hostileTree() {
    FileTreeBuilder builder("/<svg onload=alert(1)>");
    const std::string_view names[] = {
        "<script>document.title='taken'</script>",
        "</title></svg></style><script>document.title='taken'</script>",
        "\" onload=\"document.title='taken'",
        "' onclick='document.title=1",
        "]]><![CDATA[",
        "<!-- -- >",
        "&lt;script&gt;&#60;",
        "javascript:document.title='taken'",
        "control\x01\x1B[2J\x7F\r\n\t",
        "\xC2\x85 turned \xE2\x80\xAEtxt.exe",
        "\xFF\xFE \xC0\xAF \xED\xA0\x80 \xEF\xBF\xBF \xEF\xBF\xBE",
        "漢字 🍉 e\xCC\x81",
        "#v3",
        " ",
    };
    for (const std::string_view name : names) {
        FileNode& folder = builder.addFolder(builder.root(), name);
        FileNode& inner = builder.addFolder(folder, std::string(200, 'W') + "é<");
        builder.addFile(inner, name,
                        {.size = 20'000, .allocatedSize = 20'480, .category = FileCategory::images});
        builder.addFile(folder, "b&b",
                        {.size = 9'000, .allocatedSize = 12'288, .category = FileCategory::code});
    }
    FileNode* chain = &builder.root();
    for (int level = 0; level < 3'000; ++level)
        chain = &builder.addFolder(*chain, std::string(100, '<'));
    builder.addFile(*chain, "end", 90'000);
    return builder.finish();
}

/// What follows each occurrence of `start`, up to `end`.
std::multiset<std::string> between(std::string_view text, std::string_view start, char end) {
    std::multiset<std::string> found;
    for (std::size_t at = text.find(start); at != text.npos; at = text.find(start, at + 1))
        found.emplace(text.substr(at + start.size(), text.find(end, at + start.size()) - at - start.size()));
    return found;
}

TEST(Pictures, NamesStayNamesAndLinksLeadToViews) {
    const auto root = hostileTree();
    for (const PictureKind kind : allKinds) {
        SCOPED_TRACE(rawValue(kind));
        const PictureRequest request{.folder = root.get(), .kind = kind, .levels = 4, .viewCount = 40};
        const std::string picture = drawSVG(request);
        const std::string page = drawHTML(request);
        EXPECT_EQ(drawSVG(request), picture);
        EXPECT_LT(page.size(), 20'000'000u); // whatever the paths' lengths
        for (const std::string& text : {picture, page}) {
            EXPECT_TRUE(std::ranges::none_of(
                text, [](unsigned char byte) { return (byte < 0x20 && byte != '\n') || byte == 0x7F; }));
            EXPECT_THAT(text, Not(HasSubstr("<script")));
            EXPECT_THAT(text, Not(HasSubstr(" onload=\"")));
            EXPECT_THAT(text, Not(HasSubstr("\xE2\x80\xAE")));
            const auto ids = between(text, " id=\"", '"');
            const auto links = between(text, "href=\"", '"');
            EXPECT_EQ(ids.size(), 40u);
            EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()).size(), 40u);
            for (const std::string& link : links)
                EXPECT_TRUE(link.starts_with('#') && ids.contains(link.substr(1))) << link;
            // Each view but the first can be come to.
            for (const std::string& id : ids)
                EXPECT_TRUE(links.contains("#" + id) || id == "v0") << id;
        }
        EXPECT_THAT(page, HasSubstr("Content-Security-Policy\" content=\"default-src 'none';"));
        const test::TemporaryFolder folder;
        if (const auto result =
                Shell::run("/usr/bin/xmllint",
                           {"--noout", "--nonet", "--huge", folder.writeFile("p.svg", picture)}, 60)) {
            EXPECT_EQ(result->exitCode, 0) << result->standardError.substr(0, 500);
        }
        EXPECT_EQ(between(drawSVG({.folder = root.get(), .kind = kind, .viewCount = 1}), "<a ", '>').size(),
                  0u);
    }
}

TEST(Pictures, WhatIsShownAndWhatIsLeftOut) {
    FileTreeBuilder builder("/home/me");
    FileNode& films = builder.addFolder(builder.root(), "Films");
    builder.addFile(films, "one.mov", {.size = 700'000, .allocatedSize = 1, .category = FileCategory::video});
    builder.addFile(
        films, "again.mov",
        {.size = 700'000, .flags = FileNodeFlags::hardlinkDuplicate, .category = FileCategory::video});
    FileNode& gone =
        builder.addFile(builder.root(), "gone.zip", {.size = 200'000, .category = FileCategory::archives});
    builder.addFile(builder.root(), "letter.txt", {.size = 100'000, .category = FileCategory::documents});
    const auto root = builder.finish();
    RemovedNodes removed;
    removed.insert(gone);
    for (const PictureKind kind : allKinds) {
        SCOPED_TRACE(rawValue(kind));
        const std::string picture = drawSVG(
            {.folder = root.get(), .kind = kind, .sizeMode = SizeMode::apparent, .removed = &removed});
        EXPECT_THAT(picture,
                    HasSubstr("<title>/home/me/letter.txt\n100 KB (100000 bytes), 10.0%\nDocuments</title>"));
        EXPECT_THAT(
            picture,
            HasSubstr("<title>/home/me/Films\n700 KB (700000 bytes), 70.0%\n2 files, mostly Video</title>"));
        EXPECT_THAT(picture, HasSubstr("class=\"item c0\"")); // the film, or the folder that is mostly film
        EXPECT_THAT(picture, Not(HasSubstr("again.mov")));
        EXPECT_THAT(picture, Not(HasSubstr("gone.zip")));
    }
    FileTreeBuilder nothing("/empty");
    const auto empty = nothing.finish();
    for (const PictureKind kind : allKinds)
        EXPECT_THAT(drawHTML({.folder = empty.get(), .kind = kind}),
                    HasSubstr("0 bytes allocated, 0 files, 0 folders"));
}

/// The first browser there is; empty when there is none.
std::string browser() {
    for (const char* path : {"/usr/bin/chromium", "/usr/bin/chromium-browser", "/usr/bin/google-chrome",
                             "/Applications/Chromium.app/Contents/MacOS/Chromium"})
        if (::access(path, X_OK) == 0)
            return path;
    return {};
}

/// A home that looks like one, the same on every machine.
std::shared_ptr<FileNode> exampleTree() {
    using enum FileCategory;
    const struct {
        std::string_view folder;
        std::string_view inner;
        std::string_view file;
        std::int64_t megabytes;
        FileCategory category;
    } items[] = {
        {"Films", "2024", "Holiday", 4'100, video},
        {"Films", "2023", "Concert", 3'300, video},
        {"Pictures", "2024", "IMG", 2'100, images},
        {"Pictures", "Scans", "Page", 900, documents},
        {"Music", "Albums", "Track", 1'700, audio},
        {"Projects", "atlas", "object", 1'400, developer},
        {"Projects", "lamp", "main", 400, code},
        {"Downloads", "Images", "system", 2'600, diskImages},
        {"Downloads", "Archives", "backup", 1'900, archives},
        {"Library", "Caches", "data", 1'600, caches},
        {"Library", "Mail", "box", 700, mail},
        {"Machines", "test", "disk", 3'000, virtualMachines},
    };
    FileTreeBuilder builder("/home/alice");
    std::map<std::string_view, FileNode*> folders;
    for (const auto& item : items) {
        FileNode*& folder = folders[item.folder];
        if (folder == nullptr)
            folder = &builder.addFolder(builder.root(), item.folder);
        FileNode& inner = builder.addFolder(*folder, item.inner);
        std::int64_t rest = item.megabytes * 1'000'000;
        for (int number = 1; number <= 30; ++number) {
            const std::int64_t size = rest / 4; // each takes a quarter of what is left
            rest -= size;
            builder.addFile(inner, std::string(item.file) + " " + std::to_string(number),
                            {.size = size, .allocatedSize = size, .category = item.category});
        }
    }
    return builder.finish();
}

/// In the folder that TARNWELL_SCREENSHOTS names, pictures of an example stay, for the front page.
TEST(Pictures, InABrowser) {
    const std::string program = browser();
    if (program.empty())
        GTEST_SKIP() << "no Chromium here";
    const test::TemporaryFolder folder;
    const auto look = [&](const std::string& address, const std::string& file,
                          std::string_view scheme = "1") {
        const auto result = Shell::run(
            program,
            {"--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--dump-dom",
             "--window-size=900,600", "--blink-settings=preferredColorScheme=" + std::string(scheme),
             "--user-data-dir=" + (folder / "profile").string(), "--screenshot=" + file, address},
            120);
        return result ? result->standardOutput : std::string();
    };
    const auto root = hostileTree();
    for (const PictureKind kind : allKinds) {
        SCOPED_TRACE(rawValue(kind));
        const std::string page =
            "file://" + folder
                            .writeFile(std::string(rawValue(kind)) + ".html",
                                       drawHTML({.folder = root.get(), .kind = kind, .viewCount = 5}))
                            .string();
        const std::string first = folder / "first.png";
        const std::string second = folder / "second.png";
        const std::string document = look(page, first);
        if (document.empty())
            GTEST_SKIP() << program << " does not run here";
        EXPECT_THAT(document, HasSubstr("<title>/&lt;svg onload=alert(1)&gt;</title>"));
        EXPECT_THAT(document, Not(HasSubstr("<script")));
        EXPECT_EQ(between(document, "<svg", '>').size(), 1u);
        (void)look(page + "#v1", second);
        // One view is seen at a time, and there is something to see.
        ASSERT_TRUE(std::filesystem::exists(first) && std::filesystem::exists(second));
        EXPECT_NE(test::readFile(first), test::readFile(second));
        EXPECT_GT(std::filesystem::file_size(first), 5'000u);
    }
    const char* const kept = std::getenv("TARNWELL_SCREENSHOTS");
    const std::filesystem::path pictures = kept != nullptr ? std::filesystem::path(kept) : folder.path();
    const auto example = exampleTree();
    std::set<std::string> seen;
    for (const auto& [kind, scheme] :
         {std::pair(PictureKind::treemap, "1"), std::pair(PictureKind::treemap, "0"),
          std::pair(PictureKind::sunburst, "0")}) {
        const bool isDark = *scheme == '0';
        const std::string name = std::string(rawValue(kind)) + (isDark ? "-dark" : "");
        const std::filesystem::path page =
            folder.writeFile(name + ".html", drawHTML({.folder = example.get(), .kind = kind}));
        const bool isShown = isDark == (kind == PictureKind::sunburst);
        const std::string picture =
            ((isShown ? pictures : folder.path()) / ("draw-" + name + ".png")).string();
        (void)look("file://" + page.string(), picture, scheme);
        seen.insert(test::readFile(picture));
    }
    EXPECT_EQ(seen.size(), 3u) << "light is not dark";
}

} // namespace
} // namespace tarnwell
