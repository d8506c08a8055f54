// The probes for patterns in a scanned tree, for downloads, caches, the Trash and backup snapshots.

#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarnwell {
namespace {

using test::TemporaryFolder;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr double nowSeconds = 700'000'000;
const Date now = dateFromReferenceSeconds(nowSeconds);
constexpr double day = 86'400;
constexpr std::int64_t megabyte = 1'000'000;

/// A tree below "/", written as paths.
class Tree {
public:
    FileNode& folder(const std::string& path) {
        FileNode* node = &builder.root();
        for (const fs::path& component : fs::path(path).relative_path())
            node = &child(*node, component.native());
        return *node;
    }
    FileNode& file(const std::string& path, std::int64_t size, double daysOld = 0, FileNodeFlags flags = {}) {
        const fs::path place(path);
        FileNodeAttributes attributes;
        attributes.size = attributes.allocatedSize = size;
        attributes.modificationSeconds = nowSeconds - daysOld * day;
        attributes.flags = flags;
        return builder.addFile(folder(place.parent_path()), place.filename().native(), attributes);
    }

    FileTreeBuilder builder{"/"};

private:
    FileNode& child(FileNode& parent, const std::string& name) {
        for (FileNode* each : parent.mutableChildren())
            if (each->name() == name)
                return *each;
        FileNode& made = builder.addFolder(parent, name);
        made.modificationSeconds = FileNode::missingTime;
        return made;
    }
};

std::vector<std::string> pathsOf(const std::vector<SpaceSaverFinding>& findings, SpaceSaverKind kind) {
    std::vector<std::string> paths;
    for (const SpaceSaverFinding& finding : findings)
        if (finding.kind == kind)
            for (const fs::path& path : finding.paths)
                paths.push_back(path);
    return paths;
}

TEST(NodeModulesProbe, ThePathsOfADeepChainAreBounded) {
    constexpr int depth = 2'000; // 500 MB of paths
    FileTreeBuilder builder("/");
    FileNode* folder = &builder.root();
    RuleMatch match{.rule = {.id = "r", .name = "r"}};
    for (int level = 0; level < depth; ++level) {
        FileNode& modules = builder.addFolder(*folder, "node_modules");
        builder.addFile(modules, "file", 10);
        match.nodes.push_back(&modules);
        folder = &builder.addFolder(*folder, std::string(255, 'x'));
    }
    const auto root = builder.finish();
    const SpaceSaverProbe probe("/home/u", 1);
    for (const auto& findings : {probe.nodeModulesFindings(*root), probe.cleanupRuleFindings({match})}) {
        ASSERT_EQ(findings.size(), 1u);
        const SpaceSaverFinding& finding = findings.front();
        std::size_t bytes = 0;
        for (const fs::path& path : finding.paths)
            bytes += path.native().size();
        EXPECT_LT(bytes, 64u << 20);
        EXPECT_GT(bytes, 32u << 20);
        EXPECT_EQ(finding.paths.size() + static_cast<std::size_t>(finding.furtherPathCount), depth);
        EXPECT_EQ(finding.itemCount, depth);
        EXPECT_EQ(finding.size, 10 * depth);
    }
}

TEST(NodeModulesProbe, OutermostFoldersOfProjectsAreGrouped) {
    Tree tree;
    tree.file("/home/u/a/node_modules/x/node_modules/y/file", 300);
    tree.file("/home/u/b/packages/c/node_modules/file", 500);
    tree.file("/home/u/b/lib/package.json", 1);
    tree.file("/home/u/b/lib/node_modules/file", 20);
    // Software that was installed, not projects:
    tree.file("/usr/lib/node_modules/tool/file", 1000);
    tree.file("/home/u/tools/lib/node_modules/tool/file", 1000);
    tree.file("/home/u/.editor/extensions/node_modules/file", 1000);
    tree.file("/home/u/Library/Application Support/x/node_modules/file", 1000);
    tree.file("/home/u/Some.app/Contents/node_modules/file", 1000);
    tree.file("/home/u/.Trash/project/node_modules/file", 1000);
    tree.file("/home/u/node_modules.txt", 1000);
    const auto root = tree.builder.finish();

    const auto findings = SpaceSaverProbe("/home/u", 820).nodeModulesFindings(*root);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_THAT(pathsOf(findings, SpaceSaverKind::nodeModules),
                ElementsAre("/home/u/b/packages/c/node_modules", "/home/u/a/node_modules",
                            "/home/u/b/lib/node_modules"));
    EXPECT_EQ(findings[0].size, 820);
    EXPECT_EQ(findings[0].itemCount, 3);
    EXPECT_THAT(findings[0].subtitle, testing::StartsWith("3 folders"));
    EXPECT_THAT(SpaceSaverProbe("/home/u", 821).nodeModulesFindings(*root), IsEmpty());
    // Who scans such a place on purpose is told about it.
    EXPECT_EQ(SpaceSaverProbe("/home/u", 1).nodeModulesFindings(*root->node("/home/u/.editor")).size(), 1u);
}

TEST(LargeFilesProbe, LargeAndOldFilesAreKeptApart) {
    Tree tree;
    tree.file("/home/u/new.mov", 2000 * megabyte, 5);
    tree.file("/home/u/old.mov", 3000 * megabyte, 366);
    tree.file("/home/u/middling-old.mov", 500 * megabyte, 400);
    tree.file("/home/u/exactly.mov", 600 * megabyte, 365);
    tree.file("/home/u/small-old.mov", 499 * megabyte, 400);
    tree.file("/data/unknown.mov", 1000 * megabyte).modificationSeconds = FileNode::missingTime;
    // A package is one item, as young as the youngest thing in it.
    tree.file("/home/u/vm.utm/disk", 4000 * megabyte, 500);
    tree.file("/home/u/vm.utm/log", 1, 3);
    // Not what a user would call a large file:
    tree.file("/home/u/link", 9000 * megabyte, 0, FileNodeFlags::symlink);
    tree.file("/home/u/cloud.mov", 9000 * megabyte, 0, FileNodeFlags::dataless);
    tree.file("/home/u/twice.mov", 9000 * megabyte, 0, FileNodeFlags::hardlinkDuplicate);
    tree.file("/home/u/.Trash/thrown.mov", 9000 * megabyte);
    tree.file("/home/u/Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw", 9000 * megabyte);
    tree.file("/home/u/p/node_modules/blob", 9000 * megabyte);
    tree.file("/Applications/Big.app/Contents/data", 9000 * megabyte);
    tree.file("/home/u/Big.app/Contents/data", 9000 * megabyte);
    tree.file("/private/var/vm/sleepimage", 9000 * megabyte);
    const auto root = tree.builder.finish();

    const SpaceSaverProbe probe("/home/u");
    const auto findings = probe.largeFileFindings(*root, 1000 * megabyte, 500 * megabyte, 365, 10, now);
    EXPECT_THAT(pathsOf(findings, SpaceSaverKind::largeFiles),
                ElementsAre("/home/u/vm.utm", "/home/u/new.mov", "/data/unknown.mov"));
    EXPECT_THAT(pathsOf(findings, SpaceSaverKind::oldLargeFiles),
                ElementsAre("/home/u/old.mov", "/home/u/middling-old.mov"));
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].subtitle, "3 very large files");
    EXPECT_EQ(findings[1].subtitle, "2 files over 500 MB, unmodified for 1 year");
    EXPECT_EQ(findings[1].size, 3500 * megabyte);

    const auto first = probe.largeFileFindings(*root, 1000 * megabyte, 500 * megabyte, 30, 1, now);
    EXPECT_THAT(pathsOf(first, SpaceSaverKind::largeFiles), ElementsAre("/home/u/vm.utm"));
    EXPECT_EQ(first[1].subtitle, "1 file over 500 MB, unmodified for 30 days");
    EXPECT_THAT(probe.largeFileFindings(*root, 1000 * megabyte, 500 * megabyte, 365, 0, now), IsEmpty());
    EXPECT_THAT(probe.largeFileFindings(*root->node("/private/var"), megabyte, megabyte, 365, 10, now).size(),
                1u);
}

