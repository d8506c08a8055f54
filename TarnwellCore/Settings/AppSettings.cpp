#include "TarnwellCore/Settings/AppSettings.hpp"

#include "TarnwellCore/Platform/FatalError.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace tarnwell {

namespace {

using Key = AppSettings::Key;

constexpr std::array<std::string_view, 25> keyTexts = {
    "com.tarnwell.theme",
    "com.tarnwell.sizeMode",
    "com.tarnwell.scanExclusions",
    "com.tarnwell.treemapDepth",
    "com.tarnwell.treemapPadding",
    "com.tarnwell.showLabels",
    "com.tarnwell.colorMode",
    "com.tarnwell.showHiddenFiles",
    "com.tarnwell.crossFilesystemBoundaries",
    "com.tarnwell.deduplicateHardlinks",
    "com.tarnwell.descendIntoPackages",
    "com.tarnwell.confirmBeforeTrash",
    "com.tarnwell.lastScanPath",
    "com.tarnwell.spaceMonitorInterval",
    "com.tarnwell.hasCompletedOnboarding",
    "com.tarnwell.fullDiskAccessPromptShown",
    "com.tarnwell.largeFileThresholdBytes",
    "com.tarnwell.duplicateMinimumSizeBytes",
    "com.tarnwell.lastKnownFullDiskAccessStatus",
    "com.tarnwell.lowDiskAlertsEnabled",
    "com.tarnwell.lowDiskAlertThresholdBytes",
    "com.tarnwell.snapshotCadence",
    "com.tarnwell.snapshotScheduleRoot",
    "com.tarnwell.lastScheduledSnapshotAt",
    "com.tarnwell.cleanupRules",
};
static_assert(static_cast<std::size_t>(Key::cleanupRules) + 1 == keyTexts.size());

constexpr std::array<Key, keyTexts.size()> keys = []() {
    std::array<Key, keyTexts.size()> all{};
    for (std::size_t index = 0; index < all.size(); ++index)
        all[index] = static_cast<Key>(index);
    return all;
}();

template <class Value>
std::optional<UserDefaultsValue> stored(const std::optional<Value>& value) {
    return value ? std::optional<UserDefaultsValue>(*value) : std::nullopt;
}

} // namespace

std::span<const Key> AppSettings::allKeys() {
    return keys;
}

std::string_view AppSettings::rawValue(Key key) {
    return keyTexts[static_cast<std::size_t>(key)];
}

std::optional<Key> AppSettings::keyFromRawValue(std::string_view text) {
    const auto found = std::ranges::find(keyTexts, text);
    if (found == keyTexts.end())
        return std::nullopt;
    return keys[static_cast<std::size_t>(found - keyTexts.begin())];
}

const UserDefaults::Values& AppSettings::registrationDefaults() {
    static const UserDefaults::Values values = [] {
        const std::pair<Key, UserDefaultsValue> table[] = {
            {Key::theme, std::string(tarnwell::rawValue(AppTheme::system))},
            {Key::sizeMode, std::string(tarnwell::rawValue(SizeMode::apparent))},
            {Key::scanExclusions, std::vector<std::string>()},
            {Key::treemapDepth, defaultTreemapDepth},
            {Key::treemapPadding, 1.0},
            {Key::showLabels, true},
            {Key::colorMode, std::string(defaultColorMode)},
            {Key::showHiddenFiles, true},
            {Key::crossFilesystemBoundaries, false},
            {Key::deduplicateHardlinks, true},
            {Key::descendIntoPackages, true},
            {Key::confirmBeforeTrash, true},
            {Key::spaceMonitorInterval, 5.0},
            {Key::hasCompletedOnboarding, false},
            {Key::fullDiskAccessPromptShown, false},
            {Key::largeFileThresholdBytes, std::int64_t{50'000'000}},
            {Key::duplicateMinimumSizeBytes, std::int64_t{1'000'000}},
            {Key::lowDiskAlertsEnabled, false},
            {Key::lowDiskAlertThresholdBytes, defaultLowDiskAlertThresholdBytes},
            {Key::snapshotCadence, std::string("off")},
        };
        UserDefaults::Values registered;
        for (const auto& [key, value] : table)
            registered.emplace(rawValue(key), value);
        return registered;
    }();
    return values;
}

AppSettings::AppSettings(std::shared_ptr<UserDefaults> defaults) : defaults_(std::move(defaults)) {
    if (!defaults_)
        fatalError("settings need a store");
    defaults_->registerDefaults(registrationDefaults());
}

// --- Reading and writing by kind --------------------------------------------------------------------------

/// The store has this default too, unless somebody registered another kind of value over it.
template <class Value>
Value AppSettings::registered(Key key) const {
    return std::get<Value>(registrationDefaults().find(rawValue(key))->second);
}

bool AppSettings::boolean(Key key) const {
    const std::optional<bool> value = defaults_->boolean(rawValue(key));
    return value ? *value : registered<bool>(key);
}

