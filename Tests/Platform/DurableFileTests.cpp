#include "TarnwellCore/Platform/DurableFile.hpp"
#include "TarnwellCore/Platform/UUID.hpp"

#include "Tests/Support/FaultyFileCalls.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <iterator>
#include <set>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::FaultyFileCalls;
using test::readFile;
using test::TemporaryFolder;

std::set<std::string> names(const fs::path& folder) {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        names.insert(entry.path().filename().string());
    return names;
}

/// The description of the failure; empty when the writing succeeded.
std::string failureOfWriting(const fs::path& file, std::string_view contents, const FileCalls& calls) {
    try {
        replaceFileDurably(file, contents, calls);
        return {};
    } catch (const std::system_error& error) {
        return error.what();
    }
}

TEST(DurableFile, EveryCallMayFailAndNothingIsLostOrLeft) {
    const TemporaryFolder folder;
    folder.writeFile("other", "other");
    const fs::path file = folder / "file";
    const std::string failure = "Could not write " + file.string() + ": No space left on device";

    FaultyFileCalls faults;
    int call = 0;
    for (;; ++call) {
        const std::string outcome = failureOfWriting(file, "new", faults.failing(call, ENOSPC));
        if (!faults.hasFailed() || outcome.empty())
            break;
        EXPECT_EQ(outcome, failure) << "call " << call;
        EXPECT_EQ(names(folder.path()), (std::set<std::string>{"other"})) << "call " << call;
    }
    // Opening the folder and the file, write, sync, close, rename, sync of the folder: then only the folder's
    // own closing is left, which tells nothing about the file.
    EXPECT_EQ(call, 7);
    EXPECT_EQ(readFile(file), "new");

    for (call = 0; call < 6; ++call) {
        EXPECT_EQ(failureOfWriting(file, "newer", faults.failing(call, ENOSPC)), failure) << "call " << call;
        EXPECT_EQ(names(folder.path()), (std::set<std::string>{"file", "other"})) << "call " << call;
        EXPECT_EQ(readFile(file), "new") << "call " << call;
    }
    // The older file is gone when the folder cannot be synced: the newer one stays, whole.
    EXPECT_EQ(failureOfWriting(file, "newer", faults.failing(6, ENOSPC)), failure);
    EXPECT_EQ(names(folder.path()), (std::set<std::string>{"file", "other"}));
    EXPECT_EQ(readFile(file), "newer");
}

TEST(DurableFile, FoldersThatKnowNoSyncAreNoFailure) {
    const TemporaryFolder folder;
    for (const int error : {EINVAL, ENOTSUP}) {
        FaultyFileCalls faults;
        replaceFileDurably(folder / "file", "contents", faults.failing(6, error));
        EXPECT_TRUE(faults.hasFailed());
    }
    EXPECT_EQ(readFile(folder / "file"), "contents");
}

TEST(DurableFile, ShortWritesAndInterruptionsAreGoneOnAfter) {
    const TemporaryFolder folder;
    const std::string contents(10'001, 'x');
    replaceFileDurably(folder / "file", contents, FaultyFileCalls::halting());
    EXPECT_EQ(readFile(folder / "file"), contents);
}

TEST(DurableFile, WhatIsInTheWayIsNamed) {
    const TemporaryFolder folder;
    const fs::path taken = folder.makeFolder("taken");
    folder.writeFile("taken/inside", "");
    EXPECT_EQ(failureOfWriting(taken, "new", FileCalls::live()),
              "Could not write " + taken.string() + ": Is a directory");
    const fs::path nowhere = folder / "nowhere/file";
    EXPECT_EQ(failureOfWriting(nowhere, "new", FileCalls::live()),
              "Could not write " + nowhere.string() + ": No such file or directory");
    const fs::path file = folder.writeFile("file", "");
    try {
        createFoldersDurably(file / "below");
        ADD_FAILURE() << "made a folder below a file";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), "Could not create " + (file / "below").string() + ": Not a directory");
    }
    EXPECT_EQ(names(folder.path()), (std::set<std::string>{"taken", "file"}));
}

