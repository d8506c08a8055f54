#pragma once

// The appearance that the user has chosen.

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwell {

enum class AppTheme : std::uint8_t { system, light, dark };

inline constexpr std::array allAppThemes = {AppTheme::system, AppTheme::light, AppTheme::dark};

/// "system", "light" or "dark".
constexpr std::string_view rawValue(AppTheme theme) {
    switch (theme) {
    case AppTheme::system:
        return "system";
    case AppTheme::light:
        return "light";
    case AppTheme::dark:
        return "dark";
    }
    return "system";
}

/// The theme of exactly this name.
constexpr std::optional<AppTheme> appThemeFromRawValue(std::string_view text) {
    for (const AppTheme theme : allAppThemes)
        if (rawValue(theme) == text)
            return theme;
    return std::nullopt;
}

constexpr std::string_view displayName(AppTheme theme) {
    switch (theme) {
    case AppTheme::system:
        return "Match System";
    case AppTheme::light:
        return "Light";
    case AppTheme::dark:
        return "Dark";
    }
    return "Match System";
}

} // namespace tarnwell
