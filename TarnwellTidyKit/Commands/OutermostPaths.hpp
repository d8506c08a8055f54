#pragma once

// Of many paths those in which the others lie, found without comparing each with each.

#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>

namespace tarnwell {

/// Paths of which none lies in another. In an order that has "/" before every other byte, what lies in a path
/// follows it at once, and what it lies in is right before it.
class OutermostPaths {
public:
    auto begin() const { return paths_.begin(); }
    auto end() const { return paths_.end(); }
    bool contains(const std::filesystem::path& path) const { return paths_.contains(path); }
    /// Whether one of the paths is or holds this one, or lies in it.
    bool sharesWith(const std::filesystem::path& path) const {
        const auto next = paths_.lower_bound(path);
        return (next != paths_.end() && liesIn(*next, path)) ||
               (next != paths_.begin() && liesIn(path, *std::prev(next)));
    }
    /// Takes the path in, unless one of them holds it, and those out that lie in it.
    void insert(const std::filesystem::path& path) {
        auto next = paths_.lower_bound(path);
        if (next != paths_.begin() && liesIn(path, *std::prev(next)))
            return;
        while (next != paths_.end() && liesIn(*next, path))
            next = paths_.erase(next);
        paths_.insert(next, path);
    }

private:
    struct Order {
        bool operator()(const std::filesystem::path& one, const std::filesystem::path& other) const {
            return std::ranges::lexicographical_compare(one.native(), other.native(), {}, key, key);
        }
        static int key(char byte) { return byte == '/' ? -1 : static_cast<unsigned char>(byte); }
    };
    std::set<std::filesystem::path, Order> paths_;
};

} // namespace tarnwell
