#include "TarnwellCore/Settings/FullDiskAccess.hpp"

#include "TarnwellCore/Platform/SettingsPage.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace tarnwell::FullDiskAccess {

namespace {

bool canOpenFolder(const std::string& path) {
    DIR* folder = ::opendir(path.c_str());
    if (folder == nullptr)
        return false;
    ::closedir(folder);
    return true;
}

bool canOpenFile(const std::string& path) {
    // Without waiting, should there be a pipe.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor == -1)
        return false;
    ::close(descriptor);
    return true;
}

} // namespace

const std::vector<std::string>& probePaths() {
    static const std::vector<std::string> paths = [] {
        const std::string home = homeDirectory().string();
        return std::vector<std::string>{
            "/Library/Application Support/com.apple.TCC/TCC.db",
            home + "/Library/Application Support/com.apple.TCC",
            home + "/Library/Safari/Bookmarks.plist",
            home + "/Library/Mail",
        };
    }();
    return paths;
}

FullDiskAccessStatus status(std::span<const std::string> paths) {
    bool isRefused = false;
    for (const std::string& path : paths) {
        const std::optional<PathMetadata> metadata = PathMetadata::lstat(path);
        if (!metadata)
            continue;
        if (metadata->isDirectory ? canOpenFolder(path) : canOpenFile(path))
            return FullDiskAccessStatus::granted;
        isRefused = true;
    }
    return isRefused ? FullDiskAccessStatus::denied : FullDiskAccessStatus::unknown;
}

bool isGranted() {
    return status() == FullDiskAccessStatus::granted;
}

std::string_view explanation(FullDiskAccessStatus status) {
    switch (status) {
    case FullDiskAccessStatus::granted:
        return "Tarnwell can read every folder on this Mac.";
    case FullDiskAccessStatus::denied:
        return "Tarnwell cannot read protected folders such as Mail, Messages and Safari data. Scans will "
               "under-report those areas until you grant Full Disk Access.";
    case FullDiskAccessStatus::unknown:
        break;
    }
    return "Tarnwell could not determine whether it has Full Disk Access.";
}

bool openSystemSettings() {
    return openSettingsPage(std::string(settingsURL));
}

} // namespace tarnwell::FullDiskAccess
