#pragma once

// The categories that colour every view and group every total. Raw values are stored in files.

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwell {

enum class FileCategory : std::uint8_t {
    video,
    audio,
    images,
    documents,
    code,
    archives,
    diskImages,
    applications,
    packagesInstallers,
    developer,
    caches,
    logs,
    system,
    databases,
    fonts,
    virtualMachines,
    backups,
    mail,
    other,
    folder,
};

inline constexpr std::size_t fileCategoryCount = 20;

/// Every category in the order of the raw values.
const std::array<FileCategory, fileCategoryCount>& allFileCategories();

/// The category with this raw value; nothing from 20 on.
std::optional<FileCategory> fileCategoryFromRawValue(std::int64_t rawValue);

constexpr std::uint8_t rawValue(FileCategory category) {
    return static_cast<std::uint8_t>(category);
}

/// The category's name as the user sees it.
std::string_view displayName(FileCategory category);

/// The category's colour as "#RRGGBB", upper case.
std::string_view hexColor(FileCategory category);

/// The same colour as red, green and blue.
std::array<std::uint8_t, 3> rgb(FileCategory category);

/// The name of the platform's icon for the category.
std::string_view symbolName(FileCategory category);

} // namespace tarnwell
