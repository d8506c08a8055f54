#include "TarnwellCore/Analysis/SpaceSaverFinding.hpp"

#include <algorithm>
#include <tuple>

namespace tarnwell {

namespace {

/// In the order of the enumeration.
constexpr std::array<std::string_view, spaceSaverKindCount> kindNames{
    "xcodeDerivedData",
    "xcodeArchives",
    "xcodeDeviceSupport",
    "xcodeCaches",
    "simulatorCaches",
    "simulatorDevices",
    "homebrewCache",
    "npmCache",
    "yarnCache",
    "pnpmStore",
    "pipCache",
    "cocoaPodsCache",
    "gradleCache",
    "cargoRegistry",
    "goModuleCache",
    "dockerData",
    "androidSystemImages",
    "androidVirtualDevices",
    "nodeModules",
    "deviceBackups",
    "mailDownloads",
    "userCaches",
    "userLogs",
    "trash",
    "downloadsClutter",
    "installerArchives",
    "largeFiles",
    "oldLargeFiles",
    "cleanupRule",
    "timeMachineSnapshots",
};

bool precedes(const SpaceSaverFinding& a, const SpaceSaverFinding& b) {
    const auto key = [](const SpaceSaverFinding& finding) {
        return std::tuple(finding.sizeIsKnown, finding.reclaimableSize, finding.size);
    };
    if (key(a) != key(b))
        return key(a) > key(b);
    return std::tie(a.kind, a.id) < std::tie(b.kind, b.id);
}

} // namespace

std::string_view rawValue(SpaceSaverKind kind) {
    const auto index = static_cast<std::size_t>(kind);
    return index < kindNames.size() ? kindNames[index] : std::string_view();
}

std::optional<SpaceSaverKind> spaceSaverKindFromRawValue(std::string_view text) {
    const auto* found = std::ranges::find(kindNames, text);
    if (found == kindNames.end())
        return std::nullopt;
    return static_cast<SpaceSaverKind>(found - kindNames.begin());
}

SpaceSaverGroup group(SpaceSaverKind kind) {
    switch (kind) {
    case SpaceSaverKind::xcodeDerivedData:
    case SpaceSaverKind::xcodeArchives:
    case SpaceSaverKind::xcodeDeviceSupport:
    case SpaceSaverKind::xcodeCaches:
    case SpaceSaverKind::simulatorCaches:
    case SpaceSaverKind::simulatorDevices:
    case SpaceSaverKind::homebrewCache:
    case SpaceSaverKind::npmCache:
    case SpaceSaverKind::yarnCache:
    case SpaceSaverKind::pnpmStore:
    case SpaceSaverKind::pipCache:
    case SpaceSaverKind::cocoaPodsCache:
    case SpaceSaverKind::gradleCache:
    case SpaceSaverKind::cargoRegistry:
    case SpaceSaverKind::goModuleCache:
    case SpaceSaverKind::dockerData:
    case SpaceSaverKind::androidSystemImages:
    case SpaceSaverKind::androidVirtualDevices:
    case SpaceSaverKind::nodeModules:
        return SpaceSaverGroup::developer;
    case SpaceSaverKind::userCaches:
    case SpaceSaverKind::userLogs:
    case SpaceSaverKind::trash:
        return SpaceSaverGroup::system;
    case SpaceSaverKind::deviceBackups:
    case SpaceSaverKind::timeMachineSnapshots:
        return SpaceSaverGroup::backups;
    case SpaceSaverKind::mailDownloads:
    case SpaceSaverKind::downloadsClutter:
    case SpaceSaverKind::installerArchives:
    case SpaceSaverKind::largeFiles:
    case SpaceSaverKind::oldLargeFiles:
    case SpaceSaverKind::cleanupRule:
        return SpaceSaverGroup::files;
    }
    return SpaceSaverGroup::files;
}

std::vector<SpaceSaverFinding> sorted(std::vector<SpaceSaverFinding> findings) {
    std::ranges::stable_sort(findings, precedes);
    return findings;
}

} // namespace tarnwell
