#include "TarnwellCore/Classification/FileCategory.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <set>
#include <string>

namespace tarnwell {
namespace {

TEST(FileCategory, RawValuesAreStoredInFilesAndStay) {
    const std::pair<FileCategory, int> stored[] = {
        {FileCategory::video, 0},   {FileCategory::code, 4},       {FileCategory::packagesInstallers, 8},
        {FileCategory::system, 12}, {FileCategory::databases, 13}, {FileCategory::virtualMachines, 15},
        {FileCategory::other, 18},  {FileCategory::folder, 19},
    };
    for (const auto& [category, raw] : stored)
        EXPECT_EQ(rawValue(category), raw);

    ASSERT_EQ(allFileCategories().size(), 20u);
    for (int raw = 0; raw < 20; ++raw) {
        EXPECT_EQ(rawValue(allFileCategories()[static_cast<std::size_t>(raw)]), raw);
        EXPECT_EQ(fileCategoryFromRawValue(raw), static_cast<FileCategory>(raw));
    }
    for (const std::int64_t raw : {std::int64_t{-1}, std::int64_t{20}, std::int64_t{256}, std::int64_t{274},
                                   std::numeric_limits<std::int64_t>::min()})
        EXPECT_EQ(fileCategoryFromRawValue(raw), std::nullopt) << raw;
}

TEST(FileCategory, NamesAndColours) {
    EXPECT_EQ(displayName(FileCategory::video), "Video");
    EXPECT_EQ(displayName(FileCategory::folder), "Folders");
    EXPECT_EQ(hexColor(FileCategory::video), "#A855F7");
    EXPECT_EQ(hexColor(FileCategory::folder), "#7DD3FC");

    std::set<std::string_view> names, colours, symbols;
    for (const FileCategory category : allFileCategories()) {
        const auto [red, green, blue] = rgb(category);
        char hex[8];
        std::snprintf(hex, sizeof hex, "#%02X%02X%02X", red, green, blue);
        EXPECT_EQ(hexColor(category), hex);
        names.insert(displayName(category));
        colours.insert(hexColor(category));
        symbols.insert(symbolName(category));
    }
    EXPECT_EQ(names.size(), 20u);
    EXPECT_EQ(colours.size(), 20u);
    EXPECT_EQ(symbols.size(), 20u);
    EXPECT_EQ(displayName(static_cast<FileCategory>(200)), "Other");
}

} // namespace
} // namespace tarnwell
