#pragma once

// Files that are there whole or not at all, whatever ends the process or the machine while they are written.
//
// The bytes go to a temporary file beside the destination; once they are on the disk it takes the
// destination's name, and then the folder is brought to the disk. What a crash leaves behind, by moment:
//   - before the renaming: the old file or none, and perhaps a temporary file, hidden and named *.tmp;
//   - after it: the new file, whole; a loss of power before the folder was synced may bring the old state
//   back.
// The next writing of such a file removes temporary files of its kind (names that differ in a leading UUID
// are of one kind) that are older than a day and held by no process.
//
// What is written here is one user's: files get mode 0600, also in place of one with another mode, folders
// 0700. What root writes in another user's folder is that user's.

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <filesystem>
#include <string_view>

namespace tarnwell {

/// Writes the file, in place of one of that name, and returns when it would survive a loss of power. Any
/// number of threads and processes may do so in one folder. Throws std::system_error with the path and the
/// system's text; then no temporary file is left, an older file of that name is whole, and where there was
/// none, there is none. (Only when the folder cannot be synced after an older file was replaced, the newer
/// one stays: the older is gone by then.)
void replaceFileDurably(const std::filesystem::path& file, std::string_view contents,
                        const FileCalls& calls = FileCalls::live());

/// Makes the folder and those above it that are missing; the empty path is the current folder. Throws
/// std::system_error with the path and the system's text.
void createFoldersDurably(const std::filesystem::path& folder, const FileCalls& calls = FileCalls::live());

} // namespace tarnwell
