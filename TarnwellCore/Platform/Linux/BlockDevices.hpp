#pragma once

// What the kernel and the device manager say of a block device.

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace tarnwell {

struct BlockDeviceFacts {
    /// The medium can be taken out of the drive.
    bool isRemovable = false;
    /// The drive hangs on a bus that leads out of the machine, or the "drive" is an image file.
    bool isExternal = false;
};

/// The facts of a device or partition; those of encrypted and logical volumes are those of the devices that
/// they lie on. Nothing when the kernel knows no such device. `sysfs` is "/sys" but in tests.
std::optional<BlockDeviceFacts> readBlockDevice(dev_t device, const std::filesystem::path& sysfs = "/sys");

/// The names that the links in a folder like "/dev/disk/by-uuid" give to devices; empty when there is no
/// such folder.
std::map<dev_t, std::string> deviceNames(const std::filesystem::path& folder);

} // namespace tarnwell
