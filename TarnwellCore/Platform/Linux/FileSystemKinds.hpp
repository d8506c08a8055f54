#pragma once

// What the kind of a file system means for reading its folders. The kernel is asked once per device.

#include <cstdint>
#include <unordered_map>

namespace tarnwell {

struct FileSystemKind {
    /// Files may share extents.
    bool sharesExtents = false;
    bool isBtrfs = false;
    /// Its folders are where others get mounted as soon as somebody opens them.
    bool mountsOnDemand = false;
};

/// Confined to one thread.
class FileSystemKinds {
public:
    /// The kind of the file system that an open folder of the device is on.
    FileSystemKind of(int folder, std::int32_t deviceID);

private:
    std::unordered_map<std::int32_t, FileSystemKind> known_;
};

} // namespace tarnwell
