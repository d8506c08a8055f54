#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Snapshots/SnapshotCoding.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include "Tests/Support/FaultyFileCalls.hpp"
#include "Tests/Support/SampleSnapshots.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::FaultyFileCalls;
using test::makeSnapshot;
using test::TemporaryFolder;
using testing::ElementsAre;

/// What an operation throws says; empty when it does not throw.
template <class Operation>
std::string failureOf(Operation operation) {
    try {
        operation();
        return {};
    } catch (const std::system_error& error) {
        return error.what();
    }
}

std::ptrdiff_t fileCount(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

TEST(SnapshotStore, LivesInApplicationSupport) {
    const fs::path support =
        applicationSupportDirectory().value_or(homeDirectory() / "Library/Application Support");
    EXPECT_EQ(SnapshotStore::defaultDirectory(), support / "Tarnwell/Snapshots");
}

TEST(SnapshotStore, SavesListsAndDeletes) {
    const TemporaryFolder folder;
    SnapshotStore store(folder / "new/with parents");
    EXPECT_TRUE(store.list().empty());
    const ScanSnapshot middle = makeSnapshot(2000);
    const ScanSnapshot newest = makeSnapshot(3000);
    ScanSnapshot oldest = makeSnapshot(1000);
    for (const ScanSnapshot& snapshot : {middle, newest, oldest})
        store.save(snapshot);
    EXPECT_THAT(store.list(), ElementsAre(newest, middle, oldest));
    EXPECT_EQ(test::readFile(store.directory() / (middle.id.text() + ".json")),
              SnapshotCoding::encode(middle));

    oldest.rootPath = "/elsewhere";
    store.save(oldest);
    EXPECT_THAT(SnapshotStore(store.directory()).list(), ElementsAre(newest, middle, oldest));
    store.deleteSnapshot(middle.id);
    store.deleteSnapshot(middle.id);
    store.deleteSnapshot(UUID::random());
    EXPECT_THAT(store.list(), ElementsAre(newest, oldest));
    EXPECT_EQ(fileCount(store.directory()), 2);
}

TEST(SnapshotStore, SnapshotsOfOneSecondStandInTheOrderOfTheirFiles) {
    const TemporaryFolder folder;
    SnapshotStore store(folder.path());
    std::vector<ScanSnapshot> newestFirst;
    for (int age = 0; age < 50; ++age) {
        const int second = age / 10;
        newestFirst.push_back(makeSnapshot(1000 - second));
        store.save(newestFirst.back());
        // Also where the whole folder was copied and newer snapshots have older files.
        fs::last_write_time(folder / (newestFirst.back().id.text() + ".json"),
                            fs::file_time_type::clock::now() + std::chrono::hours(second * 100 - age));
    }
    EXPECT_EQ(store.list(), newestFirst);
}

TEST(SnapshotStore, ForeignThingsAreLeftAloneAndHinderNothing) {
    const TemporaryFolder folder;
    const TemporaryFolder elsewhere;
    SnapshotStore store(folder.path());
    const ScanSnapshot saved = makeSnapshot(3000);
    const ScanSnapshot copied = makeSnapshot(2000);
    const ScanSnapshot linked = makeSnapshot(1000);
    store.save(saved);
    folder.writeFile(".hidden copy.json", SnapshotCoding::encode(copied));
    fs::create_symlink(elsewhere.writeFile("linked", SnapshotCoding::encode(linked)), folder / "link.json");

    const std::string whole = SnapshotCoding::encode(makeSnapshot());
    for (const char* name : {"x.JSON", "x.json.tmp", "x.txt", "json", ".json", "x.json ", "xjson"})
        folder.writeFile(name, whole);
    folder.writeFile("half.json", whole.substr(0, whole.size() / 2));
    folder.writeFile("empty.json", "");
    folder.writeFile("deep.json", std::string(5'000'000, '['));
    folder.writeFile("latin.json", "{\"caf\xe9\": 1}");
    folder.writeFile(folder.takesAnyName() ? "\xff\xfe.json" : "bytes.json",
                     std::string("\xff\xfe{\0}\0", 6));
    fs::resize_file(folder.writeFile("huge.json", ""), std::uintmax_t{1} << 40);
    folder.makeFolder("folder.json");
    fs::create_symlink(folder / "nothing", folder / "dangling.json");
    fs::create_symlink("loop.json", folder / "loop.json");
    fs::create_symlink("/dev/zero", folder / "device.json");
    ASSERT_EQ(::mkfifo((folder / "pipe.json").c_str(), 0666), 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (folder / "socket.json").c_str(), sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(socket);

    // To open a device may do something, and a pipe is somebody's.
    FileCalls calls = FileCalls::live();
    calls.open = [](const char* path, int flags, mode_t mode) {
        EXPECT_TRUE(fs::is_regular_file(path)) << path;
        return FileCalls::live().open(path, flags, mode);
    };
    const std::ptrdiff_t count = fileCount(folder.path());
    EXPECT_THAT(SnapshotStore(folder.path(), calls).list(), ElementsAre(saved, copied, linked));
    EXPECT_EQ(fileCount(folder.path()), count);

    // Put in a file's place once it was looked at.
    calls.open = [](const char*, int flags, mode_t mode) {
        return FileCalls::live().open("/dev/zero", flags, mode);
    };
    calls.read = [](int, void*, std::size_t) -> ssize_t {
        ADD_FAILURE() << "reads a device";
        return -1;
    };
    EXPECT_TRUE(SnapshotStore(folder.path(), calls).list().empty());
}

TEST(SnapshotStore, SnapshotsAreNobodyElsesToRead) {
    const TemporaryFolder folder;
    const TemporaryFolder elsewhere;
    SnapshotStore store(folder.path());
    const auto modeOf = [](const fs::path& path) { return fs::status(path).permissions(); };
    const std::string older = UUID::random().text() + ".json";
    const std::string linked = UUID::random().text() + ".json";
    const std::string notes[] = {"notes.json", UUID::random().text() + ".txt"};
    for (const std::string& name : {older, notes[0], notes[1]})
        fs::permissions(folder.writeFile(name, ""), fs::perms(0644));
    // Another name of a file elsewhere, put here by somebody.
    fs::permissions(elsewhere.writeFile("theirs", ""), fs::perms(0644));
    fs::create_hard_link(elsewhere / "theirs", folder / linked);
    fs::create_symlink(elsewhere / "theirs", folder / (UUID::random().text() + ".json"));
    fs::permissions(folder.path(), fs::perms(0755));
    const ScanSnapshot snapshot = makeSnapshot();
    store.save(snapshot);
    EXPECT_EQ(modeOf(folder / (snapshot.id.text() + ".json")), fs::perms(0600));
    EXPECT_EQ(modeOf(folder / older), fs::perms(0600));
    for (const std::string& name : notes)
        EXPECT_EQ(modeOf(folder / name), fs::perms(0644)) << name;
    EXPECT_EQ(modeOf(elsewhere / "theirs"), fs::perms(0644));
    EXPECT_EQ(modeOf(folder.path()), fs::perms(0755))
        << "whoever named the folder knows who may look into it";
#ifdef __linux__
    ::setenv("XDG_DATA_HOME", folder.path().c_str(), 1);
    fs::permissions(folder.makeFolder("Tarnwell/Snapshots"), fs::perms(0755));
    SnapshotStore().save(snapshot);
    ::unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(modeOf(folder / "Tarnwell/Snapshots"), fs::perms(0700));
#endif
}

TEST(SnapshotStore, UnreadableFilesAndFoldersAreWhatTheyAre) {
    const TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms::all);
    SnapshotStore store(folder.path());
    folder.writeFile("readable.json", SnapshotCoding::encode(makeSnapshot()));
    const fs::path unreadable = folder.writeFile("unreadable.json", SnapshotCoding::encode(makeSnapshot()));
    fs::permissions(unreadable, fs::perms::none);
    EXPECT_EQ(test::runUnprivileged([&] { return std::to_string(store.list().size()); }), "1");

    const ScanSnapshot snapshot = makeSnapshot();
    const std::string file = (folder / (snapshot.id.text() + ".json")).string();
    const auto unprivilegedFailure = [](const auto& operation) {
        return test::runUnprivileged([&] { return failureOf(operation); });
    };
    fs::permissions(folder.path(), fs::perms(0555));
    EXPECT_EQ(unprivilegedFailure([&] { store.save(snapshot); }),
              "Could not write " + file + ": Permission denied");
    EXPECT_EQ(fileCount(folder.path()), 2);
    fs::permissions(folder.path(), fs::perms::none);
    EXPECT_EQ(unprivilegedFailure([&] { store.list(); }),
              "Could not list " + folder.path().string() + ": Permission denied");
    EXPECT_EQ(unprivilegedFailure([&] { SnapshotStore(folder / "a/b"); }),
              "Could not create " + (folder / "a/b").string() + ": Permission denied");
}

TEST(SnapshotStore, WhatIsGoneOrInTheWayIsNamed) {
    const TemporaryFolder folder;
    SnapshotStore store(folder / "store");
    const ScanSnapshot snapshot = makeSnapshot();
    const std::string file = store.directory() / (snapshot.id.text() + ".json");
    fs::create_directory(file);
    EXPECT_THAT(failureOf([&] { store.deleteSnapshot(snapshot.id); }),
                testing::StartsWith("Could not remove " + file + ": "));
    EXPECT_TRUE(fs::is_directory(file));
    fs::remove_all(store.directory());
    EXPECT_EQ(failureOf([&] { store.list(); }),
              "Could not list " + store.directory().string() + ": No such file or directory");
    EXPECT_EQ(failureOf([&] { store.save(snapshot); }),
              "Could not write " + file + ": No such file or directory");
    EXPECT_NO_THROW(store.deleteSnapshot(snapshot.id));
}

TEST(SnapshotStore, EveryCallOfASaveMayFailAndTheOlderOnesStay) {
    const TemporaryFolder folder;
    const ScanSnapshot older = makeSnapshot(1000);
    SnapshotStore(folder.path()).save(older);
    for (const int error : {ENOSPC, EIO, EDQUOT, EROFS, EMFILE}) {
        for (int call = 0;; ++call) {
            FaultyFileCalls faults;
            SnapshotStore store(folder.path(), faults.failing(call, error));
            const ScanSnapshot newer = makeSnapshot(2000);
            const std::string failure = failureOf([&] { store.save(newer); });
            if (failure.empty())
                break;
            EXPECT_NE(failure.find(std::strerror(error)), std::string::npos) << failure;
            EXPECT_THAT(SnapshotStore(folder.path()).list(), ElementsAre(older)) << "call " << call;
            EXPECT_EQ(fileCount(folder.path()), 1) << "call " << call;
        }
        for (const ScanSnapshot& snapshot : SnapshotStore(folder.path()).list())
            if (snapshot != older)
                SnapshotStore(folder.path()).deleteSnapshot(snapshot.id);
    }
    ScanSnapshot undated = makeSnapshot(1e18);
    EXPECT_THROW(SnapshotStore(folder.path()).save(undated), std::range_error);
    EXPECT_EQ(fileCount(folder.path()), 1);
}

TEST(SnapshotStore, FilesThatCannotBeReadToTheEndArePassedOver) {
    const TemporaryFolder folder;
    SnapshotStore(folder.path()).save(makeSnapshot());
    // Open and two reads, of which the second finds the end.
    for (int call = 0; call < 3; ++call) {
        FaultyFileCalls faults;
        EXPECT_TRUE(SnapshotStore(folder.path(), faults.failing(call, EIO)).list().empty())
            << "call " << call;
        EXPECT_TRUE(faults.hasFailed());
    }
    EXPECT_EQ(SnapshotStore(folder.path(), FaultyFileCalls::halting()).list().size(), 1u);
}

TEST(SnapshotStore, ThreadsShareAStore) {
    const TemporaryFolder folder;
    SnapshotStore store(folder.path());
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index)
        threads.emplace_back([&] {
            for (int round = 0; round < 10; ++round) {
                const ScanSnapshot snapshot = makeSnapshot();
                store.save(snapshot);
                store.save(makeSnapshot());
                const std::vector<ScanSnapshot> listed = store.list();
                EXPECT_NE(std::ranges::find(listed, snapshot), listed.end());
                store.deleteSnapshot(snapshot.id);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(store.list().size(), 40u);
}

} // namespace
} // namespace tarnwell
