#pragma once

// The folders under a home that a cloud service keeps in step, and the question whether a path is in one.

#include "TarnwellCore/Actions/CloudProvider.hpp"

#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

struct SyncedRoot {
    CloudProvider provider = CloudProvider::other;
    std::filesystem::path url;

    bool operator==(const SyncedRoot&) const = default;
};

/// Every function is safe from any thread.
///
/// A path is in a root when the root's components, as they are given or with links resolved, are the first of
/// the path's, compared as bytes; the root's own path is in it. Repeated and trailing "/" do not count. "."
/// and ".." in a path are not interpreted: a path that may hold them is standardised by its owner. A root
/// without any component holds nothing.
namespace SyncedRoots {

/// A root ready to be compared with many paths.
struct PreparedRoot {
    SyncedRoot root;
    /// Names only, "." and ".." resolved as text.
    std::vector<std::string> components;
    bool isAbsolute = false;
    /// Those of an absolute root without links, by which a scan shows it; empty when they are the same.
    std::vector<std::string> resolvedComponents = {};
};

/// Finds the roots of a home folder: the platform's own cloud drive first, then the other services' folders
/// by their lower-cased names. Each root's path ends in "/". `fileExists` tells whether a path exists,
/// `subdirectoryNames` lists the names of a folder's subfolders in any order, none for a missing folder.
std::vector<SyncedRoot>
discover(const std::filesystem::path& home,
         const std::function<bool(const std::filesystem::path&)>& fileExists,
         const std::function<std::vector<std::string>(const std::filesystem::path&)>& subdirectoryNames);

/// The same on the real file system.
std::vector<SyncedRoot> discover(const std::filesystem::path& home);

/// The roots in their order, each taken apart and its links looked at once.
std::vector<PreparedRoot> prepare(std::span<const SyncedRoot> roots);

/// Whether a path lies in any root. For many paths prepare the roots.
bool contains(std::string_view path, std::span<const SyncedRoot> roots);

/// The first root that holds the path, null when none does; it lives as long as `prepared`.
const SyncedRoot* root(std::string_view containing, std::span<const PreparedRoot> prepared);

/// Whether the folder at this path lies in a root or has one below it: elsewhere no file is in a root.
bool touches(std::string_view folder, std::span<const PreparedRoot> prepared);

} // namespace SyncedRoots
} // namespace tarnwell
