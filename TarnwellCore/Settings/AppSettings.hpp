#pragma once

// The application's settings, typed, over the user's stored values: one key a setting.

#include "TarnwellCore/Analysis/CleanupRule.hpp"
#include "TarnwellCore/Analysis/DuplicateOptions.hpp"
#include "TarnwellCore/Layout/TreemapConfiguration.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/UserDefaults.hpp"
#include "TarnwellCore/Scanning/ScanOptions.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"
#include "TarnwellCore/Settings/AppTheme.hpp"
#include "TarnwellCore/Settings/FullDiskAccess.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// A handle on a store; copies share it. Nothing is cached: a read finds what any program wrote last. A value
/// of the wrong kind, or of no meaning, reads as the default. What is set is stored as given; readers clamp.
/// Safe from any thread. Setting never fails: see `UserDefaults::synchronize`.
class AppSettings {
public:
    enum class Key : std::uint8_t {
        theme,
        sizeMode,
        scanExclusions,
        treemapDepth,
        treemapPadding,
        showLabels,
        colorMode,
        showHiddenFiles,
        crossFilesystemBoundaries,
        deduplicateHardlinks,
        descendIntoPackages,
        confirmBeforeTrash,
        lastScanPath,
        spaceMonitorInterval,
        hasCompletedOnboarding,
        fullDiskAccessPromptShown,
        largeFileThresholdBytes,
        duplicateMinimumSizeBytes,
        lastKnownFullDiskAccessStatus,
        lowDiskAlertsEnabled,
        lowDiskAlertThresholdBytes,
        snapshotCadence,
        snapshotScheduleRoot,
        lastScheduledSnapshotAt,
        cleanupRules,
    };
    /// In the order above.
    static std::span<const Key> allKeys();
    /// "com.tarnwell." and the key's name; lives for ever.
    static std::string_view rawValue(Key key);
    static std::optional<Key> keyFromRawValue(std::string_view text);

    static constexpr std::int64_t defaultTreemapDepth = 4;
    static constexpr std::string_view defaultColorMode = "category";
    /// Bytes.
    static constexpr std::int64_t defaultLowDiskAlertThresholdBytes = 10'000'000'000;
    static constexpr std::int64_t minimumLowDiskAlertThresholdBytes = 1'000'000'000;
    static constexpr std::int64_t maximumLowDiskAlertThresholdBytes = 500'000'000'000;

    /// What a store without values reads as.
    static const UserDefaults::Values& registrationDefaults();

    /// Registers the defaults with the store.
    explicit AppSettings(std::shared_ptr<UserDefaults> defaults = UserDefaults::standard());

    UserDefaults& defaults() const { return *defaults_; }

    // --- Appearance -----------------------------------------------------------------------------------

    AppTheme theme() const;
    void setTheme(AppTheme theme);
    SizeMode sizeMode() const;
    void setSizeMode(SizeMode mode);
    std::string colorModeRawValue() const;
    void setColorModeRawValue(const std::string& value);
    bool showLabels() const;
    void setShowLabels(bool value);
    /// A choice of what is shown; scans count hidden items regardless.
    bool showHiddenFiles() const;
    void setShowHiddenFiles(bool value);
    /// At least 0.
    std::int64_t treemapDepth() const;
    void setTreemapDepth(std::int64_t depth);
    /// Points.
    double treemapPadding() const;
    void setTreemapPadding(double padding);
    /// The default configuration with the depth, padding and size mode of the settings.
    TreemapConfiguration treemapConfiguration() const;

    // --- Scanning -------------------------------------------------------------------------------------

    /// Absolute paths, of any bytes.
    std::vector<std::string> scanExclusions() const;
    void setScanExclusions(const std::vector<std::string>& paths);
    bool crossFilesystemBoundaries() const;
    void setCrossFilesystemBoundaries(bool value);
    bool deduplicateHardlinks() const;
    void setDeduplicateHardlinks(bool value);
    bool descendIntoPackages() const;
    void setDescendIntoPackages(bool value);
    /// The default options with these four settings.
    ScanOptions scanOptions() const;
    std::optional<std::string> lastScanPath() const;
    void setLastScanPath(const std::optional<std::string>& path);
    /// Bytes.
    std::int64_t largeFileThresholdBytes() const;
    void setLargeFileThresholdBytes(std::int64_t bytes);
    std::int64_t duplicateMinimumSizeBytes() const;
    void setDuplicateMinimumSizeBytes(std::int64_t bytes);
    /// The default options with the minimum size of the settings.
    DuplicateOptions duplicateOptions() const;

    // --- Cleaning up ----------------------------------------------------------------------------------

    bool confirmBeforeTrash() const;
    void setConfirmBeforeTrash(bool value);
    /// The user's cleanup rules; nothing until a list was stored, which may be empty. An element of the
    /// stored list that is no rule is left out.
    std::optional<std::vector<CleanupRule>> cleanupRules() const;
    void setCleanupRules(const std::optional<std::vector<CleanupRule>>& rules);
    /// Changes the list as it is stored now, in one step (UserDefaults::change); where none was stored, that
    /// of the rules that ship with the system. Returns what it is then.
    std::vector<CleanupRule> changeCleanupRules(const std::function<void(std::vector<CleanupRule>&)>& change);

    // --- Free space -----------------------------------------------------------------------------------

    /// Seconds; at least 0.5.
    double spaceMonitorInterval() const;
    void setSpaceMonitorInterval(double seconds);
    bool lowDiskAlertsEnabled() const;
    void setLowDiskAlertsEnabled(bool value);
    /// Bytes; between the minimum and the maximum above.
    std::int64_t lowDiskAlertThresholdBytes() const;
    void setLowDiskAlertThresholdBytes(std::int64_t bytes);

    // --- Snapshots ------------------------------------------------------------------------------------

    /// "off" unless set.
    std::string snapshotCadence() const;
    void setSnapshotCadence(const std::string& value);
    std::optional<std::string> snapshotScheduleRoot() const;
    void setSnapshotScheduleRoot(const std::optional<std::string>& path);
    std::optional<Date> lastScheduledSnapshotAt() const;
    void setLastScheduledSnapshotAt(std::optional<Date> date);

    // --- First steps and access -----------------------------------------------------------------------

    bool hasCompletedOnboarding() const;
    void setHasCompletedOnboarding(bool value);
    bool fullDiskAccessPromptShown() const;
    void setFullDiskAccessPromptShown(bool value);
    std::optional<FullDiskAccessStatus> lastKnownFullDiskAccessStatus() const;
    void setLastKnownFullDiskAccessStatus(std::optional<FullDiskAccessStatus> status);

    /// Back to the registered defaults. What has none is not a preference and stays: the cleanup rules, the
    /// last scan, the snapshot schedule's root and date, the last known access.
    void reset();

private:
    template <class Value>
    Value registered(Key key) const;
    bool boolean(Key key) const;
    std::int64_t integer(Key key) const;
    std::string text(Key key) const;
    void set(Key key, std::optional<UserDefaultsValue> value);

    std::shared_ptr<UserDefaults> defaults_;
};

} // namespace tarnwell
