#pragma once

// Moves items to the Trash, measures what lies there, and has it emptied.
//
// Where the home Trash is: on a Mac, ".Trash" in the home folder. On Linux, the "files" folder of the
// freedesktop.org Trash, because that is where moved items land; a home folder without one but with a
// ".Trash" (a Mac's home on another disk, for instance) is read as a Mac's.

#include "TarnwellCore/Actions/EmptyTrashOutcome.hpp"
#include "TarnwellCore/Actions/TrashJournal.hpp"
#include "TarnwellCore/Actions/TrashOutcome.hpp"
#include "TarnwellCore/Actions/TrashSummary.hpp"
#include "TarnwellCore/Analysis/CommandResult.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Items on their way to the Trash as one set, moved one at a time by whoever has something to see to before
/// each. Confined to one thread. Never throws once it is made.
class TrashMoves {
public:
    TrashMoves(TrashMoves&&) noexcept;
    TrashMoves& operator=(TrashMoves&&) noexcept;
    ~TrashMoves();

    /// Moves the item at this place in the list.
    TrashOutcome move(std::size_t number);

private:
    friend class TrashService;
    struct State;
    explicit TrashMoves(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

/// A value without mutable state: every operation works on a copy of the service, so it may be used from any
/// thread and may go away while an operation runs. Operations report failures as data and never throw, nor
/// do their futures. Dropping a future waits for its operation to end.
class TrashService {
    std::filesystem::path home_;

public:
    /// The service for a user's home folder, with effects on the real file system.
    explicit TrashService(std::filesystem::path home);

    /// The Trash folders outside the home folder. By default those of this user on the mounted volumes
    /// (hidden ones and the root volume left out) that exist, in the order of the volumes, and those of
    /// volumes that give no answer in time. Does not throw.
    std::function<std::vector<std::filesystem::path>()> volumeTrashURLsProvider;

    /// Moves one item and returns where it landed, if known; throws std::exception with the text for the
    /// user. By default the platform's Trash; a symbolic link is moved itself.
    std::function<std::optional<std::filesystem::path>(const std::filesystem::path&)> trashItem;

    /// Starts the tool that empties the Trash: its path, its arguments, the time-out and the grace period in
    /// seconds. By default `Shell::runAsync`, which gives nothing for a path that is no executable file.
    std::function<std::future<std::optional<CommandResult>>(const std::string&,
                                                            const std::vector<std::string>&, double, double)>
        runTool;

    /// Notes each move, so that `TrashRestorer` can put the item back. Moving goes on where that fails.
    TrashJournal journal;

    /// What the application calls the operations while they run.
    static constexpr std::string_view movingTitle = "Moving items to the Trash";
    static constexpr std::string_view emptyingTitle = "Emptying the Trash";

    const std::filesystem::path& home() const { return home_; }

    std::vector<std::filesystem::path> volumeTrashURLs() const { return volumeTrashURLsProvider(); }

    /// Moves the items one after another; one outcome each, in the same order. A failure stops nothing. Once
    /// cancelled, the items that are left stay where they are, which their outcomes say.
    std::future<std::vector<TrashOutcome>> moveToTrash(std::vector<std::filesystem::path> urls,
                                                       CancellationToken token = {}) const;
    std::future<TrashOutcome> moveToTrash(std::filesystem::path url) const;

    /// Notes what is about to be moved, for a caller that moves the items one by one. Works on a copy of the
    /// service and of the items.
    TrashMoves planMoves(std::vector<std::filesystem::path> urls) const;

    /// Asks the Finder to empty the Trash for good. `timeout` in seconds.
    std::future<EmptyTrashOutcome> emptyTrash(double timeout) const;

    /// The entries of the home Trash other than ".DS_Store"; nothing when it cannot be read or does not
    /// answer.
    std::optional<std::int64_t> itemCount() const;

    /// Measures the home Trash and the volumes' Trash folders. A folder that cannot be measured is left out;
    /// one whose server or process does not answer within about a second is named as such.
    std::future<TrashSummary> summary(DiskScanner scanner) const;
};

} // namespace tarnwell
