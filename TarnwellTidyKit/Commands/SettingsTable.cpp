#include "TarnwellTidyKit/Commands/SettingsTable.hpp"

#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"
#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <system_error>

namespace tarnwell {

namespace {

using Key = AppSettings::Key;
using Words = std::vector<std::string>;
using S = AppSettings;

/// What is shown for what was never set.
constexpr const char* unset = "–";

constexpr std::string_view prefix = "com.tarnwell.";

std::optional<bool> truth(const Words& words) {
    if (words.size() != 1)
        return std::nullopt;
    const std::string& word = words.front();
    if (word == "yes" || word == "true" || word == "on")
        return true;
    if (word == "no" || word == "false" || word == "off")
        return false;
    return std::nullopt;
}

std::optional<std::int64_t> bytes(const Words& words, std::int64_t least, std::int64_t most) {
    const auto size = words.size() == 1 ? sizeFromText(words.front()) : std::nullopt;
    return size && *size >= least && *size <= most ? size : std::nullopt;
}

std::optional<double> number(const Words& words, double least) {
    const auto value = words.size() == 1 ? numberFromText(words.front()) : std::nullopt;
    return value && *value >= least ? value : std::nullopt;
}

bool isOneOf(const Words& words, std::initializer_list<std::string_view> choices) {
    return words.size() == 1 && std::ranges::find(choices, words.front()) != choices.end();
}

void writeOptional(JSONWriter& json, const std::optional<std::string>& text) {
    if (text)
        json.string(*text);
    else
        json.null();
}

// Readers and writers by kind. `get` and `put` are members of AppSettings.

template <auto get, auto put>
SettingRow truthRow(Key key, std::string_view meaning) {
    return {key,
            "yes, no",
            meaning,
            [](const S& settings) { return std::string((settings.*get)() ? "yes" : "no"); },
            [](JSONWriter& json, const S& settings) { json.boolean((settings.*get)()); },
            [](S& settings, const Words& words) {
                const auto value = truth(words);
                if (value)
                    (settings.*put)(*value);
                return value.has_value();
            }};
}

template <auto get, auto put, std::int64_t least, std::int64_t most>
SettingRow bytesRow(Key key, std::string_view range, std::string_view meaning) {
    return {key,
            range,
            meaning,
            [](const S& settings) { return sizeText((settings.*get)()); },
            [](JSONWriter& json, const S& settings) { json.integer((settings.*get)()); },
            [](S& settings, const Words& words) {
                const auto value = bytes(words, least, most);
                if (value)
                    (settings.*put)(*value);
                return value.has_value();
            }};
}

template <auto get, auto put>
SettingRow numberRow(Key key, std::string_view range, std::string_view meaning,
                     bool (*set)(S&, const Words&)) {
    return {key,
            range,
            meaning,
            [](const S& settings) { return decimalText((settings.*get)()); },
            [](JSONWriter& json, const S& settings) { json.number((settings.*get)()); },
            set};
}

/// A text, nothing when it was never set.
template <auto get>
SettingRow optionalRow(Key key, std::string_view range, std::string_view meaning,
                       bool (*set)(S&, const Words&)) {
    return {key,
            range,
            meaning,
            [](const S& settings) { return (settings.*get)().value_or(unset); },
            [](JSONWriter& json, const S& settings) { writeOptional(json, (settings.*get)()); },
            set};
}

SettingRow wordRow(Key key, std::string_view range, std::string_view meaning, std::string (*text)(const S&),
                   bool (*set)(S&, const Words&)) {
    return {key, range, meaning, text, nullptr, set};
}

std::string listText(const Words& list) {
    std::string text;
    for (const std::string& word : list)
        text += (text.empty() ? "" : ", ") + word;
    return text.empty() ? unset : text;
}

std::vector<SettingRow> makeRows() {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    std::vector<SettingRow> rows;
    rows.push_back(wordRow(
        Key::theme, "system, light, dark", "The appearance",
        [](const S& settings) { return std::string(rawValue(settings.theme())); },
        [](S& settings, const Words& words) {
            const auto theme = words.size() == 1 ? appThemeFromRawValue(words.front()) : std::nullopt;
            if (theme)
                settings.setTheme(*theme);
            return theme.has_value();
        }));
    rows.push_back(wordRow(
        Key::sizeMode, "apparent, allocated, reclaimable", "Which size counts",
        [](const S& settings) { return std::string(rawValue(settings.sizeMode())); },
        [](S& settings, const Words& words) {
            const auto mode = words.size() == 1 ? sizeModeFromRawValue(words.front()) : std::nullopt;
            if (mode)
                settings.setSizeMode(*mode);
            return mode.has_value();
        }));
    rows.push_back({Key::scanExclusions, "any number of paths", "What scans leave out",
                    [](const S& settings) { return listText(settings.scanExclusions()); },
                    [](JSONWriter& json, const S& settings) {
                        json.beginArray();
                        for (const std::string& path : settings.scanExclusions())
                            json.string(path);
                        json.endArray();
                    },
                    [](S& settings, const Words& words) {
                        Words paths;
                        for (const std::string& word : words)
                            paths.push_back(DiskScanner::normalize(typedPath(word)));
                        settings.setScanExclusions(paths);
                        return true;
                    }});
    rows.push_back({Key::treemapDepth, "from 0", "Levels that a treemap draws",
                    [](const S& settings) { return std::to_string(settings.treemapDepth()); },
                    [](JSONWriter& json, const S& settings) { json.integer(settings.treemapDepth()); },
                    [](S& settings, const Words& words) {
                        std::int64_t depth = -1;
                        if (words.size() != 1)
                            return false;
                        const std::string& word = words.front();
                        const auto [end, error] =
                            std::from_chars(word.data(), word.data() + word.size(), depth);
                        if (error != std::errc() || end != word.data() + word.size() || depth < 0)
                            return false;
                        settings.setTreemapDepth(depth);
                        return true;
                    }});
    rows.push_back(numberRow<&S::treemapPadding, &S::setTreemapPadding>(
        Key::treemapPadding, "from 0 (points)", "Room around the areas of a treemap",
        [](S& settings, const Words& words) {
            const auto value = number(words, 0);
            if (value)
                settings.setTreemapPadding(*value);
            return value.has_value();
        }));
    rows.push_back(truthRow<&S::showLabels, &S::setShowLabels>(Key::showLabels, "Names in a treemap"));
    rows.push_back(wordRow(
        Key::colorMode, "any word", "What colours stand for",
        [](const S& settings) { return settings.colorModeRawValue(); },
        [](S& settings, const Words& words) {
            if (words.size() != 1 || words.front().empty())
                return false;
            settings.setColorModeRawValue(words.front());
            return true;
        }));
    rows.push_back(
        truthRow<&S::showHiddenFiles, &S::setShowHiddenFiles>(Key::showHiddenFiles, "Show what is hidden"));
    rows.push_back(truthRow<&S::crossFilesystemBoundaries, &S::setCrossFilesystemBoundaries>(
        Key::crossFilesystemBoundaries, "Scans enter other file systems"));
    rows.push_back(truthRow<&S::deduplicateHardlinks, &S::setDeduplicateHardlinks>(
        Key::deduplicateHardlinks, "Count a file with several links once"));
    rows.push_back(truthRow<&S::descendIntoPackages, &S::setDescendIntoPackages>(Key::descendIntoPackages,
                                                                                 "Look into packages"));
    rows.push_back(truthRow<&S::confirmBeforeTrash, &S::setConfirmBeforeTrash>(
        Key::confirmBeforeTrash, "Ask before something goes to the Trash"));
    rows.push_back(
        optionalRow<&S::lastScanPath>(Key::lastScanPath, "", "The folder that was scanned last", nullptr));
    rows.push_back(numberRow<&S::spaceMonitorInterval, &S::setSpaceMonitorInterval>(
        Key::spaceMonitorInterval, "from 0.5 (seconds)", "How often free space is looked at",
        [](S& settings, const Words& words) {
            const auto value = number(words, 0.5);
            if (value)
                settings.setSpaceMonitorInterval(*value);
            return value.has_value();
        }));
    rows.push_back(truthRow<&S::hasCompletedOnboarding, &S::setHasCompletedOnboarding>(
        Key::hasCompletedOnboarding, "The first steps were shown"));
    rows.push_back(truthRow<&S::fullDiskAccessPromptShown, &S::setFullDiskAccessPromptShown>(
        Key::fullDiskAccessPromptShown, "Full Disk Access was asked for"));
    rows.push_back(bytesRow<&S::largeFileThresholdBytes, &S::setLargeFileThresholdBytes, 0, most>(
        Key::largeFileThresholdBytes, "a size", "From where on a file is large"));
    rows.push_back(bytesRow<&S::duplicateMinimumSizeBytes, &S::setDuplicateMinimumSizeBytes, 0, most>(
        Key::duplicateMinimumSizeBytes, "a size", "From where on duplicates are looked for"));
    rows.push_back(wordRow(
        Key::lastKnownFullDiskAccessStatus, "", "Full Disk Access when last looked",
        [](const S& settings) {
            const auto status = settings.lastKnownFullDiskAccessStatus();
            return std::string(status ? rawValue(*status) : unset);
        },
        nullptr));
    rows.push_back(truthRow<&S::lowDiskAlertsEnabled, &S::setLowDiskAlertsEnabled>(
        Key::lowDiskAlertsEnabled, "Warn when a volume is low on space"));
    rows.push_back(bytesRow<&S::lowDiskAlertThresholdBytes, &S::setLowDiskAlertThresholdBytes,
                            S::minimumLowDiskAlertThresholdBytes, S::maximumLowDiskAlertThresholdBytes>(
        Key::lowDiskAlertThresholdBytes, "1GB to 500GB", "What is low on space"));
    rows.push_back(wordRow(
        Key::snapshotCadence, "off, daily, weekly", "How often a snapshot is taken",
        [](const S& settings) { return settings.snapshotCadence(); },
        [](S& settings, const Words& words) {
            const bool isGood = isOneOf(words, {"off", "daily", "weekly"});
            if (isGood)
                settings.setSnapshotCadence(words.front());
            return isGood;
        }));
    rows.push_back(optionalRow<&S::snapshotScheduleRoot>(
        Key::snapshotScheduleRoot, "a folder", "What snapshots are taken of",
        [](S& settings, const Words& words) {
            if (words.size() != 1 || words.front().empty())
                return false;
            settings.setSnapshotScheduleRoot(DiskScanner::normalize(typedPath(words.front())));
            return true;
        }));
    rows.push_back({Key::lastScheduledSnapshotAt, "", "When the last one was taken",
                    [](const S& settings) {
                        const auto date = settings.lastScheduledSnapshotAt();
                        return (date ? iso8601Text(*date) : std::nullopt).value_or(unset);
                    },
                    [](JSONWriter& json, const S& settings) {
                        const auto date = settings.lastScheduledSnapshotAt();
                        writeOptional(json, date ? iso8601Text(*date) : std::nullopt);
                    },
                    nullptr});
    rows.push_back({Key::cleanupRules, "", "The cleanup rules; see the command rules",
                    [](const S& settings) {
                        const auto rules = settings.cleanupRules();
                        return rules ? countedText(static_cast<std::int64_t>(rules->size()), "rule", "rules")
                                     : std::string("as they come");
                    },
                    [](JSONWriter& json, const S& settings) {
                        const auto rules = settings.cleanupRules();
                        if (rules)
                            json.integer(static_cast<std::int64_t>(rules->size()));
                        else
                            json.null();
                    },
                    nullptr});
    return rows;
}

} // namespace

std::string_view SettingRow::name() const {
    return AppSettings::rawValue(key).substr(prefix.size());
}

void SettingRow::writeValue(JSONWriter& json, const AppSettings& settings) const {
    if (write != nullptr)
        return write(json, settings);
    const std::string value = text(settings);
    writeOptional(json, value == unset ? std::nullopt : std::optional(value));
}

std::span<const SettingRow> settingRows() {
    static const std::vector<SettingRow> rows = makeRows();
    return rows;
}

const SettingRow* settingRow(std::string_view name) {
    for (const SettingRow& row : settingRows())
        if (row.name() == name || AppSettings::rawValue(row.key) == name)
            return &row;
    return nullptr;
}

} // namespace tarnwell
