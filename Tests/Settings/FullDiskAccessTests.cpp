#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Settings/FullDiskAccess.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace tarnwell {

namespace {

using enum FullDiskAccessStatus;
using test::TemporaryFolder;

/// The status as a user sees it for whom permissions count.
std::string probe(const std::vector<std::string>& paths) {
    return test::runUnprivileged([&] { return std::string(rawValue(FullDiskAccess::status(paths))); });
}

TEST(FullDiskAccess, TheFirstPathThatOpensDecides) {
    const TemporaryFolder folder;
    namespace fs = std::filesystem;
    const auto locked = [](const fs::path& path) {
        fs::permissions(path, fs::perms::none);
        return path.string();
    };
    fs::permissions(folder.path(), fs::perms::all);
    const std::string file = folder.writeFile("file", "x").string();
    const std::string openFolder = folder.makeFolder("folder").string();
    fs::permissions(openFolder, fs::perms::all);
    const std::string closedFile = locked(folder.writeFile("closed file", "x"));
    const std::string closedFolder = locked(folder.makeFolder("closed folder"));
    const std::string missing = (folder / "missing").string();
    const std::string deadLink = (folder / "dead link").string();
    fs::create_symlink("nowhere", deadLink);
    const std::string pipe = (folder / "pipe").string();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0666), 0);
    fs::permissions(pipe, fs::perms::all);

    EXPECT_EQ(probe({}), "unknown");
    EXPECT_EQ(probe({file}), "granted");
    EXPECT_EQ(probe({openFolder}), "granted");
    EXPECT_EQ(probe({closedFile, missing, missing}), "denied");
    EXPECT_EQ(probe({closedFolder}), "denied");
    EXPECT_EQ(probe({missing, closedFolder, file, closedFile}), "granted");
    EXPECT_EQ(probe({deadLink}), "denied") << "it exists, and does not open";
    EXPECT_EQ(probe({pipe}), "granted") << "and must not wait for a writer";
    EXPECT_EQ(probe({missing, file + "/below", std::string("a\0b", 3)}), "unknown");
}

TEST(FullDiskAccess, ProbesWhatIsProtected) {
    const std::string home = homeDirectory().string();
    EXPECT_EQ(FullDiskAccess::probePaths(),
              (std::vector<std::string>{"/Library/Application Support/com.apple.TCC/TCC.db",
                                        home + "/Library/Application Support/com.apple.TCC",
                                        home + "/Library/Safari/Bookmarks.plist", home + "/Library/Mail"}));
    EXPECT_EQ(FullDiskAccess::isGranted(), FullDiskAccess::status() == granted);
}

TEST(FullDiskAccess, NamesTextsAndLosses) {
    for (const FullDiskAccessStatus status : {granted, denied, unknown})
        EXPECT_EQ(fullDiskAccessStatusFromRawValue(rawValue(status)), status);
    EXPECT_EQ(fullDiskAccessStatusFromRawValue("Granted"), std::nullopt);
    EXPECT_EQ(FullDiskAccess::explanation(denied),
              "Tarnwell cannot read protected folders such as Mail, Messages and Safari data. Scans will "
              "under-report those areas until you grant Full Disk Access.");

    using FullDiskAccessTransition::wasRevoked;
    for (const FullDiskAccessStatus current : {granted, denied, unknown}) {
        EXPECT_EQ(wasRevoked(granted, current), current != granted);
        for (const std::optional<FullDiskAccessStatus> previous :
             {std::optional<FullDiskAccessStatus>(), std::optional(denied), std::optional(unknown)})
            EXPECT_FALSE(wasRevoked(previous, current));
    }
}

} // namespace

} // namespace tarnwell
