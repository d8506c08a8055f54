#include "TarnwellCore/Platform/MountPoints.hpp"

#include <sys/mount.h>
#include <sys/param.h>

#include <cstddef>
#include <string_view>
#include <vector>

namespace tarnwell {

std::set<std::string, std::less<>> mountPointsBesideListings() {
    // Where the volume with the user's data is mounted, all of which is reached by shorter paths as well.
    constexpr std::string_view dataVolume = "/System/Volumes/Data";
    std::vector<struct statfs> mounts;
    for (int attempt = 0; attempt < 4; ++attempt) {
        const int expected = ::getfsstat(nullptr, 0, MNT_NOWAIT);
        if (expected < 0)
            return {};
        mounts.resize(static_cast<std::size_t>(expected) + 8); // for some that come meanwhile
        const int count =
            ::getfsstat(mounts.data(), static_cast<int>(mounts.size() * sizeof mounts.front()), MNT_NOWAIT);
        if (count < 0)
            return {};
        const bool isWhole = static_cast<std::size_t>(count) < mounts.size();
        mounts.resize(static_cast<std::size_t>(count));
        if (isWhole)
            break;
    }
    std::set<std::string, std::less<>> paths;
    for (const struct statfs& mount : mounts) {
        const std::string_view path = mount.f_mntonname;
        paths.emplace(path);
        if (path.starts_with(dataVolume) && path.substr(dataVolume.size()).starts_with('/'))
            paths.emplace(path.substr(dataVolume.size()));
    }
    return paths;
}

} // namespace tarnwell
