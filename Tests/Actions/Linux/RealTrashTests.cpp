// Moves real files to a real Trash and looks where they went.

#include "TarnwellCore/Actions/TrashService.hpp"
#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Platform/Trash.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/SilentShare.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <set>

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace tarnwell {
namespace {

using test::MountedImage;
using test::readFile;
using test::TemporaryFolder;

/// A home folder of this program's own, so that its Trash is not the user's. The platform's library reads
/// these variables once, at its first use: they are set before any test runs.
class PrivateHome : public testing::Environment {
public:
    void SetUp() override {
        folder.emplace();
        ::setenv("HOME", folder->path().c_str(), 1);
        ::setenv("XDG_DATA_HOME", (*folder / "data").c_str(), 1);
    }
    void TearDown() override { folder.reset(); }

    std::optional<TemporaryFolder> folder;
};

const auto* const environment =
    static_cast<PrivateHome*>(testing::AddGlobalTestEnvironment(new PrivateHome)); // deletes it in the end

const fs::path& privateHome() {
    return environment->folder->path();
}

fs::path privateTrashFiles() {
    return privateHome() / "data/Trash/files";
}

bool isThere(const fs::path& path) {
    return fs::symlink_status(path).type() != fs::file_type::not_found;
}

/// The original path from the note that lies beside a trashed item, its escapes undone.
std::string notedPath(const fs::path& trashed) {
    const std::string note =
        readFile(trashed.parent_path().parent_path() / "info" / (trashed.filename().string() + ".trashinfo"));
    const auto start = note.find("\nPath=");
    if (start == std::string::npos)
        return {};
    const std::string escaped = note.substr(start + 6, note.find('\n', start + 1) - start - 6);
    std::string path;
    for (std::size_t index = 0; index < escaped.size(); ++index) {
        if (escaped[index] == '%') {
            path += static_cast<char>(std::stoi(escaped.substr(index + 1, 2), nullptr, 16));
            index += 2;
        } else {
            path += escaped[index];
        }
    }
    return path;
}

class RealTrashTests : public testing::Test {
protected:
    TemporaryFolder folder{privateHome()};
    TrashService service{privateHome()};

    /// Moves an item and returns where it is now.
    fs::path trash(const fs::path& item) {
        const TrashOutcome outcome = service.moveToTrash(item).get();
        EXPECT_EQ(outcome.failure, std::nullopt);
        EXPECT_EQ(outcome.source, item);
        return outcome.trashedTo.value_or(fs::path());
    }
};

TEST_F(RealTrashTests, NamesOfAnyBytesAreFoundAgain) {
    const std::string names[] = {
        "plain.txt",        "percent%20%zz",       "line\nbreak",         "\xFF\xFE.\x01",
        ".hidden \xC3\xA9", "-dash quote\"'\\",    "gone (deleted)",      "..x",
        "a.trashinfo",      std::string(238, 'n'), std::string(240, 'n'), std::string(245, 'n'),
    };
    for (const std::string& name : names) {
        SCOPED_TRACE(testing::PrintToString(name));
        const fs::path item = folder.writeFile(name, "content of " + name);
        const fs::path landed = trash(item);
        EXPECT_FALSE(isThere(item));
        EXPECT_EQ(landed, privateTrashFiles() / name);
        EXPECT_EQ(readFile(landed), "content of " + name);
        EXPECT_EQ(notedPath(landed), item);
    }
    // The note's name would be too long for the file system.
    const fs::path item = folder.makeFile(std::string(255, 'n'));
    EXPECT_THAT(service.moveToTrash(item).get().failure.value_or(""), HasSubstr("too long"));
    EXPECT_TRUE(isThere(item));
}

TEST_F(RealTrashTests, NamesThatCollideKeepApartAlsoInBatchesSideBySide) {
    const std::int64_t before = service.itemCount().value_or(0);
    std::vector<std::vector<fs::path>> items(4);
    for (int number = 0; number < 100; ++number) {
        const std::string text = std::to_string(number);
        items[static_cast<std::size_t>(number) / 25].push_back(folder.writeFile(text + "/same.tar.gz", text));
    }
    items[0].push_back(folder.makeFolder("x/same.tar.gz"));
    // Two links to one file: nothing but where each was moved tells them apart.
    items[0].push_back(folder.writeFile("one/linked", "linked"));
    items[0].push_back(folder.makeFolder("two") / "linked");
    fs::create_hard_link(folder / "one/linked", folder / "two/linked");

    std::vector<std::future<std::vector<TrashOutcome>>> batches;
    for (const std::vector<fs::path>& batch : items)
        batches.push_back(service.moveToTrash(batch));
    std::set<fs::path> places;
    for (std::size_t batch = 0; batch < batches.size(); ++batch) {
        const std::vector<TrashOutcome> outcomes = batches[batch].get();
        ASSERT_EQ(outcomes.size(), items[batch].size());
        for (std::size_t index = 0; index < outcomes.size(); ++index) {
            const fs::path& item = items[batch][index];
            SCOPED_TRACE(item);
            ASSERT_TRUE(outcomes[index].trashedTo);
            const fs::path& landed = *outcomes[index].trashedTo;
            EXPECT_TRUE(places.insert(landed).second);
            EXPECT_EQ(landed.parent_path(), privateTrashFiles());
            EXPECT_EQ(notedPath(landed), item);
            if (index < 25) {
                EXPECT_EQ(readFile(landed), item.parent_path().filename());
            }
        }
    }
    EXPECT_EQ(service.itemCount(), before + 103);
}

TEST_F(RealTrashTests, ALinkGoesItselfAndFoldersGoWhole) {
    const fs::path target = folder.makeFolder("target");
    folder.writeFile("target/inside", "kept");
    fs::create_directory_symlink(target, folder / "link");
    fs::create_directory_symlink(target, folder / "slashed");
    fs::create_symlink("nowhere", folder / "dangling");
    EXPECT_EQ(fs::read_symlink(trash(folder / "link")), target);
    EXPECT_EQ(fs::read_symlink(trash(folder / "slashed//")), target);
    EXPECT_EQ(fs::read_symlink(trash(folder / "dangling")), "nowhere");
    EXPECT_EQ(readFile(target / "inside"), "kept");
    EXPECT_EQ(readFile(trash(folder / "target/") / "inside"), "kept");
    EXPECT_FALSE(isThere(target));
}

TEST_F(RealTrashTests, ParentReferencesAreReadAsTheKernelReadsThem) {
    // By the kernel's reading "link/../item" lies beside the link's target, as text it lies beside the link.
    folder.makeFolder("far/target");
    fs::create_directory_symlink(folder / "far/target", folder / "link");
    folder.writeFile("far/item", "meant");
    const fs::path other = folder.writeFile("item", "other");
    EXPECT_EQ(readFile(trash(folder / "link/../item")), "meant");
    EXPECT_EQ(readFile(other), "other");
    for (const char* path : {"far/..", "far/../.", "missing/../item", "link/.", "far/./"})
        EXPECT_FALSE(service.moveToTrash(folder / path).get().succeeded()) << path;
    EXPECT_TRUE(isThere(folder / "link"));
    EXPECT_TRUE(isThere(other));
}

TEST_F(RealTrashTests, WhatCannotBeMovedStopsNothing) {
    const fs::path first = folder.makeFile("first");
    const fs::path last = folder.makeFile("last");
    // To the system this reads as the path of `last`.
    const fs::path withNUL = last.native() + std::string("\0x", 2);
    const std::vector<fs::path> items{
        first, folder / "missing", "", folder / "first/below", "/proc/self/status", "/", "/.", withNUL, first,
        last};
    const auto outcomes = service.moveToTrash(items).get();
    ASSERT_EQ(outcomes.size(), items.size());
    for (std::size_t index = 0; index < items.size(); ++index) {
        SCOPED_TRACE(index);
        const bool moves = index == 0 || index == items.size() - 1;
        EXPECT_EQ(outcomes[index].succeeded(), moves);
        EXPECT_EQ(outcomes[index].trashedTo.has_value(), moves);
        EXPECT_NE(outcomes[index].failure, "");
    }
    EXPECT_THAT(outcomes[1].failure.value_or(""), HasSubstr("No such file"));
    EXPECT_FALSE(isThere(last));
}

TEST_F(RealTrashTests, TheHomeTrashIsWhereItemsLand) {
    trash(folder.makeFile("a", 1000));
    service.volumeTrashURLsProvider = [] { return std::vector<fs::path>(); };
    const TrashSummary summary = service.summary(DiskScanner()).get();
    EXPECT_THAT(summary.locations, testing::ElementsAre(privateTrashFiles()));
    EXPECT_EQ(summary.itemCount, service.itemCount());
    EXPECT_GE(summary.size, 1000);

    // Another home: the usual place below it, whatever this user's settings are.
    folder.makeFile("home/.local/share/Trash/files/b", 10);
    folder.makeFolder("home/.Trash");
    EXPECT_EQ(TrashService(folder / "home").itemCount(), 1);
}

TEST_F(RealTrashTests, AnotherVolumeHasItsOwnTrash) {
    const auto image = MountedImage::make({.type = "ext4", .size = 64'000'000, .name = "my % volume\xFF"});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path volume = (*image)->path();
    const TemporaryFolder items(volume);
    const std::string user = std::to_string(::getuid());
    const fs::path own = volume / (".Trash-" + user) / "files";
    const fs::path shared = volume / ".Trash" / user / "files";
    const auto trashes = [&] {
        std::vector<fs::path> found;
        for (const fs::path& location : service.volumeTrashURLs())
            if (location.string().starts_with(volume.string()))
                found.push_back(location);
        return found;
    };
    EXPECT_TRUE(trashes().empty());

    for (int index = 0; index < 3; ++index) {
        const fs::path landed = trash(items.writeFile(std::to_string(index) + "/\xFE same%", "x"));
        EXPECT_EQ(landed.parent_path(), own);
        // Relative to the volume, so that it holds wherever that is mounted.
        EXPECT_EQ(volume / notedPath(landed), items / (std::to_string(index) + "/\xFE same%"));
    }
    EXPECT_THAT(trashes(), testing::ElementsAre(own / ""));

    fs::create_directory(volume / ".Trash");
    fs::create_directories(shared);
    EXPECT_THAT(trashes(), testing::ElementsAre(own / "")) << "a shared Trash without the sticky bit";
    fs::permissions(volume / ".Trash", fs::perms::all | fs::perms::sticky_bit);
    EXPECT_EQ(trash(items.makeFile("shared")), shared / "shared");
    EXPECT_THAT(trashes(), testing::ElementsAre(shared / "", own / ""));
    const TrashSummary summary = service.summary(DiskScanner()).get();
    EXPECT_THAT(summary.locations, testing::IsSupersetOf({shared / "", own / ""}));
    EXPECT_GE(summary.itemCount, 4);

    const std::string longName(242, 'n');
    EXPECT_EQ(notedPath(trash(items.makeFile(longName))), (items.path().filename() / longName));

    const fs::path kept = items.makeFile("kept");
    (*image)->remount("ro");
    EXPECT_THAT(service.moveToTrash(kept).get().failure.value_or(""), HasSubstr("Read-only"));
    EXPECT_TRUE(isThere(kept));
    (*image)->remount("rw");
}

TEST_F(RealTrashTests, WhereThereIsNoTrashItemsCanOnlyBeDeleted) {
    const fs::path item = folder.writeFile("one", "1");
    fs::create_symlink("/nowhere", folder / "link");
    EXPECT_EQ(wayOutOf(item), WayOut::trash);
    EXPECT_EQ(wayOutOf(folder / "link"), WayOut::trash) << "the link itself";
    EXPECT_EQ(wayOutOf(folder / "missing"), WayOut::none);
    EXPECT_EQ(wayOutOf("/"), WayOut::none);
    folder.makeFile("files/one");
    EXPECT_EQ(wayOutOf(folder / "files/one"), WayOut::trash) << "a name is no Trash";
    EXPECT_EQ(wayOutOf(trash(item)), WayOut::deletion) << "there already";
    folder.writeFile("whole/inside", "1");
    EXPECT_EQ(wayOutOf(trash(folder / "whole") / "inside"), WayOut::deletion);

    const auto memory = MountedImage::make({.type = "tmpfs", .size = 1'000'000});
    const auto disk = MountedImage::make({.type = "ext4", .size = 64'000'000});
    if (!memory || !disk)
        GTEST_SKIP() << (memory ? disk : memory).error();
    const TemporaryFolder passing((*memory)->path());
    EXPECT_EQ(wayOutOf(passing.makeFile("one")), WayOut::deletion);
    EXPECT_TRUE(service.moveToTrash(passing.path()).get().failure) << "so it is";
    const TemporaryFolder lasting((*disk)->path());
    const fs::path kept = lasting.makeFile("one");
    EXPECT_EQ(wayOutOf(kept), WayOut::trash);
    EXPECT_EQ(wayOutOf(trash(lasting.makeFile("two"))), WayOut::deletion);
    (*disk)->remount("ro");
    EXPECT_EQ(wayOutOf(kept), WayOut::none) << "which says nothing of a Trash";
    (*disk)->remount("rw");
}

TEST_F(RealTrashTests, AVolumeThatDoesNotAnswerHoldsNobodyUp) {
    const auto share = test::SilentShare::make();
    if (!share)
        GTEST_SKIP() << share.error();
    const fs::path own = (*share)->path() / (".Trash-" + std::to_string(::getuid())) / "files" / "";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(service.volumeTrashURLs(), testing::Contains(own));
    const TrashSummary summary = service.summary(DiskScanner()).get();
    EXPECT_THAT(summary.unanswered, testing::Contains(own));
    EXPECT_THAT(summary.locations, testing::Not(testing::Contains(own)));
    (void)service.summary(DiskScanner()); // dropped
    EXPECT_EQ(TrashService((*share)->path()).itemCount(), std::nullopt);
    EXPECT_EQ(TrashService((*share)->path()).summary(DiskScanner()).get().unanswered.size(), 3u);

    trash(folder.writeFile("thrown away", "x"));
    const auto finding = SpaceSaverProbe(privateHome(), 0).trashFinding(DiskScanner());
    ASSERT_TRUE(finding);
    EXPECT_FALSE(finding->sizeIsKnown);
    EXPECT_THAT(finding->paths, testing::Not(testing::Contains(own)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

/// What anybody can put on a volume that all may write to.
TEST_F(RealTrashTests, AnothersFolderOrLinkIsNotTheUsersTrash) {
    const uid_t user = ::getuid();
    const std::string name = std::to_string(user);
    const fs::path real = folder.makeFolder("real/files");
    const fs::path good = folder.makeFolder("good/.Trash-" + name + "/files");
    const fs::path shared = folder.makeFolder("shared/.Trash/" + name + "/files");
    fs::permissions(folder / "shared/.Trash", fs::perms::all | fs::perms::sticky_bit);
    EXPECT_TRUE(isUsersTrash(good, user));
    EXPECT_TRUE(isUsersTrash(shared / "", user));
    EXPECT_FALSE(isUsersTrash(good, user + 1));

    folder.makeFolder("linked");
    fs::create_symlink(real.parent_path(), folder / ("linked/.Trash-" + name));
    folder.makeFolder("inner/.Trash-" + name);
    fs::create_symlink(real, folder / ("inner/.Trash-" + name + "/files"));
    folder.makeFolder("linkedShared");
    fs::create_symlink(folder / "shared/.Trash", folder / "linkedShared/.Trash");
    folder.makeFolder("loose/.Trash/" + name + "/files");
    for (const std::string place :
         {"linked/.Trash-", "inner/.Trash-", "linkedShared/.Trash/", "loose/.Trash/"}) {
        const fs::path trash = folder / (place + name) / "files" / "";
        EXPECT_FALSE(isUsersTrash(trash, user)) << place;
        service.volumeTrashURLsProvider = [&] { return std::vector<fs::path>{trash}; };
        EXPECT_THAT(service.summary(DiskScanner()).get().locations, testing::Not(testing::Contains(trash)))
            << place;
    }
}

TEST_F(RealTrashTests, AVolumeWithoutATrashSaysSo) {
    const auto image = MountedImage::make({.type = "tmpfs", .size = 1'000'000});
    if (!image)
        GTEST_SKIP() << image.error();
    const TemporaryFolder items((*image)->path());
    const fs::path kept = items.makeFile("kept");
    EXPECT_THAT(service.moveToTrash(kept).get().failure.value_or(""), HasSubstr("not supported"));
    EXPECT_TRUE(isThere(kept));
}

} // namespace
} // namespace tarnwell