TEST(DownloadsProbe, ClutterAndOlderInstallers) {
    Tree tree;
    const std::string downloads = "/home/u/Downloads/";
    tree.file(downloads + "Tool-1.9.dmg", 10 * megabyte, 1);
    tree.file(downloads + "Tool-1.10.dmg", 11 * megabyte, 2);
    tree.file(downloads + "Tool-1.10 (1).dmg", 11 * megabyte, 3);
    tree.file(downloads + "Tool-1.10-arm64.dmg", 12 * megabyte, 4); // as new, for another processor
    tree.file(downloads + "Other.pkg", 20 * megabyte, 10);
    tree.file(downloads + "Other 3.pkg", 21 * megabyte, 5);
    tree.file(downloads + "Lone-1.0.pkg", 300 * megabyte, 1);
    tree.file(downloads + "movie.mp4", 100 * megabyte, 1);
    tree.file(downloads + "small.txt", 99 * megabyte, 90);
    tree.file(downloads + "forgotten.txt", 2 * megabyte, 91);
    tree.file(downloads + "Tool-1.10.txt", 1, 1);
    tree.file(downloads + "unpacked/old.txt", megabyte, 500); // unpacked at a time that is not known
    tree.file(downloads + "lost/old.txt", megabyte, 500);
    tree.folder(downloads + "lost").modificationSeconds = nowSeconds - 100 * day;
    tree.file(downloads + ".hidden", 900 * megabyte, 500);
    tree.file(downloads + "link", 900 * megabyte, 500, FileNodeFlags::symlink);
    const auto root = tree.builder.finish();

    const SpaceSaverProbe probe("/home/u");
    const auto findings = probe.downloadsFindings(DiskScanner(), ScanOptions(), treeLookup(root), now);
    EXPECT_THAT(
        pathsOf(findings, SpaceSaverKind::installerArchives),
        ElementsAre(downloads + "Other.pkg", downloads + "Tool-1.10 (1).dmg", downloads + "Tool-1.9.dmg"));
    EXPECT_THAT(pathsOf(findings, SpaceSaverKind::downloadsClutter),
                ElementsAre(downloads + "Lone-1.0.pkg", downloads + "movie.mp4", downloads + "forgotten.txt",
                            downloads + "lost"));
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(
        findings[0].explanation,
        "Several downloads share a name once version numbers are stripped, which usually means you kept "
        "older installers of the same app.");
    EXPECT_EQ(findings[1].size, 403 * megabyte);
}

