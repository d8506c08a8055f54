#include "TarnwellCore/Actions/TrashEmptying.hpp"

#include "TarnwellCore/Actions/PermanentRemoval.hpp"
#include "TarnwellCore/Analysis/TrashFolders.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

bool isOwnFolder(const fs::path& folder) {
    struct stat status = {};
    return ::lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

/// Where the notes on the items of a Trash folder lie, if it is one that has some.
std::optional<fs::path> notesOf(const fs::path& folder) {
    if (folder.filename() != "files" || !isOwnFolder(folder.parent_path() / "info"))
        return std::nullopt;
    return folder.parent_path() / "info";
}

bool isThere(const fs::path& path) {
    std::error_code error;
    return fs::symlink_status(path, error).type() != fs::file_type::not_found;
}

/// A note goes once its item is gone, so that what is left can still be put back.
void removeNotes(const fs::path& folder, const fs::path& notes) {
    constexpr std::string_view ending = ".trashinfo";
    std::error_code error;
    for (fs::directory_iterator entry(notes, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.ends_with(ending) && !isThere(folder / name.substr(0, name.size() - ending.size())))
            (void)::unlink(entry->path().c_str()); // without its item it only takes room
    }
}

} // namespace

EmptyTrashOutcome emptyTrashFolders(const std::vector<fs::path>& folders, const CancellationToken& token) {
    constexpr std::size_t mostReasons = 3;
    std::string reasons;
    std::int64_t left = 0;
    for (const fs::path& given : folders) {
        const fs::path folder(PathUtil::withoutTrailingSlashes(given.native()));
        if (!TrashFolders::answers(folder)) {
            reasons += " " + folder.native() + ": Its volume does not answer.";
            ++left;
            continue;
        }
        // Looked at again: others may have put a link in its place since it was listed.
        if (!TrashFolders::isThere(folder).value_or(false) || !isOwnFolder(folder))
            continue;
        const RemovalResult result = PermanentRemoval::removeContents(folder, token);
        if (const auto notes = notesOf(folder))
            removeNotes(folder, *notes);
        if (result.wasCancelled)
            return EmptyTrashFailed{"It was called off; " + std::to_string(result.removedCount) +
                                    " files and folders are gone."};
        for (std::size_t index = 0; index < result.failures.size() && index < mostReasons; ++index)
            reasons += " " + result.failures[index].path + ": " + result.failures[index].message + ".";
        left += result.failureCount;
    }
    if (left > 0)
        return EmptyTrashFailed{"Not all of it could be deleted (" + std::to_string(left) + " left)." +
                                reasons};
    return EmptyTrashEmptied{};
}

} // namespace tarnwell
