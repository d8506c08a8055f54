// draw, as a person types it in a made home.

#include "TarnwellTidyKit/Pictures/Picture.hpp"

#include "Tests/TidyKit/Scene.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <stdexcept>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::readFile;
using test::Scene;
using test::Words;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(DrawCommand, WritesWhatItsNameSaysWholeOrNotAtAll) {
    Scene scene;
    scene.home.makeFile("tree/films/a<b>.mov", 500'000);
    scene.home.makeFile("tree/letter.txt", 20'000);
    const std::string tree = scene.path("tree");
    const std::string page = scene.path("pages.html");
    const auto json = scene.json({"draw", tree, "--as", "sunburst", "--output", page});
    EXPECT_EQ(json["file"].GetString(), page);
    EXPECT_STREQ(json["format"].GetString(), "html");
    EXPECT_STREQ(json["kind"].GetString(), "sunburst");
    EXPECT_THAT(readFile(page), testing::AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr("a&lt;b&gt;.mov"),
                                               HasSubstr("<path class=\"item")));
    struct stat status = {};
    ASSERT_EQ(::stat(page.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u) << "names are nobody else's business";

    const std::string image = scene.path("pages.SVG");
    EXPECT_EQ(scene.text({"draw", tree, "--output", image}), image + "\n");
    EXPECT_THAT(readFile(image), StartsWith("<svg xmlns="));
    EXPECT_THAT(scene.text({"draw", tree, "--output", "-", "--format", "svg", "--as", "bars"}),
                testing::AllOf(StartsWith("<svg xmlns="), HasSubstr("letter.txt")));

    // What is named is replaced, also by a link's own name, and only as a whole.
    scene.home.writeFile("notes", "mine");
    fs::create_symlink("notes", scene.home / "link.svg");
    (void)scene.text({"draw", tree, "--output", scene.path("link.svg")});
    EXPECT_EQ(readFile(scene.home / "notes"), "mine");
    EXPECT_THAT(readFile(scene.home / "link.svg"), StartsWith("<svg"));
    EXPECT_THAT(scene.text({"draw", tree, "--output", scene.path("new.svg"), "--dry-run"}),
                HasSubstr("new.svg would be written."));
    EXPECT_FALSE(fs::exists(scene.home / "new.svg"));
    scene.services.writeFile = [](const fs::path&, std::string_view) { throw std::runtime_error("full"); };
    EXPECT_EQ(scene.run({"draw", tree, "--output", image}).exitCode, 1);

    ASSERT_EQ(::mkfifo((scene.home / "pipe.svg").c_str(), 0600), 0);
    for (const std::string& place : {scene.path("pipe.svg"), scene.path("no/x.svg"), tree + "/"})
        EXPECT_EQ(scene.run({"draw", tree, "--output", place, "--format", "svg"}).exitCode, 1) << place;
    EXPECT_THAT(scene.run({"draw", scene.path("notes"), "--output", "-"}).standardError,
                HasSubstr("is not a folder"));
}

TEST(DrawCommand, WithoutANameNothingForeignIsReplaced) {
    Scene scene;
    scene.home.makeFile("-tree/a", 5'000);
    const fs::path before = fs::current_path();
    fs::current_path(scene.home.path());
    const Words draw{"draw", scene.path("-tree"), "--as", "icicle"};
    const fs::path file = scene.home / "folder-tree-icicle.html";
    EXPECT_EQ(scene.text(draw), file.string() + "\n");
    EXPECT_EQ(scene.text(draw), file.string() + "\n") << "its own it replaces";
    scene.home.writeFile("folder-tree-icicle.html", "a page of mine");
    const TidyResult result = scene.run(draw);
    fs::current_path(before);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.standardError, HasSubstr("is no picture of this program"));
    EXPECT_EQ(readFile(file), "a page of mine");
}

TEST(DrawCommand, OpensWhatItWrote) {
    Scene scene;
    scene.home.makeFile("tree/a", 5'000);
    fs::path opened;
    bool hasDesktop = true;
    scene.services.open = [&](const fs::path& file) {
        EXPECT_THAT(readFile(file), HasSubstr(pictureMark));
        opened = file;
        return hasDesktop;
    };
    const Words draw{"draw", scene.path("tree"), "--output", scene.path("p.html"), "--open"};
    (void)scene.text(draw);
    EXPECT_EQ(opened, scene.home / "p.html");
    hasDesktop = false;
    const TidyResult result = scene.run(draw);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.standardError, HasSubstr("no desktop here"));
}

} // namespace
} // namespace tarnwell
