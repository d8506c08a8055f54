// The settings file and the settings read from it. Input: the file.
// Exercises: TarnwellCore/Platform/DefaultsDocument.cpp
// Exercises: TarnwellCore/Platform/UserDefaults.cpp
// Exercises: TarnwellCore/Settings/AppSettings.cpp

#include "TarnwellCore/Platform/DefaultsDocument.hpp"
#include "TarnwellCore/Settings/AppSettings.hpp"

#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "Fuzz/Require.hpp"

namespace tarnwell::fuzz {

namespace {

/// A store of settings that holds a document instead of a file.
class DocumentDefaults : public UserDefaults {
public:
    explicit DocumentDefaults(DefaultsDocument document) : document_(std::move(document)) {}

    bool synchronize() override { return true; }
    std::string text() const { return document_.text(); }

protected:
    std::optional<UserDefaultsValue> storedValue(std::string_view key) const override {
        return document_.value(key);
    }
    void store(Changes changes) override {
        for (const auto& [key, value] : changes)
            if (value)
                document_.set(key, *value);
            else
                document_.remove(key);
    }

private:
    DefaultsDocument document_;
};

DefaultsDocument parsed(std::string_view text) {
    auto document = DefaultsDocument::parse(text);
    require(document.has_value(), "what was written is read back");
    return std::move(*document);
}

void requireGoodReadings(const AppSettings& settings) {
    require(settings.treemapDepth() >= 0, "the treemap has a depth");
    require(std::isfinite(settings.treemapPadding()), "the padding is finite");
    require(settings.spaceMonitorInterval() >= 0.5 && std::isfinite(settings.spaceMonitorInterval()),
            "the monitor has an interval");
    require(settings.lowDiskAlertThresholdBytes() >= AppSettings::minimumLowDiskAlertThresholdBytes &&
                settings.lowDiskAlertThresholdBytes() <= AppSettings::maximumLowDiskAlertThresholdBytes,
            "the alert has a threshold within its limits");
    require(settings.treemapConfiguration().maximumDepth == settings.treemapDepth(),
            "the configuration follows the settings");
    require(settings.scanOptions().excludedPaths.size() <= settings.scanExclusions().size(),
            "the options follow the settings");
    if (const auto rules = settings.cleanupRules())
        for (const CleanupRule& rule : *rules)
            require(!rule.id.empty() && !rule.name.empty(), "a rule has an id and a name");
    for (const AppSettings::Key key : AppSettings::allKeys()) {
        const UserDefaults& defaults = settings.defaults();
        const std::string_view name = AppSettings::rawValue(key);
        const auto number = defaults.number(name);
        require(!number || std::isfinite(*number), "a number is finite");
        const auto date = defaults.date(name);
        require(!date || std::isfinite(date->time_since_epoch().count()), "a date is finite");
        require(defaults.integer(name).has_value() == number.has_value(), "a number has a whole part");
        require(!defaults.data(name) || defaults.string(name) == defaults.data(name), "data reads as a text");
    }
}

/// Everything that is read is stored again as it was read, which must change no reading.
void storeEverything(AppSettings& settings) {
    settings.setTheme(settings.theme());
    settings.setSizeMode(settings.sizeMode());
    settings.setColorModeRawValue(settings.colorModeRawValue());
    settings.setShowLabels(settings.showLabels());
    settings.setTreemapDepth(settings.treemapDepth());
    settings.setTreemapPadding(settings.treemapPadding());
    settings.setScanExclusions(settings.scanExclusions());
    settings.setLastScanPath(settings.lastScanPath());
    settings.setLargeFileThresholdBytes(settings.largeFileThresholdBytes());
    settings.setCleanupRules(settings.cleanupRules());
    settings.setSpaceMonitorInterval(settings.spaceMonitorInterval());
    settings.setLowDiskAlertThresholdBytes(settings.lowDiskAlertThresholdBytes());
    settings.setLastScheduledSnapshotAt(settings.lastScheduledSnapshotAt());
    settings.setLastKnownFullDiskAccessStatus(settings.lastKnownFullDiskAccessStatus());
}

void requireSameReadings(const AppSettings& a, const AppSettings& b) {
    require(a.theme() == b.theme() && a.colorModeRawValue() == b.colorModeRawValue() &&
                a.showLabels() == b.showLabels() && a.treemapConfiguration() == b.treemapConfiguration(),
            "the appearance is kept");
    require(a.scanOptions() == b.scanOptions() && a.scanExclusions() == b.scanExclusions() &&
                a.lastScanPath() == b.lastScanPath() &&
                a.largeFileThresholdBytes() == b.largeFileThresholdBytes(),
            "the scan's settings are kept");
    require(a.cleanupRules() == b.cleanupRules(), "the rules are kept");
    require(a.spaceMonitorInterval() == b.spaceMonitorInterval() &&
                a.lowDiskAlertThresholdBytes() == b.lowDiskAlertThresholdBytes(),
            "the monitor's settings are kept");
    require(a.lastScheduledSnapshotAt() == b.lastScheduledSnapshotAt() &&
                a.lastKnownFullDiskAccessStatus() == b.lastKnownFullDiskAccessStatus(),
            "what was remembered is kept");
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    auto document = DefaultsDocument::parse({reinterpret_cast<const char*>(data), size});
    if (!document)
        return 0;
    const std::string text = document->text();
    const DefaultsDocument again = fuzz::parsed(text);
    fuzz::require(again.values() == document->values(), "the values are read back");
    fuzz::require(again.text() == text, "what was written is written again");

    const AppSettings read(std::make_shared<fuzz::DocumentDefaults>(std::move(*document)));
    fuzz::requireGoodReadings(read);
    const auto written = std::make_shared<fuzz::DocumentDefaults>(fuzz::parsed(text));
    AppSettings changed(written);
    fuzz::storeEverything(changed);
    fuzz::requireSameReadings(changed, read);
    const AppSettings reread(std::make_shared<fuzz::DocumentDefaults>(fuzz::parsed(written->text())));
    fuzz::requireSameReadings(reread, read);
    changed.reset();
    fuzz::parsed(written->text());
    return 0;
}
