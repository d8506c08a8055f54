#include "TarnwellCore/Platform/UserPaths.hpp"

#include "TarnwellCore/Platform/LinkResolution.hpp"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

/// The home folder in the user database: of the named user, or of the user of this process.
std::optional<std::string> databaseHome(const char* user) {
    std::vector<char> buffer(1024);
    while (true) {
        passwd entry = {};
        passwd* found = nullptr;
        const int error = user != nullptr
                              ? ::getpwnam_r(user, &entry, buffer.data(), buffer.size(), &found)
                              : ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
        if (error == EINTR)
            continue;
        if (error == ERANGE && buffer.size() < 1 << 20) {
            buffer.resize(buffer.size() * 4);
            continue;
        }
        if (found == nullptr || entry.pw_dir == nullptr || *entry.pw_dir == '\0')
            return std::nullopt;
        return entry.pw_dir;
    }
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::string homePath() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && *home != '\0')
        return withoutTrailingSlashes(home);
    return withoutTrailingSlashes(databaseHome(nullptr).value_or("/"));
}

} // namespace

std::filesystem::path homeDirectory() {
    return homePath();
}

std::string expandTilde(std::string_view path) {
    if (!path.starts_with('~'))
        return std::string(path);
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string user(path.substr(1, end - 1));
    std::optional<std::string> home = user.empty() ? homePath() : databaseHome(user.c_str());
    if (!home)
        return std::string(path);
    const std::string_view rest = path.substr(end);
    std::string expanded = withoutTrailingSlashes(std::move(*home));
    if (expanded == "/" && !rest.empty())
        expanded.clear();
    expanded += rest;
    return expanded;
}

std::string resolveLinks(const std::filesystem::path& path) {
    return resolveEveryLink(path.native());
}

std::optional<std::filesystem::path> applicationSupportDirectory() {
    const char* folder = std::getenv("XDG_DATA_HOME");
    if (folder == nullptr || *folder != '/')
        return std::nullopt;
    return withoutTrailingSlashes(folder);
}

} // namespace tarnwell
