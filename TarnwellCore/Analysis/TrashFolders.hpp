#pragma once

// The user's Trash folders on all volumes, and what they hold, without waiting for a volume that does not
// answer.

#include "TarnwellCore/Scanning/DirectoryMeasurement.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

/// Every function is safe from any thread. A file system that may hang, the network's or one that a process
/// serves, is given about a second to answer; a measurement goes on for as long as it keeps answering.
/// Whatever waits for it is left behind on a thread of its own.
namespace tarnwell::TrashFolders {

/// The one that holds the trashed items of this home folder; it need not exist. Some folder of the home when
/// that does not answer.
std::filesystem::path ofHome(const std::filesystem::path& home);

/// Those of this user on the mounted volumes (hidden ones and the root volume left out), in the order of the
/// volumes: the folders that exist and are the user's own, and those of volumes that give no answer.
std::vector<std::filesystem::path> onVolumes();

/// Whether the folder's file system answers.
bool answers(const std::filesystem::path& folder);

/// Whether the folder is there and, where it is named as one of a volume, this user's own: nothing that
/// others put in its place. Nothing when its file system does not answer.
std::optional<bool> isThere(const std::filesystem::path& folder);

/// Opens a Trash folder for reading, to empty it; only a folder of this user. One that is named as one of a
/// volume is opened below the volume, without following a link and without leaving the volume, so that
/// nothing that others rename or put there meanwhile leads elsewhere. May wait where the file system does not
/// answer. -1 and errno on failure.
int openOwn(const std::filesystem::path& folder);

struct Contents {
    enum class State {
        measured,
        missing,    // nothing there, or what is there is not the user's Trash
        unreadable, // the scanner's error
        unanswered, // the volume does not answer
    };
    State state = State::missing;
    /// As far as it was measured.
    DirectoryMeasurement measurement = {};
    /// The entries directly inside, without ".DS_Store".
    std::int64_t itemCount = 0;
};

/// Measures one folder. Throws ScanError (cancelled) once `token` is cancelled.
Contents contents(const std::filesystem::path& folder, const DiskScanner& scanner,
                  const CancellationToken& token = {});

/// The entries directly inside a folder, without ".DS_Store"; nothing when it cannot be read or does not
/// answer.
std::optional<std::int64_t> itemCount(const std::filesystem::path& folder);

} // namespace tarnwell::TrashFolders