std::int64_t AppSettings::integer(Key key) const {
    const std::optional<std::int64_t> value = defaults_->integer(rawValue(key));
    return value ? *value : registered<std::int64_t>(key);
}

std::string AppSettings::text(Key key) const {
    std::optional<std::string> value = defaults_->string(rawValue(key));
    return value ? *std::move(value) : registered<std::string>(key);
}

void AppSettings::set(Key key, std::optional<UserDefaultsValue> value) {
    UserDefaults::Changes changes;
    changes.emplace(rawValue(key), std::move(value));
    defaults_->apply(std::move(changes));
}

// --- Appearance -------------------------------------------------------------------------------------------

AppTheme AppSettings::theme() const {
    return appThemeFromRawValue(text(Key::theme)).value_or(AppTheme::system);
}
void AppSettings::setTheme(AppTheme theme) {
    set(Key::theme, std::string(tarnwell::rawValue(theme)));
}

SizeMode AppSettings::sizeMode() const {
    return sizeModeFromRawValue(text(Key::sizeMode)).value_or(SizeMode::apparent);
}
void AppSettings::setSizeMode(SizeMode mode) {
    set(Key::sizeMode, std::string(tarnwell::rawValue(mode)));
}

std::string AppSettings::colorModeRawValue() const {
    return text(Key::colorMode);
}
void AppSettings::setColorModeRawValue(const std::string& value) {
    set(Key::colorMode, value);
}

bool AppSettings::showLabels() const {
    return boolean(Key::showLabels);
}
void AppSettings::setShowLabels(bool value) {
    set(Key::showLabels, value);
}

bool AppSettings::showHiddenFiles() const {
    return boolean(Key::showHiddenFiles);
}
void AppSettings::setShowHiddenFiles(bool value) {
    set(Key::showHiddenFiles, value);
}

std::int64_t AppSettings::treemapDepth() const {
    return std::max<std::int64_t>(integer(Key::treemapDepth), 0);
}
void AppSettings::setTreemapDepth(std::int64_t depth) {
    set(Key::treemapDepth, depth);
}

double AppSettings::treemapPadding() const {
    return defaults_->number(rawValue(Key::treemapPadding)).value_or(registered<double>(Key::treemapPadding));
}
void AppSettings::setTreemapPadding(double padding) {
    set(Key::treemapPadding, padding);
}

TreemapConfiguration AppSettings::treemapConfiguration() const {
    TreemapConfiguration configuration = TreemapConfiguration::defaultPreset;
    configuration.padding = treemapPadding();
    configuration.maximumDepth = treemapDepth();
    configuration.sizeMode = sizeMode();
    return configuration;
}

// --- Scanning ---------------------------------------------------------------------------------------------

std::vector<std::string> AppSettings::scanExclusions() const {
    return defaults_->stringArray(rawValue(Key::scanExclusions)).value_or(std::vector<std::string>());
}
void AppSettings::setScanExclusions(const std::vector<std::string>& paths) {
    set(Key::scanExclusions, paths);
}

bool AppSettings::crossFilesystemBoundaries() const {
    return boolean(Key::crossFilesystemBoundaries);
}
void AppSettings::setCrossFilesystemBoundaries(bool value) {
    set(Key::crossFilesystemBoundaries, value);
}

bool AppSettings::deduplicateHardlinks() const {
    return boolean(Key::deduplicateHardlinks);
}
void AppSettings::setDeduplicateHardlinks(bool value) {
    set(Key::deduplicateHardlinks, value);
}

bool AppSettings::descendIntoPackages() const {
    return boolean(Key::descendIntoPackages);
}
void AppSettings::setDescendIntoPackages(bool value) {
    set(Key::descendIntoPackages, value);
}

ScanOptions AppSettings::scanOptions() const {
    ScanOptions options;
    options.crossFilesystemBoundaries = crossFilesystemBoundaries();
    options.deduplicateHardlinks = deduplicateHardlinks();
    options.descendIntoPackages = descendIntoPackages();
    for (std::string& path : scanExclusions())
        options.excludedPaths.insert(std::move(path));
    return options;
}

std::optional<std::string> AppSettings::lastScanPath() const {
    return defaults_->string(rawValue(Key::lastScanPath));
}
void AppSettings::setLastScanPath(const std::optional<std::string>& path) {
    set(Key::lastScanPath, stored(path));
}

std::int64_t AppSettings::largeFileThresholdBytes() const {
    return integer(Key::largeFileThresholdBytes);
}
void AppSettings::setLargeFileThresholdBytes(std::int64_t bytes) {
    set(Key::largeFileThresholdBytes, bytes);
}

std::int64_t AppSettings::duplicateMinimumSizeBytes() const {
    return integer(Key::duplicateMinimumSizeBytes);
}
void AppSettings::setDuplicateMinimumSizeBytes(std::int64_t bytes) {
    set(Key::duplicateMinimumSizeBytes, bytes);
}

DuplicateOptions AppSettings::duplicateOptions() const {
    return {.minimumSize = duplicateMinimumSizeBytes()};
}

