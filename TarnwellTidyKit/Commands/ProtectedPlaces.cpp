#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace tarnwell {

namespace {

// Of both systems: a folder of the other one's is no ordinary place either.
constexpr std::array<std::string_view, 36> systemFolders = {"/Applications",
                                                            "/Library",
                                                            "/Network",
                                                            "/System",
                                                            "/System/Volumes",
                                                            "/System/Volumes/Data",
                                                            "/Users",
                                                            "/Volumes",
                                                            "/bin",
                                                            "/boot",
                                                            "/cores",
                                                            "/dev",
                                                            "/etc",
                                                            "/home",
                                                            "/lib",
                                                            "/lib32",
                                                            "/lib64",
                                                            "/media",
                                                            "/mnt",
                                                            "/opt",
                                                            "/opt/homebrew",
                                                            "/private",
                                                            "/private/etc",
                                                            "/private/tmp",
                                                            "/private/var",
                                                            "/proc",
                                                            "/root",
                                                            "/run",
                                                            "/sbin",
                                                            "/srv",
                                                            "/sys",
                                                            "/tmp",
                                                            "/usr",
                                                            "/usr/local",
                                                            "/var",
                                                            "/Users/Shared"};

constexpr std::string_view rootReason = "It is the root of everything.";
constexpr std::string_view systemReason = "It belongs to the system.";

bool isSystemFolder(std::string_view path) {
    return std::ranges::find(systemFolders, path) != systemFolders.end();
}

std::string_view reasonOfHome(const std::filesystem::path& path, const HomeFolder& home) {
    for (const std::filesystem::path& each : home.spellings()) {
        if (path == each)
            return "It is the home folder.";
        if (liesIn(each, path))
            return "The home folder lies in it.";
        for (const char* const place : {"Library", "Desktop", "Documents"})
            if (path == each / place)
                return "The system and its programs expect it there.";
    }
    return {};
}

} // namespace

bool liesIn(const std::filesystem::path& path, const std::filesystem::path& folder) {
    return isWithin(PathUtil::withoutTrailingSlashes(path.native()), folder);
}

ProtectedPlaces::ProtectedPlaces(const std::filesystem::path& home)
    : homes_{HomeFolder(home), HomeFolder(DiskScanner::normalize(home))} {}

std::string_view ProtectedPlaces::reasonToStay(const std::filesystem::path& path) {
    const std::string_view text = PathUtil::withoutTrailingSlashes(path.native());
    if (text == "/")
        return rootReason;
    const std::filesystem::path given(text);
    if (std::filesystem::path folder = given.parent_path(); folder_.empty() || folder != folder_) {
        folder_ = std::move(folder);
        folderWithoutLinks_ = resolveLinks(folder_);
        mayHoldWhatStays_ = std::ranges::any_of(homes_, [&](const HomeFolder& home) {
            return tarnwell::mayHoldWhatStays(folder_.native(), home) ||
                   tarnwell::mayHoldWhatStays(folderWithoutLinks_.native(), home);
        });
    }
    if (!mayHoldWhatStays_)
        return {};
    // Two names of one place are one place, whichever was typed. A link at the end is an item of its own.
    const std::filesystem::path names[] = {given, folderWithoutLinks_ / given.filename()};
    for (const HomeFolder& home : homes_)
        for (const std::filesystem::path& name : names)
            if (const std::string_view reason = reasonOfHome(name, home); !reason.empty())
                return reason;
    for (const std::filesystem::path& name : names)
        if (isSystemFolder(name.native()))
            return systemReason;
    return {};
}

std::string_view reasonToStay(std::string_view path, const HomeFolder& home) {
    if (path == "/")
        return rootReason;
    const std::string_view reason = reasonOfHome(path, home);
    return reason.empty() && isSystemFolder(path) ? systemReason : reason;
}

bool mayHoldWhatStays(std::string_view folder, const HomeFolder& home) {
    const auto isParentOf = [folder](std::string_view place) {
        const auto slash = place.rfind('/');
        return folder == (slash == 0 ? std::string_view("/") : place.substr(0, slash));
    };
    return std::ranges::any_of(systemFolders, isParentOf) ||
           std::ranges::any_of(home.spellings(),
                               [&](const std::filesystem::path& each) { return liesIn(each, folder); });
}

} // namespace tarnwell
