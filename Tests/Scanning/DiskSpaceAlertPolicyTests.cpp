#include "TarnwellCore/Scanning/DiskSpaceAlertPolicy.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tarnwell {
namespace {

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

VolumeInfo volume(std::int64_t available, const char* path = "/disk") {
    VolumeInfo info;
    info.name = std::string("name of ") + path;
    info.path = path;
    info.totalCapacity = largest;
    info.availableCapacity = available;
    return info;
}

/// The paths that a look at these volumes warns about.
std::vector<std::string> warned(DiskSpaceAlertPolicy& policy, const std::vector<VolumeInfo>& volumes) {
    std::vector<std::string> paths;
    for (const auto& alert : policy.evaluate(volumes))
        paths.push_back(alert.volumePath);
    return paths;
}

using Paths = std::vector<std::string>;

TEST(DiskSpaceAlertPolicy, DefaultMarginIsATenth) {
    EXPECT_EQ(DiskSpaceAlertPolicy::margin(1009), 100);
    EXPECT_EQ(DiskSpaceAlertPolicy::margin(-1000), 0);
    EXPECT_EQ(DiskSpaceAlertPolicy(1009, 0).rearmMargin, 0);
}

TEST(DiskSpaceAlertPolicy, WarnsOnceADip) {
    DiskSpaceAlertPolicy policy(1000);
    EXPECT_EQ(warned(policy, {volume(1000)}), Paths());
    EXPECT_EQ(policy.evaluate(std::vector{volume(999)}),
              (std::vector<DiskSpaceAlertPolicy::Alert>{{"name of /disk", "/disk", 999}}));
    // Hovering, up to exactly the margin, releases nothing.
    for (const std::int64_t available : {998, 1050, 0, 1100, 999})
        EXPECT_EQ(warned(policy, {volume(available)}), Paths()) << available;
    EXPECT_EQ(warned(policy, {volume(1101)}), Paths());
    EXPECT_TRUE(policy.latched.empty());
    EXPECT_EQ(warned(policy, {volume(999)}), Paths{"/disk"});
}

TEST(DiskSpaceAlertPolicy, AVolumeThatWasAwayMayWarnAgain) {
    DiskSpaceAlertPolicy policy(1000);
    EXPECT_EQ(warned(policy, {volume(1, "/a"), volume(2, "/b")}), (Paths{"/a", "/b"}));
    EXPECT_EQ(warned(policy, {volume(1, "/a")}), Paths());
    EXPECT_EQ(policy.latched, std::set<std::string>{"/a"});
    EXPECT_EQ(warned(policy, {volume(1, "/a"), volume(2, "/b")}), Paths{"/b"});

    // One that is no longer eligible has gone, too; and so have they all while alerts are off.
    VolumeInfo readOnly = volume(1, "/a");
    readOnly.isReadOnly = true;
    EXPECT_EQ(warned(policy, {readOnly, volume(2, "/b")}), Paths());
    EXPECT_EQ(policy.latched, std::set<std::string>{"/b"});
    policy.threshold = 0;
    EXPECT_EQ(warned(policy, {volume(0, "/c")}), Paths());
    EXPECT_TRUE(policy.latched.empty());
    policy.threshold = -5;
    EXPECT_EQ(warned(policy, {volume(-100)}), Paths());
}

TEST(DiskSpaceAlertPolicy, EachPathIsVisitedOnceInOrder) {
    DiskSpaceAlertPolicy policy(1000);
    EXPECT_EQ(warned(policy, {volume(5000, "/z"), volume(1, "/b"), volume(1, "/z"), volume(5000, "/b"),
                              volume(3, "/a")}),
              (Paths{"/b", "/a"}));
}

TEST(DiskSpaceAlertPolicy, OnlyVolumesThatAWarningHelps) {
    VolumeInfo info = volume(1);
    info.totalCapacity = 1;
    EXPECT_TRUE(DiskSpaceAlertPolicy::isEligible(info));
    info.totalCapacity = 0;
    EXPECT_FALSE(DiskSpaceAlertPolicy::isEligible(info));
    for (const auto& [member, value] :
         {std::pair(&VolumeInfo::isBrowsable, false), std::pair(&VolumeInfo::isReadOnly, true),
          std::pair(&VolumeInfo::isNetwork, true)}) {
        info = volume(1);
        info.*member = value;
        EXPECT_FALSE(DiskSpaceAlertPolicy::isEligible(info));
    }
}

TEST(DiskSpaceAlertPolicy, ALevelBeyondAllNumbersIsNeverPassed) {
    DiskSpaceAlertPolicy policy(largest, 1);
    EXPECT_EQ(warned(policy, {volume(0)}), Paths{"/disk"});
    EXPECT_EQ(warned(policy, {volume(largest)}), Paths());
    EXPECT_EQ(policy.latched.size(), 1U);
}

} // namespace
} // namespace tarnwell
