#include "TarnwellCore/Actions/SyncedRoots.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

TEST(SyncedRootsTests, RootsAreFoundByNameAndSorted) {
    const fs::path storage = "/h/Library/CloudStorage";
    const fs::path drive = "/h/Library/Mobile Documents/com~apple~CloudDocs/";
    const auto roots = SyncedRoots::discover(
        "/h", [&](const fs::path& url) { return url == drive; },
        [&](const fs::path& url) {
            EXPECT_EQ(url, storage);
            return std::vector<std::string>{"OneDrive-Work",
                                            "box",
                                            "Dropbox-Personal",
                                            "",
                                            ".",
                                            "..",
                                            ".hidden",
                                            "GoogleDrive-me",
                                            "Box-Box",
                                            "box",
                                            "DROPBOX2",
                                            "a/b",
                                            "/etc",
                                            "Drop",
                                            "Box",
                                            "\xC3\x89toile",    // É
                                            "\xC3\xA9toile",    // é
                                            "\xC3\x8Ale",       // Ê
                                            "\xC3\xA8re",       // è
                                            "\xD0\x94\xD0\xB0", // Да
                                            "\xD0\xB3\xD0\xB0", // га
                                            "\xFF odd"};
        });
    const std::vector<SyncedRoot> expected{
        {CloudProvider::iCloudDrive, drive},
        {CloudProvider::other, storage / "Box/"},
        {CloudProvider::other, storage / "box/"},
        {CloudProvider::other, storage / "Box-Box/"},
        {CloudProvider::other, storage / "Drop/"},
        {CloudProvider::dropbox, storage / "Dropbox-Personal/"},
        {CloudProvider::dropbox, storage / "DROPBOX2/"},
        {CloudProvider::googleDrive, storage / "GoogleDrive-me/"},
        {CloudProvider::oneDrive, storage / "OneDrive-Work/"},
        {CloudProvider::other, storage / "\xC3\xA8re/"},
        {CloudProvider::other, storage / "\xC3\x89toile/"},
        {CloudProvider::other, storage / "\xC3\xA9toile/"},
        {CloudProvider::other, storage / "\xC3\x8Ale/"},
        {CloudProvider::other, storage / "\xD0\xB3\xD0\xB0/"},
        {CloudProvider::other, storage / "\xD0\x94\xD0\xB0/"},
        {CloudProvider::other, storage / "\xFF odd/"},
    };
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
        {"/a/B/c", "/a/b", false},
        {"/anything", "/", true},
        {"/", "/", true},
        {"/a/x", "/a/./b/..", true},
        {"a/b", "/a", false},
        {"a/b", "a", true},
        {"/a/b", "a", false},
        {"/a", "", false},
        {"", "", false},
        {"", "/", false},
        {"/\xFF\n/x", "/\xFF\n", true},
        {"/\xFF/x", "/\xFE", false},
        {"/e\xCC\x81/x", "/\xC3\xA9", false},
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

} // namespace
} // namespace tarnwell
