#pragma once

// What went to the Trash, from where, to where, when, and with what: what it takes to put it back, also after
// a restart and by another process.
//
// The file is text, a record a line, fields between tabs. Paths and other bytes are escaped as in URLs, so
// that a line is ASCII without blanks; times are whole milliseconds since 2001-01-01 00:00:00 UTC:
//
//     plan   SET  NUMBER  TIME  IDENTITY  FROM
//     moved  SET  NUMBER  TIME  IDENTITY  TO
//     gone   SET  NUMBER
//
// "plan" stands before an item is moved (NUMBER counts the items of the set), "moved" once it is in the
// Trash, "gone" once it is there no longer.
//
// SET is a UUID; IDENTITY is DEVICE:INODE:TYPE:BIRTH in decimals, BIRTH in nanoseconds since 1970 or "-". A
// line that is none of these is passed over, and so is what a crash has cut short. The plans of a set are on
// the disk before the first item is moved: of a crash in between, a plan without "moved" tells which item to
// look for in the Trash.
//
// Only the user can read the file and its lock (0600, `FileLock`). Processes take turns by the lock, for
// which none waits longer than some seconds.

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/ItemMoving.hpp"
#include "TarnwellCore/Platform/UUID.hpp"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace tarnwell {

/// One item that was moved, or was about to be.
struct TrashJournalEntry {
    /// What was moved in one go has one set; numbers are those of its items, in the order of moving.
    UUID set;
    std::size_t number = 0;
    /// When it came to its location; of one without, when that was planned.
    Date when = {};
    /// Absolute; the folder's links as they were resolved at the time.
    std::filesystem::path original;
    /// Where it came to lie; absent when nobody noted that.
    std::optional<std::filesystem::path> location;
    ItemIdentity identity;

    bool operator==(const TrashJournalEntry&) const = default;
};

/// Every function is safe from any thread; several objects and processes may share a file. What is asked of
/// it before and after a move never keeps the move from being made: such functions do their best.
class TrashJournal {
public:
    /// What the file may grow to before it is written anew, and how many entries it keeps then: the newest,
    /// of at most half that size.
    static constexpr std::size_t largestFile = std::size_t{4} << 20;
    static constexpr std::size_t mostEntries = 10'000;

    explicit TrashJournal(std::filesystem::path file = defaultFile(), FileCalls calls = FileCalls::live());

    /// "trash-journal.txt" beside the Snapshots folder.
    static std::filesystem::path defaultFile();

    /// How long a call waits for others to let go of the journal.
    std::chrono::milliseconds patience{3000};

    /// A set of items that are being moved.
    class Set {
    public:
        /// Notes that the item at this place in the list now lies there.
        void noteMoved(std::size_t number, const std::filesystem::path& location) noexcept;
        /// Brings what was noted to the disk.
        ~Set();
        Set(Set&& other) noexcept;
        Set& operator=(Set&&) = delete;

    private:
        friend class TrashJournal;
        explicit Set(const TrashJournal* journal) : journal_(journal) {}
        const TrashJournal* journal_; // null when nothing could be noted
        UUID id_ = UUID::random();
        std::vector<bool> isPlanned_ = {};
        bool hasMoved_ = false;
    };

    /// Notes which items are about to be moved, durably; items that are not there are left out. The journal
    /// must outlive the set.
    Set plan(const std::vector<std::filesystem::path>& items) const noexcept;

    /// All entries, oldest first; none where there is no journal. Throws std::system_error when it cannot be
    /// read or is not let go of.
    std::vector<TrashJournalEntry> entries() const;

    /// Drops these entries. The file is written anew when it has become large, otherwise the loss is noted.
    void forget(const std::vector<TrashJournalEntry>& entries) const noexcept;

private:
    class Locked;
    std::filesystem::path file_;
    FileCalls calls_;
};

} // namespace tarnwell
