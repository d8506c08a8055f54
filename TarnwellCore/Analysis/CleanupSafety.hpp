#pragma once

// How much care a suggested removal asks for; graded on cleanup rules' matches and space-saver findings.

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwell {

enum class CleanupSafety : std::uint8_t {
    safe,         ///< what goes is made again on demand
    reviewNeeded, ///< look before removing
    caution,      ///< may be the only copy, or belongs to a tool that must remove it itself
};

/// "safe", "reviewNeeded" or "caution".
constexpr std::string_view rawValue(CleanupSafety safety) {
    switch (safety) {
    case CleanupSafety::safe:
        return "safe";
    case CleanupSafety::reviewNeeded:
        return "reviewNeeded";
    case CleanupSafety::caution:
        return "caution";
    }
    return "caution";
}

/// The grade of exactly this name.
constexpr std::optional<CleanupSafety> cleanupSafetyFromRawValue(std::string_view text) {
    for (const auto safety : {CleanupSafety::safe, CleanupSafety::reviewNeeded, CleanupSafety::caution})
        if (rawValue(safety) == text)
            return safety;
    return std::nullopt;
}

/// The grade as the user sees it.
constexpr std::string_view displayName(CleanupSafety safety) {
    switch (safety) {
    case CleanupSafety::safe:
        return "Safe to remove";
    case CleanupSafety::reviewNeeded:
        return "Review first";
    case CleanupSafety::caution:
        return "Be careful";
    }
    return "Be careful";
}

} // namespace tarnwell
