#include "TarnwellCore/Platform/FolderOpening.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace tarnwell {

namespace {

/// Comfortably below every system's PATH_MAX (macOS: 1024), with room for one more component of 255 bytes.
constexpr std::size_t pieceLength = 700;

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// Takes a piece of whole components off the front of a path; one component at least.
std::string takePiece(std::string_view& path) {
    std::size_t end = path.size();
    if (end > pieceLength) {
        end = path.rfind('/', pieceLength);
        if (end == std::string_view::npos || end == 0)
            end = path.find('/', 1);
        if (end == std::string_view::npos)
            end = path.size();
    }
    std::string piece(path.substr(0, end));
    path.remove_prefix(end);
    while (path.starts_with('/'))
        path.remove_prefix(1);
    return piece;
}

/// Replaces `folder` by `next`; closes `folder` unless it is the caller's.
void step(int& folder, int next, int callersFolder) {
    const int error = errno;
    if (folder != callersFolder)
        ::close(folder);
    folder = next;
    errno = error;
}

} // namespace

int openFolderBelow(int folder, const std::string& relativePath, const std::int32_t* device) {
    if (relativePath.find('/') == std::string::npos)
        return openSubfolder(folder, relativePath.c_str(), device);
    std::string_view rest = relativePath;
    int current = folder;
    while (!rest.empty() && current >= 0) {
        const std::string piece = takePiece(rest);
        // What lies on the way may well be on other devices.
        const std::int32_t* wanted = rest.empty() ? device : nullptr;
        step(current, withoutInterruption([&] {
                 return FolderOpeningDetail::openShortPathBelow(current, piece.c_str(), wanted);
             }),
             folder);
    }
    return current;
}

int openParentOfLongPath(const std::string& path, std::string& lastComponent) {
    std::string_view rest = path;
    while (rest.size() > 1 && rest.back() == '/')
        rest.remove_suffix(1);
    const std::size_t slash = rest.rfind('/');
    if (slash == std::string_view::npos) {
        errno = ENAMETOOLONG; // a single component of that length cannot exist
        return -1;
    }
    lastComponent = rest.substr(slash + 1);
    rest = rest.substr(0, slash);
    int current = AT_FDCWD;
    while (!rest.empty()) {
        const std::string piece = takePiece(rest);
        step(current, withoutInterruption([&] {
                 return FolderOpeningDetail::openForTraversal(current, piece.c_str());
             }),
             AT_FDCWD);
        if (current < 0)
            return -1;
    }
    return current;
}

int openFolder(const std::string& path) {
    const int folder = withoutInterruption([&] { return ::open(path.c_str(), folderFlags); });
    if (folder >= 0 || errno != ENAMETOOLONG)
        return folder;
    std::string lastComponent;
    const int parent = openParentOfLongPath(path, lastComponent);
    if (parent < 0)
        return -1;
    int current = parent;
    step(current, withoutInterruption([&] { return ::openat(parent, lastComponent.c_str(), folderFlags); }),
         -1);
    return current;
}

} // namespace tarnwell
