#include "TarnwellCore/Actions/TrashJournal.hpp"

#include "Tests/Support/FaultyFileCalls.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <thread>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::TemporaryFolder;

/// Moves files as a service would, and has each noted.
void moveAll(const TrashJournal& journal, const TemporaryFolder& folder,
             const std::vector<std::string>& names) {
    std::vector<fs::path> items;
    for (const std::string& name : names)
        items.push_back(folder.makeFile("from/" + name));
    fs::create_directories(folder / "trash");
    TrashJournal::Set set = journal.plan(items);
    for (std::size_t number = 0; number < items.size(); ++number) {
        fs::rename(items[number], folder / "trash" / items[number].filename());
        set.noteMoved(number, folder / "trash" / items[number].filename());
    }
}

TEST(TrashJournal, TellsWhatWasMovedToWhomeverAsks) {
    const TemporaryFolder folder;
    const fs::path file = folder / "support/Tarnwell/journal.txt";
    const TrashJournal journal(file);
    EXPECT_TRUE(journal.entries().empty());
    EXPECT_FALSE(fs::exists(folder / "support")) << "asking makes nothing";
    moveAll(journal, folder, {"a\tb\n%", "two"});
    {
        (void)journal.plan({folder / "missing"});
    }
    {
        (void)journal.plan({folder.makeFile("from/never moved")});
    }

    const auto entries = TrashJournal(file).entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].original, folder / "from/a\tb\n%");
    EXPECT_EQ(entries[0].location, folder / "trash/a\tb\n%");
    EXPECT_EQ(entries[0].identity, itemIdentity(AT_FDCWD, entries[0].location->c_str()));
    EXPECT_EQ(entries[1].set, entries[0].set);
    EXPECT_EQ(entries[1].number, 1u);
    EXPECT_NE(entries[2].set, entries[0].set);
    EXPECT_EQ(entries[2].location, std::nullopt);
    for (const fs::path& each : {file, file.parent_path() / ".journal.txt.lock"}) {
        struct stat status = {};
        ASSERT_EQ(::stat(each.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600u) << each;
    }

    journal.forget({entries[0], entries[2]});
    EXPECT_EQ(journal.entries(), std::vector{entries[1]});
}

TEST(TrashJournal, BrokenLinesCostNobodyElse) {
    const TemporaryFolder folder;
    const TrashJournal journal(folder / "journal.txt");
    moveAll(journal, folder, {"one"});
    const auto before = journal.entries();
    const std::string whole = test::readFile(folder / "journal.txt");
    std::ofstream(folder / "journal.txt", std::ios::app)
        << "nonsense\nplan\t\nplan\t" << UUID::random().text() << "\t1\t2\t3:4:1:-\trelative\n"
        << "moved\t" << UUID::random().text() << "\t0\t2\t3:4:1:-\t/a\n"
        << whole.substr(0, 20); // cut short
    EXPECT_EQ(journal.entries(), before);
    moveAll(journal, folder, {"two"});
    EXPECT_EQ(journal.entries().size(), 2u);
}

TEST(TrashJournal, IsBounded) {
    const TemporaryFolder folder;
    const TrashJournal journal(folder / "journal.txt");
    moveAll(journal, folder, {"one"});
    const std::string lines = test::readFile(folder / "journal.txt");
    const auto grow = [&](auto piece) {
        std::ofstream file(folder / "journal.txt", std::ios::app);
        while (static_cast<std::size_t>(file.tellp()) < TrashJournal::largestFile)
            file << piece();
    };
    grow([&] { return lines; });
    moveAll(journal, folder, {"two"});
    EXPECT_EQ(journal.entries().size(), 2u);
    EXPECT_LT(fs::file_size(folder / "journal.txt"), 10'000u);

    grow([] {
        return "plan\t" + UUID::random().text() + "\t0\t2\t3:4:1:-\t/" + std::string(4000, 'x') + "\n";
    });
    moveAll(journal, folder, {"three"});
    EXPECT_LT(fs::file_size(folder / "journal.txt"), TrashJournal::largestFile * 5 / 8);
    EXPECT_EQ(journal.entries().back().original, folder / "from/three");
}

TEST(TrashJournal, NothingKeepsAMoveFromBeingMade) {
    const TemporaryFolder folder;
    TrashJournal held(folder / "journal.txt");
    moveAll(held, folder, {"one"});
    held.patience = std::chrono::milliseconds(50);
    const int lock = ::open((folder / ".journal.txt.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    moveAll(held, folder, {"two"});
    EXPECT_THROW(held.entries(), std::system_error);
    ::close(lock);
    EXPECT_EQ(held.entries().size(), 1u);

    fs::create_symlink(folder / "elsewhere", folder / "link.txt");
    moveAll(TrashJournal(folder / "link.txt"), folder, {"three"});
    EXPECT_FALSE(fs::exists(folder / "elsewhere"));
    moveAll(TrashJournal("/dev/null/journal.txt"), folder, {"four"});

    // Many at once: no line is lost or torn.
    std::vector<std::thread> threads;
    const fs::path file = folder / "shared.txt";
    for (int index = 0; index < 4; ++index)
        threads.emplace_back([&, index] {
            for (int round = 0; round < 5; ++round)
                moveAll(TrashJournal(file), folder, {std::to_string(index) + "." + std::to_string(round)});
        });
    for (std::thread& thread : threads)
        thread.join();
    const auto entries = TrashJournal(file).entries();
    EXPECT_EQ(entries.size(), 20u);
    for (const TrashJournalEntry& entry : entries)
        EXPECT_TRUE(entry.location);
}

} // namespace
} // namespace tarnwell
