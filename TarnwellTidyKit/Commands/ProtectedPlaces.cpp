#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"

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
    const std::string_view inner = PathUtil::withoutTrailingSlashes(path.native());
    const std::string_view outer = PathUtil::withoutTrailingSlashes(folder.native());
    if (outer == "/")
        return inner.starts_with('/');
    return inner.starts_with(outer) && (inner.size() == outer.size() || inner[outer.size()] == '/');
}

std::string_view reasonToStay(const std::filesystem::path& path, const std::filesystem::path& home) {
    const std::string_view text = PathUtil::withoutTrailingSlashes(path.native());
    if (text == "/")
        return "It is the root of everything.";
    if (text == PathUtil::withoutTrailingSlashes(home.native()))
        return "It is the home folder.";
    if (liesIn(home, path))
        return "The home folder lies in it.";
    if (std::ranges::find(systemFolders, text) != systemFolders.end())
        return "It belongs to the system.";
    for (const std::string_view library : {"/Library", "/Desktop", "/Documents"})
        if (text == std::string(PathUtil::withoutTrailingSlashes(home.native())) + std::string(library))
            return "The system and its programs expect it there.";
    return {};
}

} // namespace tarnwell
