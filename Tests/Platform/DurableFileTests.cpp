#include "TarnwellCore/Platform/DurableFile.hpp"

#include "Tests/Support/FaultyFileCalls.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cerrno>
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
