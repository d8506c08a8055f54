#pragma once

// A database and the journal files beside it belong together: removing one without the others loses what
// was written last, or leaves journals that a new database of that name would trip over.

#include <array>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace tarnwell::SQLiteSidecarFiles {

inline constexpr std::array<std::string_view, 3> databaseExtensions{"db", "sqlite", "sqlite3"};
inline constexpr std::array<std::string_view, 3> sidecarSuffixes{"-wal", "-shm", "-journal"};

/// The text shown beside a family that is not complete.
inline constexpr std::string_view reviewReason =
    "Database with write-ahead log \u2014 remove the .db, -wal and -shm files together";

/// Whether something is at a path, links followed.
using ExistenceTest = std::function<bool(const std::filesystem::path&)>;

/// Asks the file system; what cannot be looked up does not exist.
bool fileExists(const std::filesystem::path& path);

/// Whether the name ends with a side-car suffix.
bool isSidecarFile(std::string_view name);
/// Whether the name has a database's extension and is no side-car.
bool isDatabaseFile(std::string_view name);

/// The database's path with each suffix, in the order of the suffixes.
std::vector<std::filesystem::path> sidecarURLs(const std::filesystem::path& database);
/// Those of `sidecarURLs` that exist.
std::vector<std::filesystem::path> existingSidecars(const std::filesystem::path& database,
                                                    const ExistenceTest& exists = fileExists);
/// The side-car's path without its suffix; nothing when the path is no side-car's.
std::optional<std::filesystem::path> databaseURL(const std::filesystem::path& sidecar);

/// Of the paths that a user asks to remove, the members of families that would be left in pieces: in the
/// order asked for, as they were written, each path once. Paths are compared as text, absolute and without
/// "." and "..".
std::vector<std::filesystem::path>
incompleteFamilyPaths(const std::vector<std::filesystem::path>& amongRequested,
                      const ExistenceTest& exists = fileExists);

} // namespace tarnwell::SQLiteSidecarFiles
