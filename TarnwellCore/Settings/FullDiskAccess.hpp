#pragma once

// Whether this program may read the user's protected folders (mail, messages, browser data). Without that a
// scan reports too little there. No system service tells; opening what only such access can open does.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

enum class FullDiskAccessStatus : std::uint8_t { granted, denied, unknown };

/// "granted", "denied" or "unknown".
constexpr std::string_view rawValue(FullDiskAccessStatus status) {
    switch (status) {
    case FullDiskAccessStatus::granted:
        return "granted";
    case FullDiskAccessStatus::denied:
        return "denied";
    case FullDiskAccessStatus::unknown:
        return "unknown";
    }
    return "unknown";
}

/// The status of exactly this name.
constexpr std::optional<FullDiskAccessStatus> fullDiskAccessStatusFromRawValue(std::string_view text) {
    using enum FullDiskAccessStatus;
    for (const FullDiskAccessStatus status : {granted, denied, unknown})
        if (rawValue(status) == text)
            return status;
    return std::nullopt;
}

namespace FullDiskAccess {

/// The page of the system's settings where access is granted.
inline constexpr std::string_view settingsURL =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";

/// What is tried, in this order; only full disk access can open any of it.
const std::vector<std::string>& probePaths();

/// Opens the paths one after another, as far as they exist: granted at the first that opens, denied when
/// all that exist refuse, unknown when none exists. A few system calls; safe from any thread.
FullDiskAccessStatus status(std::span<const std::string> paths = probePaths());

/// Whether `status()` is granted.
bool isGranted();

/// A sentence or two for the user.
std::string_view explanation(FullDiskAccessStatus status);

/// Opens the settings page; whether the system did so. From the main thread.
bool openSystemSettings();

} // namespace FullDiskAccess

namespace FullDiskAccessTransition {

/// Whether access that there was is gone. Nothing known of before is no loss.
constexpr bool wasRevoked(std::optional<FullDiskAccessStatus> previous, FullDiskAccessStatus current) {
    return previous == FullDiskAccessStatus::granted && current != FullDiskAccessStatus::granted;
}

} // namespace FullDiskAccessTransition
} // namespace tarnwell
