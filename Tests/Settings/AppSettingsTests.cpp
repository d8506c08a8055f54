#include "TarnwellCore/Platform/JSONFileDefaults.hpp"
#include "TarnwellCore/Settings/AppSettings.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

namespace tarnwell {

namespace {

using Key = AppSettings::Key;
using test::TemporaryFolder;

class AppSettingsTest : public testing::Test {
protected:
    /// A new handle on a new store, as after a start of the program.
    AppSettings settings() const {
        return AppSettings(std::make_shared<JSONFileDefaults>(folder_ / "s.json"));
    }

    /// The settings where the file holds this as the key's value.
    AppSettings settingsWith(Key key, std::string_view json) const {
        folder_.writeFile("s.json",
                          "{\"" + std::string(AppSettings::rawValue(key)) + "\": " + std::string(json) + "}");
        return settings();
    }

    std::string text() const { return test::readFile(folder_ / "s.json"); }

private:
    TemporaryFolder folder_;
};

void expectDefaults(const AppSettings& settings) {
    EXPECT_EQ(settings.theme(), AppTheme::system);
    EXPECT_EQ(settings.sizeMode(), SizeMode::apparent);
    EXPECT_EQ(settings.scanExclusions(), std::vector<std::string>());
    EXPECT_EQ(settings.treemapDepth(), 4);
    EXPECT_EQ(settings.treemapPadding(), 1.0);
    EXPECT_TRUE(settings.showLabels());
    EXPECT_EQ(settings.colorModeRawValue(), "category");
    EXPECT_TRUE(settings.showHiddenFiles());
    EXPECT_FALSE(settings.crossFilesystemBoundaries());
    EXPECT_TRUE(settings.deduplicateHardlinks());
    EXPECT_TRUE(settings.descendIntoPackages());
    EXPECT_TRUE(settings.confirmBeforeTrash());
    EXPECT_EQ(settings.spaceMonitorInterval(), 5.0);
    EXPECT_FALSE(settings.hasCompletedOnboarding());
    EXPECT_FALSE(settings.fullDiskAccessPromptShown());
    EXPECT_EQ(settings.largeFileThresholdBytes(), 50'000'000);
    EXPECT_EQ(settings.duplicateMinimumSizeBytes(), 1'000'000);
    EXPECT_FALSE(settings.lowDiskAlertsEnabled());
    EXPECT_EQ(settings.lowDiskAlertThresholdBytes(), 10'000'000'000);
    EXPECT_EQ(settings.snapshotCadence(), "off");
}

TEST_F(AppSettingsTest, KeysAreOfTheProduct) {
    std::set<std::string_view> texts;
    for (const Key key : AppSettings::allKeys()) {
        texts.insert(AppSettings::rawValue(key));
        EXPECT_EQ(AppSettings::keyFromRawValue(AppSettings::rawValue(key)), key);
    }
    EXPECT_EQ(texts.size(), 25u);
    EXPECT_EQ(AppSettings::rawValue(Key::theme), "com.tarnwell.theme");
    EXPECT_EQ(AppSettings::rawValue(Key::lowDiskAlertThresholdBytes),
              "com.tarnwell.lowDiskAlertThresholdBytes");
    EXPECT_EQ(AppSettings::rawValue(Key::cleanupRules), "com.tarnwell.cleanupRules");
    EXPECT_EQ(AppSettings::keyFromRawValue("theme"), std::nullopt);
    EXPECT_EQ(AppSettings::registrationDefaults().size(), 20u);
}

TEST_F(AppSettingsTest, EverySettingIsKeptUnderItsKeyUntilReset) {
    expectDefaults(settings());
    AppSettings writer = settings();
    AppSettings reader = settings();
    const auto expectKept = [&](Key key, auto set, auto get, const auto& value) {
        (writer.*set)(value);
        const std::string name(AppSettings::rawValue(key));
        EXPECT_NE(text().find('"' + name + "\": "), std::string::npos) << name;
        EXPECT_EQ((reader.*get)(), value) << name;
    };
    using S = AppSettings;
    const std::vector<std::string> paths = {"/a", "/\xFF"};
    const Date date = dateFromReferenceSeconds(774'000'000.25);
    const std::vector<CleanupRule> rules = {{.id = "1", .name = "Old \xC3\xA4", .minimumSize = 5},
                                            {.id = "2", .name = "Off", .isEnabled = false}};
    expectKept(Key::theme, &S::setTheme, &S::theme, AppTheme::dark);
    expectKept(Key::sizeMode, &S::setSizeMode, &S::sizeMode, SizeMode::reclaimable);
    expectKept(Key::scanExclusions, &S::setScanExclusions, &S::scanExclusions, paths);
    expectKept(Key::treemapDepth, &S::setTreemapDepth, &S::treemapDepth, 7);
    expectKept(Key::treemapPadding, &S::setTreemapPadding, &S::treemapPadding, 2.5);
    expectKept(Key::showLabels, &S::setShowLabels, &S::showLabels, false);
    expectKept(Key::colorMode, &S::setColorModeRawValue, &S::colorModeRawValue, "age");
    expectKept(Key::showHiddenFiles, &S::setShowHiddenFiles, &S::showHiddenFiles, false);
    expectKept(Key::crossFilesystemBoundaries, &S::setCrossFilesystemBoundaries,
               &S::crossFilesystemBoundaries, true);
    expectKept(Key::deduplicateHardlinks, &S::setDeduplicateHardlinks, &S::deduplicateHardlinks, false);
    expectKept(Key::descendIntoPackages, &S::setDescendIntoPackages, &S::descendIntoPackages, false);
    expectKept(Key::confirmBeforeTrash, &S::setConfirmBeforeTrash, &S::confirmBeforeTrash, false);
    expectKept(Key::lastScanPath, &S::setLastScanPath, &S::lastScanPath, "/home/\xFF");
    expectKept(Key::spaceMonitorInterval, &S::setSpaceMonitorInterval, &S::spaceMonitorInterval, 30);
    expectKept(Key::hasCompletedOnboarding, &S::setHasCompletedOnboarding, &S::hasCompletedOnboarding, true);
    expectKept(Key::fullDiskAccessPromptShown, &S::setFullDiskAccessPromptShown,
               &S::fullDiskAccessPromptShown, true);
    expectKept(Key::largeFileThresholdBytes, &S::setLargeFileThresholdBytes, &S::largeFileThresholdBytes, -1);
    expectKept(Key::duplicateMinimumSizeBytes, &S::setDuplicateMinimumSizeBytes,
               &S::duplicateMinimumSizeBytes, 0);
    expectKept(Key::lastKnownFullDiskAccessStatus, &S::setLastKnownFullDiskAccessStatus,
               &S::lastKnownFullDiskAccessStatus, FullDiskAccessStatus::denied);
    expectKept(Key::lowDiskAlertsEnabled, &S::setLowDiskAlertsEnabled, &S::lowDiskAlertsEnabled, true);
    expectKept(Key::lowDiskAlertThresholdBytes, &S::setLowDiskAlertThresholdBytes,
               &S::lowDiskAlertThresholdBytes, 20'000'000'000);
    expectKept(Key::snapshotCadence, &S::setSnapshotCadence, &S::snapshotCadence, "weekly");
    expectKept(Key::snapshotScheduleRoot, &S::setSnapshotScheduleRoot, &S::snapshotScheduleRoot, "/");
    expectKept(Key::lastScheduledSnapshotAt, &S::setLastScheduledSnapshotAt, &S::lastScheduledSnapshotAt,
               date);
    expectKept(Key::cleanupRules, &S::setCleanupRules, &S::cleanupRules, rules);

    ScanOptions options;
    options.crossFilesystemBoundaries = true;
    options.deduplicateHardlinks = false;
    options.descendIntoPackages = false;
    options.excludedPaths = {paths.begin(), paths.end()};
    EXPECT_EQ(reader.scanOptions(), options);
    TreemapConfiguration configuration;
    configuration.padding = 2.5;
    configuration.maximumDepth = 7;
    configuration.sizeMode = SizeMode::reclaimable;
    EXPECT_EQ(reader.treemapConfiguration(), configuration);

    // Preferences go back; what the user has made and what the program remembers does not.
    reader.reset();
    expectDefaults(writer);
    expectDefaults(settings());
    EXPECT_EQ(settings().scanOptions(), ScanOptions());
    EXPECT_EQ(settings().cleanupRules(), rules);
    EXPECT_EQ(settings().lastScheduledSnapshotAt(), date);
    reader.setCleanupRules(std::nullopt);
    reader.setLastScheduledSnapshotAt(std::nullopt);
    reader.setLastScanPath(std::nullopt);
    reader.setSnapshotScheduleRoot(std::nullopt);
    reader.setLastKnownFullDiskAccessStatus(std::nullopt);
    EXPECT_EQ(text(), "{}\n");
    EXPECT_EQ(settings().cleanupRules(), std::nullopt);
    EXPECT_EQ(settings().lastKnownFullDiskAccessStatus(), std::nullopt);
}

TEST_F(AppSettingsTest, ReadersClampWhatIsStored) {
    EXPECT_EQ(settingsWith(Key::lowDiskAlertThresholdBytes, "5").lowDiskAlertThresholdBytes(), 1'000'000'000);
    EXPECT_EQ(settingsWith(Key::lowDiskAlertThresholdBytes, "1e15").lowDiskAlertThresholdBytes(),
              500'000'000'000);
    EXPECT_EQ(
        settingsWith(Key::lowDiskAlertThresholdBytes, "18446744073709551615").lowDiskAlertThresholdBytes(),
        500'000'000'000);
    EXPECT_EQ(settingsWith(Key::treemapDepth, "-3").treemapDepth(), 0);
    EXPECT_EQ(settingsWith(Key::spaceMonitorInterval, "0.1").spaceMonitorInterval(), 0.5);
    EXPECT_EQ(settingsWith(Key::spaceMonitorInterval, "-1e300").spaceMonitorInterval(), 0.5);
    EXPECT_EQ(settingsWith(Key::treemapPadding, "-4").treemapPadding(), -4);
    AppSettings written = settings();
    written.setSpaceMonitorInterval(std::nan(""));
    EXPECT_EQ(written.spaceMonitorInterval(), 5.0);
}

TEST_F(AppSettingsTest, ValuesOfTheWrongKindReadAsDefaults) {
    for (const Key key : AppSettings::allKeys())
        for (const char* json :
             {"null", "[1, 2]", "{}", "{\"base64\": 5}", "[[\"a\"]]", "{\"a\": [{}]}", "\"\\u0001\""}) {
            const AppSettings odd = settingsWith(key, json);
            if (key != Key::colorMode && key != Key::snapshotCadence)
                expectDefaults(odd);
            EXPECT_EQ(odd.lastScheduledSnapshotAt(), std::nullopt);
            EXPECT_EQ(odd.cleanupRules(), std::nullopt);
            EXPECT_EQ(odd.lastKnownFullDiskAccessStatus(), std::nullopt);
        }
    EXPECT_EQ(settingsWith(Key::theme, "\"purple\"").theme(), AppTheme::system);
    EXPECT_EQ(settingsWith(Key::theme, "4").theme(), AppTheme::system);
    EXPECT_EQ(settingsWith(Key::colorMode, "4").colorModeRawValue(), "category");
    EXPECT_FALSE(settingsWith(Key::confirmBeforeTrash, "\"NO\"").confirmBeforeTrash());
    EXPECT_EQ(settingsWith(Key::treemapDepth, "\"2\"").treemapDepth(), 2);
    // Data, but no list of rules.
    EXPECT_EQ(settingsWith(Key::cleanupRules, "{\"base64\": \"AAAA\"}").cleanupRules(),
              std::vector<CleanupRule>());
}

TEST(AppTheme, Names) {
    for (const AppTheme theme : allAppThemes)
        EXPECT_EQ(appThemeFromRawValue(rawValue(theme)), theme);
    EXPECT_EQ(displayName(AppTheme::system), "Match System");
    EXPECT_EQ(appThemeFromRawValue("Dark"), std::nullopt);
}

} // namespace

} // namespace tarnwell
