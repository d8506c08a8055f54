#pragma once

// The settings as people read and type them: one row for each, with its kind, its range and what it is for.

#include "TarnwellCore/Settings/AppSettings.hpp"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

class JSONWriter;

struct SettingRow {
    AppSettings::Key key;
    /// What may be set, such as "from 0.5 (seconds)"; empty for what only the program itself keeps.
    std::string_view range;
    std::string_view meaning;
    /// The present value.
    std::string (*text)(const AppSettings&);
    /// Writes the present value; null where it is the text.
    void (*write)(JSONWriter&, const AppSettings&);
    /// Sets a value from the words typed, which are one but for a list. False when they make no sense.
    bool (*set)(AppSettings&, const std::vector<std::string>& words);

    /// Without the prefix of the stored key.
    std::string_view name() const;
    void writeValue(JSONWriter& json, const AppSettings& settings) const;
};

/// In the order of the keys.
std::span<const SettingRow> settingRows();
/// Null for a name that no setting has. Takes the stored key as well.
const SettingRow* settingRow(std::string_view name);

} // namespace tarnwell
