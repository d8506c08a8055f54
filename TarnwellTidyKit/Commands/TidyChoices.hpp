#pragma once

// What the options that commands share have chosen.

#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

enum class TidyColor : std::uint8_t { automatic, always, never };

struct TidyOutputChoices {
    bool json = false;
    TidyColor color = TidyColor::automatic;

    bool operator==(const TidyOutputChoices&) const = default;
};

/// What is not given is as the settings have it.
struct TidyScanChoices {
    std::optional<SizeMode> sizeMode = {};
    /// As typed; may be relative or begin with a tilde.
    std::vector<std::string> excludedPaths = {};
    std::vector<std::string> excludedNames = {};
    bool crossFileSystems = false;
    bool leaveOutHidden = false;
    std::optional<std::int32_t> threads = {};

    bool operator==(const TidyScanChoices&) const = default;
};

struct TidyActChoices {
    bool yes = false;
    bool dryRun = false;

    bool operator==(const TidyActChoices&) const = default;
};

} // namespace tarnwell
