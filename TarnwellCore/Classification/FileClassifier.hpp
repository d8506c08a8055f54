#pragma once

// Decides the category of a file or folder from its name, its extension, its path and, as the last
// resort, the platform's type database. Fixed tables, consulted in a fixed order; the first hit wins.
// Every function is safe from any thread and never fails.

#include "TarnwellCore/Classification/FileCategory.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwell {

class TypeConformance;
class UTTypeCache;

namespace FileClassifier {

/// As `classify(name, path, isDirectory)` with the path's last component as the name.
FileCategory classify(const std::filesystem::path& url, bool isDirectory);

/// The full classification; path rules apply only where a path is given.
FileCategory classify(std::string_view name, std::optional<std::string_view> path, bool isDirectory);

/// Table lookup for a file: by `ext` when it is not empty (lower case, without the dot), else by name.
std::optional<FileCategory> classifyExtension(std::string_view ext, std::string_view name);

/// Folder lookup without a path: folder extensions, then folder names.
std::optional<FileCategory> classifyDirectoryByNameOrExtension(std::string_view name, std::string_view ext);

/// The category that a folder of this name fixes for everything below it.
std::optional<FileCategory> componentCategory(std::string_view name);

/// Whether a folder of this name is a package, by its extension.
bool isPackage(std::string_view name);

/// As `isPackage(name)` for a caller that has the lower-case extension at hand.
bool isPackageExtension(std::string_view ext);

/// The type database's answer for an extension, asked afresh. Where several types claim it with equal right,
/// the category that they have in common.
std::optional<FileCategory> classifyByUTType(std::string_view ext);

/// The category of a type: of all that it conforms to, the most telling decides.
std::optional<FileCategory> categoryOfType(TypeConformance conformance);

/// The cache of type-database answers that all scans share.
UTTypeCache& utTypeCache();

} // namespace FileClassifier
} // namespace tarnwell
