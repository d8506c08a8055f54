#pragma once

// The mounted file systems as the kernel lists them, and which of them are volumes in a user's eyes.

#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

struct MountEntry {
    /// The mount point, absolute and free of links.
    std::string path;
    /// What is mounted: a device, "server:/folder", or any word.
    std::string source;
    /// The folder of the file system that is mounted; other than "/" for bind mounts and subvolumes.
    std::string root;
    std::string type;
    /// Comma-separated.
    std::string options;
    bool isReadOnly = false;
    /// Single files are mounted too, mostly in containers.
    bool isFolder = true;
    bool isLocal = true;
    /// Whether a file manager would show it as a place to keep files.
    bool isBrowsable = true;

    /// Whether a call on it may wait for a server or a process that never answers.
    bool mayHang() const { return !isLocal || type == "fuse" || type.starts_with("fuse."); }
};

/// What can be reached of the mount table, each mount point once. Asks the kernel alone, no server, and
/// triggers no automatic mount. "/" is always among them, also where the table lacks it, as inside `chroot`.
std::vector<MountEntry> readMountTable();

/// Sets `isBrowsable`. Not browsable are file systems that hold no files, the boot loader's, what the
/// administrator hides, single files, and all but one of the mounts of one device.
void markBrowsable(std::vector<MountEntry>& mounts);

/// Whether files on a mount of this type and source come from another machine.
bool isNetworkMount(std::string_view type, std::string_view source);

/// The innermost mount that holds this path, which is absolute and free of links; null without any.
const MountEntry* mountHolding(const std::vector<MountEntry>& mounts, std::string_view path);

/// What is mounted at exactly this path; null when nothing is.
const MountEntry* mountAt(const std::vector<MountEntry>& mounts, std::string_view path);

} // namespace tarnwell
