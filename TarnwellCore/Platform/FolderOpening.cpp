#include "TarnwellCore/Platform/FolderOpening.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

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

/// Where a walk has come to. Closes each folder that it leaves, the one where it ends too unless that is
/// taken, but never the caller's, where it starts.
class Walk {
public:
    explicit Walk(int callersFolder) : callersFolder_(callersFolder), folder_(callersFolder) {}
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    ~Walk() { moveTo(callersFolder_); }

    int folder() const { return folder_; }
    void moveTo(int next) {
        const int error = errno;
        if (folder_ >= 0 && folder_ != callersFolder_)
            ::close(folder_);
        folder_ = next;
        errno = error;
    }
    int take() { return std::exchange(folder_, callersFolder_); }

private:
    const int callersFolder_;
    int folder_;
};

} // namespace

int openFolderBelow(int folder, const std::string& relativePath, const std::int32_t* device) {
    if (relativePath.find('/') == std::string::npos)
        return openSubfolder(folder, relativePath.c_str(), device);
    std::string_view rest = relativePath;
    Walk walk(folder);
    while (!rest.empty() && walk.folder() >= 0) {
        const std::string piece = takePiece(rest);
        // What lies on the way may well be on other devices.
        const std::int32_t* wanted = rest.empty() ? device : nullptr;
        walk.moveTo(withoutInterruption(
            [&] { return FolderOpeningDetail::openShortPathBelow(walk.folder(), piece.c_str(), wanted); }));
    }
    return walk.take();
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
    Walk walk(AT_FDCWD);
    while (!rest.empty()) {
        const std::string piece = takePiece(rest);
        walk.moveTo(withoutInterruption(
            [&] { return FolderOpeningDetail::openForTraversal(walk.folder(), piece.c_str()); }));
        if (walk.folder() < 0)
            return -1;
    }
    return walk.take();
}

int openFolder(const std::string& path) {
    const int folder = withoutInterruption([&] { return ::open(path.c_str(), folderFlags); });
    if (folder >= 0 || errno != ENAMETOOLONG)
        return folder;
    std::string lastComponent;
    const int parent = openParentOfLongPath(path, lastComponent);
    if (parent < 0)
        return -1;
    const int found =
        withoutInterruption([&] { return ::openat(parent, lastComponent.c_str(), folderFlags); });
    const int error = errno;
    ::close(parent);
    errno = error;
    return found;
}

} // namespace tarnwell
