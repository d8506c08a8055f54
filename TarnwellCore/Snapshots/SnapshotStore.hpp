#pragma once

// The folder of stored snapshots, one file "<UUID>.json" each, shared with every other program of the
// product: nothing is cached, and whatever else lies in the folder is left alone.

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/UnfairLock.hpp"
#include "TarnwellCore/Snapshots/ScanSnapshot.hpp"

#include <filesystem>
#include <optional>
#include <vector>

namespace tarnwell {

/// Safe from any thread: the operations of one store run one after another. Stores on the same folder, also
/// those of other processes, are not coordinated and need not be: a file appears and goes at once, whole.
/// Errors are std::system_error with the path and the system's text.
class SnapshotStore {
public:
    /// Opens the folder, the default one unless another is given, and makes it where it is missing. Throws
    /// when it cannot be made.
    explicit SnapshotStore(std::optional<std::filesystem::path> directory = std::nullopt,
                           FileCalls calls = FileCalls::live());

    /// "Tarnwell/Snapshots" in the user's folder for application support files.
    static std::filesystem::path defaultDirectory();

    const std::filesystem::path& directory() const { return directory_; }

    /// Writes "<id>.json", which only the user may read, in place of a file of that name, and returns when it
    /// would survive a loss of power. Other snapshots that others may read are theirs no longer; neither is
    /// the folder, where it is the default one. A save that throws has changed nothing and left nothing (see
    /// DurableFile.hpp). Throws std::range_error for a date that cannot be written.
    void save(const ScanSnapshot& snapshot);

    /// Every stored snapshot, newest first, those of the same second by the time of their files, newest
    /// first, so that `latest` is the last one stored. Looks at the files (or links to files) with the
    /// extension "json", hidden ones included; one that cannot be read or is not a snapshot is passed over.
    /// Throws when the folder cannot be listed.
    std::vector<ScanSnapshot> list() const;

    /// Removes "<id>.json"; does nothing when there is none. Throws when it cannot be removed.
    void deleteSnapshot(const UUID& id);

private:
    void makeOlderOnesPrivate() const;
    std::filesystem::path fileOf(const UUID& id) const;
    /// What may be snapshots, the file that was written last in front.
    std::vector<std::filesystem::path> snapshotFiles() const;
    std::optional<ScanSnapshot> read(const std::filesystem::path& file) const;

    const bool isOwnFolder_; // nobody else's things lie in it
    const std::filesystem::path directory_;
    const FileCalls calls_;
    mutable UnfairLock lock_; // around every operation on the folder
};

} // namespace tarnwell