TEST(DownloadsProbe, ScansTheDiskWithoutATree) {
    const TemporaryFolder home;
    SpaceSaverProbe probe(home.path(), 1);
    EXPECT_THAT(probe.downloadsFindings(DiskScanner(), ScanOptions(), nullptr), IsEmpty());
    const fs::path old = home.makeFile("Downloads/old.txt", 500);
    home.makeFile("Downloads/new.txt", 500);
    fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(24 * 91));
    EXPECT_THAT(pathsOf(probe.downloadsFindings(DiskScanner(), ScanOptions(), nullptr),
                        SpaceSaverKind::downloadsClutter),
                ElementsAre(old));
}

TEST(ApplicationCachesProbe, FindsWhatAppsKeepBesideTheirData) {
    const TemporaryFolder home;
    home.makeFile("Library/Containers/org.x/Data/Library/Caches/a", 5000);
    home.makeFile("Library/Application Support/chat/Code Cache/a", 4000);
    home.makeFile("Library/Application Support/chat/Data/a", 4000);
    home.makeFile("Library/Caches/org.y/a", 9000); // in the catalogue
    home.makeFile(".cache/tool/a", 3000);
    home.makeFile(".cache/pip/a", 9000); // in the catalogue
    home.makeFile(".cache/loose file", 9000);
    home.makeFolder(".cache/empty");
    home.makeFile("snap/player/common/.cache/a", 2000);
    home.makeFolder(".config");
    fs::create_directory_symlink(home / ".cache", home / ".config/linked");

    const SpaceSaverProbe probe(home.path(), 1);
    const auto measured = probe.applicationCachesFinding(DiskScanner(), ScanOptions(), nullptr);
    ASSERT_TRUE(measured);
    EXPECT_THAT(measured->paths, ElementsAre(home / "Library/Containers/org.x/Data/Library/Caches",
                                             home / "Library/Application Support/chat/Code Cache",
                                             home / ".cache/tool", home / "snap/player/common/.cache"));
    EXPECT_EQ(measured->size, 14'000);
    EXPECT_EQ(measured->itemCount, 4);
    const ScanResult scan = DiskScanner().scan(home.path()).get();
    EXPECT_EQ(probe.applicationCachesFinding(DiskScanner(), ScanOptions(), treeLookup(scan.root)), measured);
}

TEST(TrashProbe, AddsUpEveryTrashFolder) {
    const TemporaryFolder home;
    SpaceSaverProbe probe(home.path(), 1);
    probe.trashFolders = [&](const fs::path& folder) {
        return std::vector<fs::path>{folder / ".Trash", folder / "missing", folder / "volume/.Trashes/501"};
    };
    EXPECT_FALSE(probe.trashFinding(DiskScanner()));
    home.makeFile(".Trash/.DS_Store", 0);
    EXPECT_FALSE(probe.trashFinding(DiskScanner()));
    home.makeFile(".Trash/folder/file", 1000);
    home.makeFile("volume/.Trashes/501/file", 300);
    const auto finding = probe.trashFinding(DiskScanner());
    ASSERT_TRUE(finding);
    EXPECT_EQ(finding->size, 1300);
    EXPECT_EQ(finding->itemCount, 2);
    EXPECT_EQ(finding->action, SpaceSaverAction(SpaceSaverActions::EmptyTrash{}));
    EXPECT_THAT(finding->paths, ElementsAre(home / ".Trash", home / "volume/.Trashes/501"));
}

TEST(SnapshotProbe, CountsWhatTheToolLists) {
    SpaceSaverProbe probe("/home/u");
    std::optional<CommandResult> answer;
    probe.runTool = [&](const std::string& executable, const std::vector<std::string>& arguments,
                        double timeout) {
        EXPECT_EQ(executable, "/usr/bin/tmutil");
        EXPECT_THAT(arguments, ElementsAre("listlocalsnapshots", "/"));
        EXPECT_GT(timeout, 0);
        return answer;
    };
    EXPECT_FALSE(probe.snapshotFinding()); // no such tool
    for (const CommandResult& nothing : {CommandResult{1, "com.apple.TimeMachine.x.local\n", ""},
                                         CommandResult{0, "Snapshots for disk /:\n", ""}}) {
        answer = nothing;
        EXPECT_FALSE(probe.snapshotFinding());
    }
    answer->standardOutput = "Snapshots for disk /:\r\ncom.apple.TimeMachine.2024-05-01-101010.local\r\n"
                             "com.apple.os.update-1234\n  com.apple.TimeMachine.2024-05-01-111010.local\n"
                             "com.apple.TimeMachine.2024-05-01-111010.local";
    const auto finding = probe.snapshotFinding();
    ASSERT_TRUE(finding);
    EXPECT_EQ(finding->itemCount, 2);
    EXPECT_FALSE(finding->sizeIsKnown);
    const auto* command = std::get_if<SpaceSaverActions::RunCommand>(&finding->action);
    ASSERT_NE(command, nullptr);
    EXPECT_THAT(command->commandLine, testing::StartsWith("tmutil deletelocalsnapshots "));
}

} // namespace
} // namespace tarnwell
