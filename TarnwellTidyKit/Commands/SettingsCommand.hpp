#pragma once

// settings list, get, set, reset: the settings that all programs of the product share.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct SettingsRequest {
    enum class Verb : std::uint8_t { list, get, set, reset };
    Verb verb = Verb::list;
    /// Empty for `list`, and for a `reset` of all preferences.
    std::string key;
    std::vector<std::string> values;
    TidyActChoices act;
    TidyOutputChoices output;

    bool operator==(const SettingsRequest&) const = default;

    static const TidyCommandSpec spec;
    static SettingsRequest read(const TidyArguments& arguments);
};

TidyResult run(const SettingsRequest& request, TidyContext& context);

/// Throws when what was set could not be stored.
void storeSettings(AppSettings& settings);

} // namespace tarnwell
