#include "TarnwellCore/Analysis/InstallerStem.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarnwell {
namespace {

TEST(InstallerStem, VersionsPlatformsAndCopiesAreTakenOff) {
    const struct {
        const char* name;
        const char* stem;
        std::vector<std::uint64_t> version;
        const char* variant;
    } cases[] = {
        {"App-1.2.3.dmg", "app", {1, 2, 3}, ""},
        {"App 2.0 (1).dmg", "app", {2, 0}, ""},
        {"App_v3-arm64.pkg", "app", {3}, "arm64"},
        {"App.dmg", "app", {}, ""},
        {"App (2).dmg", "app", {}, ""},
        {"App copy 2.dmg", "app", {}, ""},
        {"app-x86_64-1.2.pkg", "app", {1, 2}, "x86 64"},
        {"App-64-bit-1.0.exe", "app", {1, 0}, "64"},
        {"Great Tool Setup 10.4.exe", "great tool", {10, 4}, ""},
        {"python-3.12.1-macos11.pkg", "python", {3, 12, 1}, "macos"},
        {"Blend3.6.5.dmg", "blend", {3, 6, 5}, ""},
        {"Tool_1_2_3.pkg", "tool", {1, 2, 3}, ""},
        {"Tool-2.0b3.dmg", "tool", {2, 0}, ""},
        {"Tool-2.0-rc1.dmg", "tool", {2, 0}, ""},
        {"org.maker.Tool.1.4.pkg", "org maker tool", {1, 4}, ""},
        {"1Tool-8.10.dmg", "1tool", {8, 10}, ""},
        {"Tool+2024-01-31.dmg", "tool", {2024}, ""},
        {"Tool-99999999999999999999.dmg", "tool", {18446744073709551615u}, ""},
        {"2024.1.dmg", "2024.1", {2024, 1}, ""},
        {"Setup.exe", "setup", {}, ""},
        {"App 2.0", "app", {2, 0}, ""},
        {"T\xC3\xB6\xC3\xB6l\xFF-1.0.dmg", "t\xC3\xB6\xC3\xB6l\xFF", {1, 0}, ""},
        {"", "", {}, ""},
        {".dmg", "dmg", {}, ""},
    };
    for (const auto& each : cases) {
        const InstallerName name = installerName(each.name);
        EXPECT_EQ(installerStem(each.name), each.stem) << each.name;
        EXPECT_EQ(name.version, each.version) << each.name;
        EXPECT_EQ(name.variant, each.variant) << each.name;
    }
    EXPECT_TRUE(isInstaller("A.DMG"));
    EXPECT_FALSE(isInstaller("A.zip"));
    EXPECT_FALSE(isInstaller("dmg"));
}

} // namespace
} // namespace tarnwell
