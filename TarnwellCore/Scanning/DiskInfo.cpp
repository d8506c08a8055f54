#include "TarnwellCore/Scanning/DiskInfo.hpp"

#include "TarnwellCore/Platform/LocalizedOrder.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>

namespace tarnwell::DiskInfo {

namespace {

/// A path as the platform takes it: without a trailing "/". Nothing for what can be no path.
std::optional<std::string> platformPath(std::string path) {
    if (path.empty() || path.find('\0') != std::string::npos)
        return std::nullopt;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::string lastComponent(const std::string& path) {
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

VolumeInfo completed(const VolumeProperties& properties) {
    // The file system is asked once more only if something is missing.
    const bool isWhole = properties.totalCapacity && properties.availableCapacity && properties.isReadOnly &&
                         properties.fileSystemType;
    return completedVolume(properties,
                           isWhole ? std::nullopt : tarnwell::fileSystemStatistics(properties.path));
}

} // namespace

VolumeInfo completedVolume(const VolumeProperties& properties,
                           const std::optional<FileSystemStatistics>& statistics) {
    VolumeInfo volume;
    volume.path = properties.path;
    volume.url = properties.path.ends_with('/') ? properties.path : properties.path + "/";
    volume.name = properties.name.value_or(lastComponent(properties.path));
    volume.totalCapacity = properties.totalCapacity.value_or(statistics ? statistics->total : 0);
    volume.availableCapacity = properties.availableCapacity.value_or(statistics ? statistics->available : 0);
    volume.availableForImportantUsage =
        properties.availableForImportantUsage.value_or(volume.availableCapacity);
    // Volumes of which the system purges nothing report 0 here, however empty they are.
    if (volume.availableForImportantUsage == 0)
        volume.availableForImportantUsage = volume.availableCapacity;
    volume.availableForOpportunisticUsage =
        properties.availableForOpportunisticUsage.value_or(volume.availableCapacity);
    volume.isInternal = properties.isInternal.value_or(false);
    volume.isRemovable = properties.isRemovable.value_or(false);
    volume.isEjectable = properties.isEjectable.value_or(false);
    volume.isRootVolume = properties.isRootFileSystem.value_or(properties.path == "/");
    volume.isReadOnly = properties.isReadOnly.value_or(statistics && statistics->isReadOnly);
    volume.isBrowsable = properties.isBrowsable.value_or(true);
    volume.fileSystemType = properties.fileSystemType.value_or(statistics ? statistics->type : "");
    volume.isNetwork = !properties.isLocal.value_or(true) ||
                       std::ranges::count(networkFileSystemTypes, volume.fileSystemType) != 0;
    if (volume.fileSystemType.empty())
        volume.fileSystemType = "unknown";
    volume.uuid = properties.uuid;
    return volume;
}

void sortVolumes(std::vector<VolumeInfo>& volumes) {
    std::ranges::sort(volumes, [](const VolumeInfo& left, const VolumeInfo& right) {
        if (left.isRootVolume != right.isRootVolume)
            return left.isRootVolume;
        if (left.isNetwork != right.isNetwork)
            return right.isNetwork;
        const int order = compareInLocalizedOrder(repairedUTF8(left.name), repairedUTF8(right.name));
        return order != 0 ? order < 0 : left.path < right.path;
    });
}

std::vector<VolumeInfo> mountedVolumes(bool includeHidden) {
    std::vector<VolumeInfo> volumes;
    for (const VolumeProperties& properties : mountedVolumeProperties(includeHidden)) {
        volumes.push_back(completed(properties));
        if (!includeHidden && !volumes.back().isBrowsable)
            volumes.pop_back();
    }
    sortVolumes(volumes);
    return volumes;
}

std::optional<VolumeInfo> volume(const std::filesystem::path& at) {
    const auto path = platformPath(at.native());
    const auto properties = path ? volumeProperties(*path) : std::nullopt;
    if (!properties)
        return std::nullopt;
    return completed(*properties);
}

std::optional<VolumeInfo> volumeContaining(const std::filesystem::path& url) {
    const auto path = platformPath(url.native());
    const auto mountPoint = path ? mountPointContaining(*path) : std::nullopt;
    if (!mountPoint)
        return std::nullopt;
    return volume(*mountPoint);
}

std::optional<VolumeInfo> bootVolume() {
    return volume("/");
}

std::optional<SystemStorageSnapshot> systemSnapshot() {
    const auto volume = bootVolume();
    if (!volume)
        return std::nullopt;
    return SystemStorageSnapshot{*volume, currentDate()};
}

std::optional<FileSystemStatistics> fileSystemStatistics(const std::string& path) {
    const auto checked = platformPath(path);
    auto statistics = checked ? tarnwell::fileSystemStatistics(*checked) : std::nullopt;
    if (statistics && statistics->type.empty())
        statistics->type = "unknown";
    return statistics;
}

} // namespace tarnwell::DiskInfo
