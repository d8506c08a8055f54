#pragma once

// Internal to what puts paths in order that are never made.

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tarnwell {

/// A name in a path, and whether the path ends with it.
struct PathStep {
    std::string_view name;
    bool isLast;

    /// The byte order of paths: what follows a name is a "/", or nothing, which precedes every byte.
    bool operator<(const PathStep& other) const {
        const auto place = std::ranges::mismatch(name, other.name);
        const auto index = static_cast<std::size_t>(place.in1 - name.begin());
        return byteAt(index) < other.byteAt(index);
    }

private:
    int byteAt(std::size_t index) const {
        if (index < name.size())
            return static_cast<unsigned char>(name[index]);
        return isLast ? -1 : '/';
    }
};

} // namespace tarnwell
