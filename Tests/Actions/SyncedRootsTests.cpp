#include "TarnwellCore/Actions/SyncedRoots.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

TEST(SyncedRootsTests, RootsAreFoundByNameAndSorted) {
    const fs::path storage = "/h/Library/CloudStorage";
    const fs::path drive = "/h/Library/Mobile Documents/com~apple~CloudDocs/";
    const struct {
        const char* name;
        CloudProvider provider;
    } services[] = {
        {"Box", CloudProvider::other},
        {"box", CloudProvider::other},
        {"Box-Box", CloudProvider::other},
        {"Drop", CloudProvider::other},
        {"Dropbox-Personal", CloudProvider::dropbox},
        {"DROPBOX2", CloudProvider::dropbox},
        {"GoogleDrive-me", CloudProvider::googleDrive},
        {"OneDrive-Work", CloudProvider::oneDrive},
        {"\xC3\xA8re", CloudProvider::other},    // è
        {"\xC3\x89toile", CloudProvider::other}, // É
        {"\xC3\xA9toile", CloudProvider::other}, // é
        {"\xFF odd", CloudProvider::other},
    };
    // One stands there twice, the others are no services.
    std::vector<std::string> names{"box", "", ".", "..", ".hidden", "a/b"};
    std::vector<SyncedRoot> expected{{CloudProvider::iCloudDrive, drive}};
    for (const auto& [name, provider] : services) {
        names.insert(names.begin(), name);
        expected.push_back({provider, storage / name / ""});
    }
    const auto roots = SyncedRoots::discover(
        "/h", [&](const fs::path& url) { return url == drive; },
        [&](const fs::path& url) {
            EXPECT_EQ(url, storage);
            return names;
        });
    EXPECT_EQ(roots, expected);
    EXPECT_EQ(displayName(CloudProvider::other), "File Provider");
    for (const CloudProvider provider : allCloudProviders)
        EXPECT_EQ(cloudProviderFromRawValue(rawValue(provider)), provider);
    EXPECT_EQ(cloudProviderFromRawValue("iCloud Drive"), std::nullopt);
}

TEST(SyncedRootsTests, TheRealFoldersAreFound) {
    const test::TemporaryFolder home;
    EXPECT_TRUE(SyncedRoots::discover(home.path()).empty());
    home.makeFolder("Library/Mobile Documents/com~apple~CloudDocs");
    home.makeFolder("Library/CloudStorage/Dropbox");
    home.makeFile("Library/CloudStorage/OneDrive.log");
    fs::create_directory_symlink(home.path(), home / "Library/CloudStorage/GoogleDrive");
    const auto roots = SyncedRoots::discover(home.path());
    ASSERT_EQ(roots.size(), 2u);
    EXPECT_EQ(roots[0].provider, CloudProvider::iCloudDrive);
    EXPECT_EQ(roots[1], (SyncedRoot{CloudProvider::dropbox, home / "Library/CloudStorage/Dropbox/"}));
}

TEST(SyncedRootsTests, ContainmentGoesByWholeComponents) {
    const struct {
        const char* path;
        const char* root;
        bool contained;
    } cases[] = {
        {"/a/b/c", "/a/b", true},
        {"/a/b", "/a/b", true},
        {"/a/bc", "/a/b", false},
        {"/a", "/a/b", false},
        {"/a/b/c", "/a/b/", true},
        {"//a///b/c/", "/a/b//", true},
        {"/anything", "/", true},
        {"/", "/", true},
        {"/a/x", "/a/./b/..", true},
        {"a/b", "/a", false},
        {"a/b", "a", true},
        {"/a", "", false},
        {"", "", false},
        {"", "/", false},
        {"/\xFF\n/x", "/\xFF\n", true},
        {"/\xFF/x", "/\xFE", false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.path) + " in " + row.root);
        const std::vector<SyncedRoot> roots{{CloudProvider::other, row.root}};
        EXPECT_EQ(SyncedRoots::contains(row.path, roots), row.contained);
        EXPECT_EQ(SyncedRoots::root(row.path, SyncedRoots::prepare(roots)) != nullptr, row.contained);
    }
}

TEST(SyncedRootsTests, TheFirstRootThatMatchesIsTheOne) {
    const std::vector<SyncedRoot> roots{{CloudProvider::dropbox, "/a/b/c"}, {CloudProvider::oneDrive, "/a"}};
    const auto prepared = SyncedRoots::prepare(roots);
    EXPECT_EQ(SyncedRoots::root("/a/b/c/d", prepared)->provider, CloudProvider::dropbox);
    EXPECT_EQ(SyncedRoots::root("/a/b/x", prepared)->provider, CloudProvider::oneDrive);
    EXPECT_FALSE(SyncedRoots::contains("/b", {}));
}

TEST(SyncedRootsTests, RootsOfALinkedHomeHoldWhatAScanShows) {
    const test::TemporaryFolder world;
    const fs::path drive = world.makeFolder("real/Library/CloudStorage/Box") / "file";
    fs::create_directory_symlink(world / "real", world / "home");
    const auto roots = SyncedRoots::discover(world / "home");
    ASSERT_EQ(roots.size(), 1u);
    EXPECT_EQ(roots[0].url, world / "home/Library/CloudStorage/Box/");
    const auto prepared = SyncedRoots::prepare(roots);
    EXPECT_NE(SyncedRoots::root(drive.native(), prepared), nullptr);
    EXPECT_NE(SyncedRoots::root((roots[0].url / "file").native(), prepared), nullptr);
    EXPECT_TRUE(SyncedRoots::touches((world / "real").native(), prepared));
    EXPECT_FALSE(SyncedRoots::touches((world / "other").native(), prepared));
}

} // namespace
} // namespace tarnwell
