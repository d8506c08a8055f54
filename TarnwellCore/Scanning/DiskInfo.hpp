#pragma once

// What is mounted, and how much room there is.

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/Volumes.hpp"
#include "TarnwellCore/Scanning/VolumeInfo.hpp"

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// The boot volume at one moment.
struct SystemStorageSnapshot {
    VolumeInfo volume;
    Date capturedAt;
};

} // namespace tarnwell

/// Every call asks the system anew and is safe from any thread. A call may take as long as the slowest file
/// system takes to answer; on Linux a network or user-space one that gives no answer within about a second is
/// reported without its capacities.
namespace tarnwell::DiskInfo {

using FileSystemStatistics = tarnwell::FileSystemStatistics;

/// Types whose files come from another machine, also where the platform calls the volume local.
inline constexpr auto networkFileSystemTypes = std::to_array<std::string_view>(
    {"smbfs", "nfs", "afpfs", "webdav", "cifs", "ftp", "sshfs", "cddafs_net"});

/// The root volume first, then the local ones, then those of the network, each by name in the user's order.
/// Volumes that are not browsable are left out unless `includeHidden`.
std::vector<VolumeInfo> mountedVolumes(bool includeHidden);

/// The volume whose mount point this is; nothing when it is none.
std::optional<VolumeInfo> volume(const std::filesystem::path& at);

/// The volume that holds this existing item.
std::optional<VolumeInfo> volumeContaining(const std::filesystem::path& url);

/// The volume at "/".
std::optional<VolumeInfo> bootVolume();
std::optional<SystemStorageSnapshot> systemSnapshot();

/// The figures of the file system that holds this existing item.
std::optional<FileSystemStatistics> fileSystemStatistics(const std::string& path);

/// Makes the whole of what the platform reports: `properties` first, what is missing there from `statistics`,
/// what is missing in both is 0 or the commoner answer.
VolumeInfo completedVolume(const VolumeProperties& properties,
                           const std::optional<FileSystemStatistics>& statistics);

/// Puts volumes into the order of `mountedVolumes`.
void sortVolumes(std::vector<VolumeInfo>& volumes);

} // namespace tarnwell::DiskInfo
