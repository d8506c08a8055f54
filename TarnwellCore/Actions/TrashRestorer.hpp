#pragma once

// Puts what lies in the Trash back where it was: items that this system moved there, which the journal knows,
// and on Linux those that the desktop did, by the notes beside them.

#include "TarnwellCore/Actions/TrashJournal.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/UUID.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// One item in a Trash folder.
struct TrashedItem {
    /// Where it lies. This is what `restore` takes.
    std::filesystem::path location;
    /// Where it was; absent when nobody noted that, and then it cannot be restored.
    std::optional<std::filesystem::path> original = {};
    std::optional<Date> trashedAt = {};
    /// What this system moved in one go has one set.
    std::optional<UUID> set = {};
    /// Its place in the order in which the items of the set were moved.
    std::size_t number = 0;
    bool isFolder = false;

    bool operator==(const TrashedItem&) const = default;
};

struct TrashListing {
    /// The latest first, of one set the one moved last; those without a date last, by location.
    std::vector<TrashedItem> items;
    /// Trash folders of volumes that gave no answer in time.
    std::vector<std::filesystem::path> unanswered;
};

/// Why an item was left in the Trash.
enum class RestoreRefusal {
    notThere,      // nothing lies there any more
    unknownOrigin, // nobody noted where it was, or the note is none
    changed,       // something else lies there now under its name
    otherVolume,   // the folder where it was is on another volume now
    cancelled,     // that was called off before its turn
};

/// What became of one item.
struct RestoreOutcome {
    /// The location asked for.
    std::filesystem::path source;
    /// Where it is now; absent when it was not restored.
    std::optional<std::filesystem::path> restoredTo = {};
    /// Something else is where it was: it stands beside that under a name of its own.
    bool hasOtherName = false;
    /// Set when it was refused; `failure` says so in words.
    std::optional<RestoreRefusal> refusal = {};
    /// Why it was not restored, for the user: a refusal or the system's text.
    std::optional<std::string> failure = {};

    bool succeeded() const { return !failure.has_value(); }

    bool operator==(const RestoreOutcome&) const = default;
};

/// A value without mutable state: every operation works on a copy, so it may be used from any thread and may
/// go away while an operation runs. Operations report failures as data and never throw, nor do their futures.
/// Dropping a future waits for its operation. A volume that does not answer holds nobody up.
///
/// An item that is restored is never put over something: it gets a free name then, "report (restored).pdf",
/// "report (restored 2).pdf" and so on. Folders that are missing on the way are made. A link on the way is
/// followed only if the user or the system made it, and never for what a note on a volume says: such a note
/// may lead to places on that volume alone. What is moved is the item that is meant: its device, inode, kind
/// and time of birth were noted, and a file that has taken its name stays.
class TrashRestorer {
public:
    /// For the Trash of a user's home folder and of the mounted volumes.
    explicit TrashRestorer(std::filesystem::path home, TrashJournal journal = TrashJournal());

    // --- Effects: replaceable, with live defaults --------------------------------------------------------

    /// The Trash folders: the home's first, then those of the volumes (`TrashFolders`).
    std::function<std::vector<std::filesystem::path>(const std::filesystem::path& home)> trashFolders;

    /// Moves an item to another folder of its file system under a name that is free: 0, or the number of the
    /// system's error. By default `moveExclusively`.
    std::function<int(int fromFolder, const char* fromName, int toFolder, const char* toName)> move;

    // -----------------------------------------------------------------------------------------------------

    const std::filesystem::path& home() const { return home_; }

    /// What lies in the Trash; once cancelled, what was seen until then. The journal forgets what has left
    /// it.
    std::future<TrashListing> list(CancellationToken token = {}) const;

    /// Restores the items at these places; one outcome each, in the same order. Of items of one set the one
    /// moved last is restored first, so that a folder is there before what was taken out of it. Once
    /// cancelled, those that are left stay in the Trash.
    std::future<std::vector<RestoreOutcome>> restore(std::vector<std::filesystem::path> locations,
                                                     CancellationToken token = {}) const;

    /// Restores what of a set is still in the Trash, in the order in which it was moved; nothing for an
    /// unknown set.
    std::future<std::vector<RestoreOutcome>> restoreSet(UUID set, CancellationToken token = {}) const;

private:
    std::filesystem::path home_;
    TrashJournal journal_;
};

} // namespace tarnwell
