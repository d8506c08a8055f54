#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include "TarnwellCore/Analysis/HomeFolder.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <algorithm>
#include <array>

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

} // namespace

bool liesIn(const std::filesystem::path& path, const std::filesystem::path& folder) {
    return isWithin(PathUtil::withoutTrailingSlashes(path.native()), folder);
}

std::string_view reasonToStay(const std::filesystem::path& path, const std::filesystem::path& home) {
    const std::string_view text = PathUtil::withoutTrailingSlashes(path.native());
    if (text == "/")
        return "It is the root of everything.";
    // Two names of one place are one place, whichever was typed. A link at the end is an item of its own.
    const std::filesystem::path given(text);
    const std::filesystem::path names[] = {given, resolveLinks(given.parent_path()) / given.filename()};
    const HomeFolder homes(home);
    for (const std::filesystem::path& name : names)
        for (const std::filesystem::path& each : homes.spellings()) {
            if (name == each)
                return "It is the home folder.";
            if (liesIn(each, name))
                return "The home folder lies in it.";
            for (const char* const place : {"Library", "Desktop", "Documents"})
                if (name == each / place)
                    return "The system and its programs expect it there.";
        }
    for (const std::filesystem::path& name : names)
        if (std::ranges::find(systemFolders, name.native()) != systemFolders.end())
            return "It belongs to the system.";
    return {};
}

} // namespace tarnwell