TEST(DurableFile, WhatKilledWritersLeftIsRemovedOnceItIsOld) {
    const TemporaryFolder folder;
    const std::string id = "3F2A8C1E-0B4D-4E6F-8A9B-C0D1E2F3A4B5";
    const std::string other = "0F2A8C1E-0B4D-4E6F-8A9B-C0D1E2F3A4B5";
    const std::string kept[] = {
        ".file." + id + ".tmp.x",
        "file." + id + ".tmp",
        "." + id + ".tmp",
        ".file2." + id + ".tmp",
        ".file." + id.substr(1) + "Z.tmp",
        ".file..tmp",
        "." + other + "file." + id + ".tmp",
    };
    const std::string removed = ".file." + id + ".tmp";
    const std::string young = ".file." + other + ".tmp";
    const std::string held = ".file." + UUID::random().text() + ".tmp";
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(25);
    for (const std::string& name : kept)
        fs::last_write_time(folder.writeFile(name, ""), old);
    for (const std::string& name : {removed, held})
        fs::last_write_time(folder.writeFile(name, ""), old);
    folder.writeFile(young, "");
    const std::string link = ".file." + UUID::random().text() + ".tmp";
    fs::create_symlink(young, folder / link);
    const int writer = ::open((folder / held).c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(writer, LOCK_EX), 0);

    std::set<std::string> expected(std::begin(kept), std::end(kept));
    expected.insert({young, held, link, "file"});
    replaceFileDurably(folder / "file", "new");
    EXPECT_EQ(names(folder.path()), expected);
    ::close(writer);
    replaceFileDurably(folder / "file", "newer");
    expected.erase(held);
    EXPECT_EQ(names(folder.path()), expected);

    // Names that differ in a leading identity are of one kind; a file that is being written is locked.
    fs::last_write_time(folder.writeFile("." + id + ".json." + id + ".tmp", ""), old);
    FileCalls calls = FileCalls::live();
    bool isHeldUntilRenamed = false;
    calls.rename = [&](const char* from, const char* to) {
        const int descriptor = ::open(from, O_RDONLY | O_CLOEXEC);
        isHeldUntilRenamed = ::flock(descriptor, LOCK_EX | LOCK_NB) == -1;
        ::close(descriptor);
        return ::rename(from, to);
    };
    replaceFileDurably(folder / (other + ".json"), "new", calls);
    EXPECT_TRUE(isHeldUntilRenamed);
    expected.insert(other + ".json");
    EXPECT_EQ(names(folder.path()), expected);
}

TEST(DurableFile, WhatIsMadeIsOnePersons) {
    const TemporaryFolder folder;
    const mode_t mask = ::umask(0);
    createFoldersDurably(folder / "a/b");
    fs::permissions(folder.writeFile("a/b/file", "old"), fs::perms(0666));
    for (const char* name : {"file", "new"})
        replaceFileDurably(folder / "a/b" / name, "text");
    ::umask(mask);
    for (const char* name : {"a", "a/b"})
        EXPECT_EQ(fs::status(folder / name).permissions(), fs::perms(0700)) << name;
    for (const char* name : {"a/b/file", "a/b/new"})
        EXPECT_EQ(fs::status(folder / name).permissions(), fs::perms(0600)) << name;
    if (::geteuid() != 0)
        return;
    // What root makes in another's folder.
    constexpr uid_t alice = 4711;
    ASSERT_EQ(::chown((folder / "a").c_str(), alice, alice), 0);
    createFoldersDurably(folder / "a/c/d");
    replaceFileDurably(folder / "a/c/d/file", "text");
    for (const char* name : {"a/c", "a/c/d", "a/c/d/file"}) {
        struct stat status = {};
        EXPECT_EQ(::lstat((folder / name).c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, alice) << name;
    }
}

TEST(DurableFile, FoldersAreMadeWithThoseAbove) {
    const TemporaryFolder folder;
    for (const char* path : {"a/b/c", "a/b/c", "a/b/d/", "a"}) {
        createFoldersDurably(folder / path);
        EXPECT_TRUE(fs::is_directory(folder / path)) << path;
    }
}

TEST(DurableFile, FoldersThatMayNotSurviveAreNotLeft) {
    const TemporaryFolder folder;
    const fs::path below = folder / "a/b";
    int failures = 0;
    for (int call = 0; call < 6; ++call) {
        FaultyFileCalls faults;
        try {
            createFoldersDurably(below, faults.failing(call, EIO));
        } catch (const std::system_error& error) {
            ++failures;
            EXPECT_EQ(error.what(), "Could not create " + below.string() + ": Input/output error");
            EXPECT_EQ(names(folder.path()), std::set<std::string>{}) << "call " << call;
        }
        fs::remove_all(folder / "a");
    }
    EXPECT_EQ(failures, 2); // the sync of each folder above
}

} // namespace
} // namespace tarnwell
