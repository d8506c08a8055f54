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
    writer.setTheme(AppTheme::dark);
    writer.setSizeMode(SizeMode::reclaimable);
    writer.setScanExclusions({"/a", "/\xFF"});
    writer.setTreemapDepth(7);
    writer.setTreemapPadding(2.5);
    writer.setShowLabels(false);
    writer.setColorModeRawValue("age");
    writer.setShowHiddenFiles(false);
    writer.setCrossFilesystemBoundaries(true);
    writer.setDeduplicateHardlinks(false);
    writer.setDescendIntoPackages(false);
    writer.setConfirmBeforeTrash(false);
    writer.setLastScanPath("/home/\xFF");
    writer.setSpaceMonitorInterval(30);
    writer.setHasCompletedOnboarding(true);
    writer.setFullDiskAccessPromptShown(true);
    writer.setLargeFileThresholdBytes(-1);
    writer.setDuplicateMinimumSizeBytes(0);
    writer.setLastKnownFullDiskAccessStatus(FullDiskAccessStatus::denied);
    writer.setLowDiskAlertsEnabled(true);
    writer.setLowDiskAlertThresholdBytes(20'000'000'000);
    writer.setSnapshotCadence("weekly");
    writer.setSnapshotScheduleRoot("/");
    const Date date = dateFromReferenceSeconds(774'000'000.25);
    writer.setLastScheduledSnapshotAt(date);
    const std::vector<CleanupRule> rules = {{.id = "1", .name = "Old \xC3\xA4", .minimumSize = 5},
                                            {.id = "2", .name = "Off", .isEnabled = false}};
    writer.setCleanupRules(rules);
    for (const Key key : AppSettings::allKeys())
        EXPECT_NE(text().find('"' + std::string(AppSettings::rawValue(key)) + "\": "), std::string::npos);

    AppSettings reader = settings();
    EXPECT_EQ(reader.theme(), AppTheme::dark);
    EXPECT_EQ(reader.sizeMode(), SizeMode::reclaimable);
    EXPECT_EQ(reader.scanExclusions(), (std::vector<std::string>{"/a", "/\xFF"}));
    EXPECT_EQ(reader.treemapDepth(), 7);
    EXPECT_EQ(reader.treemapPadding(), 2.5);
    EXPECT_FALSE(reader.showLabels());
    EXPECT_EQ(reader.colorModeRawValue(), "age");
    EXPECT_FALSE(reader.showHiddenFiles());
    EXPECT_TRUE(reader.crossFilesystemBoundaries());
    EXPECT_FALSE(reader.deduplicateHardlinks());
    EXPECT_FALSE(reader.descendIntoPackages());
    EXPECT_FALSE(reader.confirmBeforeTrash());
    EXPECT_EQ(reader.lastScanPath(), "/home/\xFF");
    EXPECT_EQ(reader.spaceMonitorInterval(), 30);
    EXPECT_TRUE(reader.hasCompletedOnboarding());
    EXPECT_TRUE(reader.fullDiskAccessPromptShown());
    EXPECT_EQ(reader.largeFileThresholdBytes(), -1);
    EXPECT_EQ(reader.duplicateMinimumSizeBytes(), 0);
    EXPECT_EQ(reader.lastKnownFullDiskAccessStatus(), FullDiskAccessStatus::denied);
    EXPECT_TRUE(reader.lowDiskAlertsEnabled());
    EXPECT_EQ(reader.lowDiskAlertThresholdBytes(), 20'000'000'000);
    EXPECT_EQ(reader.snapshotCadence(), "weekly");
    EXPECT_EQ(reader.snapshotScheduleRoot(), "/");
    EXPECT_EQ(reader.lastScheduledSnapshotAt(), date);
    EXPECT_EQ(reader.cleanupRules(), rules);

    ScanOptions options;
    options.crossFilesystemBoundaries = true;
    options.deduplicateHardlinks = false;
    options.descendIntoPackages = false;
    options.excludedPaths = {"/a", "/\xFF"};
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
