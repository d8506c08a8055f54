#include "TarnwellCore/Classification/FileCategory.hpp"

namespace tarnwell {

namespace {

struct Appearance {
    std::string_view displayName;
    std::string_view hexColor;
    std::string_view symbolName;
};

constexpr std::array<Appearance, fileCategoryCount> appearances = {{
    {"Video", "#A855F7", "film"},
    {"Audio", "#EC4899", "music.note"},
    {"Images", "#38BDF8", "photo"},
    {"Documents", "#60A5FA", "doc.text"},
    {"Code", "#34D399", "chevron.left.forwardslash.chevron.right"},
    {"Archives", "#F59E0B", "archivebox"},
    {"Disk Images", "#FB7185", "opticaldisc"},
    {"Applications", "#818CF8", "app"},
    {"Installers", "#F97316", "shippingbox"},
    {"Developer", "#2DD4BF", "hammer"},
    {"Caches", "#94A3B8", "arrow.triangle.2.circlepath"},
    {"Logs", "#A3A3A3", "list.bullet.rectangle"},
    {"System", "#64748B", "gearshape"},
    {"Databases", "#22D3EE", "cylinder.split.1x2"},
    {"Fonts", "#C084FC", "textformat"},
    {"Virtual Machines", "#F43F5E", "desktopcomputer"},
    {"Backups", "#84CC16", "clock.arrow.circlepath"},
    {"Mail", "#0EA5E9", "envelope"},
    {"Other", "#78716C", "doc"},
    {"Folders", "#7DD3FC", "folder"},
}};

const Appearance& appearance(FileCategory category) {
    // A value that is no category, from a careless cast, looks like "other".
    const std::size_t index = rawValue(category);
    return appearances[index < fileCategoryCount ? index : rawValue(FileCategory::other)];
}

constexpr std::uint8_t hexByte(std::string_view digits) {
    std::uint8_t value = 0;
    for (const char digit : digits)
        value = static_cast<std::uint8_t>(value * 16 + (digit <= '9' ? digit - '0' : digit - 'A' + 10));
    return value;
}

} // namespace

const std::array<FileCategory, fileCategoryCount>& allFileCategories() {
    static constexpr auto all = [] {
        std::array<FileCategory, fileCategoryCount> categories{};
        for (std::size_t raw = 0; raw < fileCategoryCount; ++raw)
            categories[raw] = static_cast<FileCategory>(raw);
        return categories;
    }();
    return all;
}

std::optional<FileCategory> fileCategoryFromRawValue(std::int64_t rawValue) {
    if (rawValue < 0 || rawValue >= static_cast<std::int64_t>(fileCategoryCount))
        return std::nullopt;
    return static_cast<FileCategory>(rawValue);
}

std::string_view displayName(FileCategory category) {
    return appearance(category).displayName;
}

std::string_view hexColor(FileCategory category) {
    return appearance(category).hexColor;
}

std::array<std::uint8_t, 3> rgb(FileCategory category) {
    const std::string_view hex = hexColor(category);
    return {hexByte(hex.substr(1, 2)), hexByte(hex.substr(3, 2)), hexByte(hex.substr(5, 2))};
}

std::string_view symbolName(FileCategory category) {
    return appearance(category).symbolName;
}

} // namespace tarnwell