// --- Cleaning up ------------------------------------------------------------------------------------------

bool AppSettings::confirmBeforeTrash() const {
    return boolean(Key::confirmBeforeTrash);
}
void AppSettings::setConfirmBeforeTrash(bool value) {
    set(Key::confirmBeforeTrash, value);
}

std::optional<std::vector<CleanupRule>> AppSettings::cleanupRules() const {
    const std::optional<std::string> json = defaults_->data(rawValue(Key::cleanupRules));
    return json ? std::optional(CleanupRule::rules(*json)) : std::nullopt;
}
void AppSettings::setCleanupRules(const std::optional<std::vector<CleanupRule>>& rules) {
    set(Key::cleanupRules,
        rules ? stored(std::optional(DataValue{CleanupRule::encodeStored(*rules)})) : std::nullopt);
}
std::vector<CleanupRule>
AppSettings::changeCleanupRules(const std::function<void(std::vector<CleanupRule>&)>& change) {
    std::vector<CleanupRule> rules;
    defaults_->change(rawValue(Key::cleanupRules), [&](const std::optional<UserDefaultsValue>& value) {
        const auto* json = value ? std::get_if<DataValue>(&*value) : nullptr;
        rules = json != nullptr ? CleanupRule::rules(json->bytes) : CleanupRule::presets();
        change(rules);
        return std::optional<UserDefaultsValue>(DataValue{CleanupRule::encodeStored(rules)});
    });
    return rules;
}

// --- Free space -------------------------------------------------------------------------------------------

double AppSettings::spaceMonitorInterval() const {
    constexpr double shortest = 0.5;
    const std::optional<double> seconds = defaults_->number(rawValue(Key::spaceMonitorInterval));
    return std::max(shortest, seconds.value_or(registered<double>(Key::spaceMonitorInterval)));
}
void AppSettings::setSpaceMonitorInterval(double seconds) {
    set(Key::spaceMonitorInterval, seconds);
}

bool AppSettings::lowDiskAlertsEnabled() const {
    return boolean(Key::lowDiskAlertsEnabled);
}
void AppSettings::setLowDiskAlertsEnabled(bool value) {
    set(Key::lowDiskAlertsEnabled, value);
}

std::int64_t AppSettings::lowDiskAlertThresholdBytes() const {
    return std::clamp(integer(Key::lowDiskAlertThresholdBytes), minimumLowDiskAlertThresholdBytes,
                      maximumLowDiskAlertThresholdBytes);
}
void AppSettings::setLowDiskAlertThresholdBytes(std::int64_t bytes) {
    set(Key::lowDiskAlertThresholdBytes, bytes);
}

// --- Snapshots --------------------------------------------------------------------------------------------

std::string AppSettings::snapshotCadence() const {
    return text(Key::snapshotCadence);
}
void AppSettings::setSnapshotCadence(const std::string& value) {
    set(Key::snapshotCadence, value);
}

std::optional<std::string> AppSettings::snapshotScheduleRoot() const {
    return defaults_->string(rawValue(Key::snapshotScheduleRoot));
}
void AppSettings::setSnapshotScheduleRoot(const std::optional<std::string>& path) {
    set(Key::snapshotScheduleRoot, stored(path));
}

std::optional<Date> AppSettings::lastScheduledSnapshotAt() const {
    return defaults_->date(rawValue(Key::lastScheduledSnapshotAt));
}
void AppSettings::setLastScheduledSnapshotAt(std::optional<Date> date) {
    set(Key::lastScheduledSnapshotAt, stored(date));
}

// --- First steps and access -------------------------------------------------------------------------------

bool AppSettings::hasCompletedOnboarding() const {
    return boolean(Key::hasCompletedOnboarding);
}
void AppSettings::setHasCompletedOnboarding(bool value) {
    set(Key::hasCompletedOnboarding, value);
}

bool AppSettings::fullDiskAccessPromptShown() const {
    return boolean(Key::fullDiskAccessPromptShown);
}
void AppSettings::setFullDiskAccessPromptShown(bool value) {
    set(Key::fullDiskAccessPromptShown, value);
}

std::optional<FullDiskAccessStatus> AppSettings::lastKnownFullDiskAccessStatus() const {
    const std::optional<std::string> text = defaults_->string(rawValue(Key::lastKnownFullDiskAccessStatus));
    return text ? fullDiskAccessStatusFromRawValue(*text) : std::nullopt;
}
void AppSettings::setLastKnownFullDiskAccessStatus(std::optional<FullDiskAccessStatus> status) {
    set(Key::lastKnownFullDiskAccessStatus,
        status ? stored(std::optional(std::string(tarnwell::rawValue(*status)))) : std::nullopt);
}

void AppSettings::reset() {
    UserDefaults::Changes changes;
    for (const auto& [key, value] : registrationDefaults())
        changes.emplace(key, std::nullopt);
    defaults_->apply(std::move(changes));
}

} // namespace tarnwell
