#include "TarnwellCore/Actions/TrashEmptying.hpp"

#include "TarnwellCore/Actions/PermanentRemoval.hpp"
#include "TarnwellCore/Analysis/TrashFolders.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/OpenDescriptor.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_set>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

bool isUsers(const OpenDescriptor& folder) {
    struct stat status = {};
    return folder.isOpen() && ::fstat(folder.number(), &status) == 0 && status.st_uid == ::geteuid();
}

template <class Body>
void forEachName(int folder, Body body) {
    const int copy = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); // a stream closes it
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(copy < 0 ? nullptr : ::fdopendir(copy), ::closedir);
    if (!stream) {
        if (copy >= 0)
            ::close(copy);
        return;
    }
    while (const dirent* entry = ::readdir(stream.get()))
        body(entry->d_name);
}

/// A desktop writes the note first, and moves the item then.
bool mayBeOnItsWay(const struct stat& note) {
    constexpr double patience = 60; // seconds
    return std::abs(std::difftime(std::time(nullptr), note.st_mtime)) < patience;
}

/// What "info" beside an open folder "files" notes of an item goes once the item, one of those that were
/// there, is gone, so that what is left can still be put back. Found from the folder itself, whatever its
/// path leads to by now.
void removeNotes(int files, const std::unordered_set<std::string>& wereThere) {
    constexpr std::string_view ending = ".trashinfo";
    const OpenDescriptor notes(::openat(files, "../info", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!isUsers(notes))
        return;
    forEachName(notes.number(), [&](const char* noteName) {
        const std::string_view name = noteName;
        if (!name.ends_with(ending))
            return;
        const std::string item(name.substr(0, name.size() - ending.size()));
        struct stat status = {};
        if (::fstatat(files, item.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT)
            return;
        if (wereThere.contains(item) ||
            (::fstatat(notes.number(), noteName, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
             !mayBeOnItsWay(status)))
            (void)::unlinkat(notes.number(), noteName, 0); // without its item it only takes room
    });
}

/// Whether a folder that could not be opened is none, or not the user's.
bool isNoTrash(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EPERM;
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
        // Others may have put a link in its place since it was listed, or do so now.
        const OpenDescriptor opened(TrashFolders::openOwn(folder));
        if (const int error = errno; !opened.isOpen()) {
            if (!isNoTrash(error)) {
                reasons += " " + folder.native() + ": " + std::generic_category().message(error) + ".";
                ++left;
            }
            continue;
        }
        const bool hasNotes = folder.filename() == "files";
        std::unordered_set<std::string> wereThere;
        if (hasNotes)
            forEachName(opened.number(), [&](const char* name) { wereThere.emplace(name); });
        const RemovalResult result = PermanentRemoval::removeContents(opened.number(), folder, token);
        if (hasNotes)
            removeNotes(opened.number(), wereThere);
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
