#pragma once

// A file system of a chosen kind and size, mounted for one test: what a full disk, another volume or shared
// extents do can only be seen on a real one.

#include <cstdint>
#include <expected>
#include <filesystem>
#include <memory>
#include <string>

namespace tarnwell::test {

/// Needs the rights to mount on Linux; on macOS "tmpfs" stands for a disk image:
///
///     const auto image = MountedImage::make({.type = "btrfs"});
///     if (!image)
///         GTEST_SKIP() << image.error();
///     use((*image)->path());
///
/// On Linux the first image gives the calling thread, and the threads it starts from then on, mounts of their
/// own: nobody else sees the test's mounts, the test sees nobody's new ones, and the kernel removes them with
/// the program, however that ends.
class MountedImage {
public:
    struct Request {
        /// "tmpfs", or a kind with a mkfs program: "ext4", "btrfs", "xfs", "vfat" …
        std::string type = {};
        /// Bytes; they are only used as the file system fills. The usual kinds all accept the default.
        std::uint64_t size = 512'000'000;
        /// The name of the folder it is mounted on; any bytes but "/" and NUL.
        std::string name = "volume";
        /// One argument of the mkfs program, such as "-mreflink=0".
        std::string formatOption = {};
    };

    /// Mounts a new, empty file system; otherwise the reason why it cannot be had here.
    static std::expected<std::unique_ptr<MountedImage>, std::string> make(const Request& request);

    /// Unmounts the file system, at once or, when something is still open on it, when that is closed, and
    /// removes its image.
    ~MountedImage();
    MountedImage(const MountedImage&) = delete;
    MountedImage& operator=(const MountedImage&) = delete;

    /// The mount point: absolute, links resolved. An empty folder while nothing is mounted.
    const std::filesystem::path& path() const { return path_; }

    /// Both throw std::runtime_error when that fails, such as unmounting with a file open.
    void unmount();
    /// Changes the options of the mounted file system: "ro", "rw".
    void remount(const std::string& options);

private:
    struct Content;
    explicit MountedImage(std::unique_ptr<Content> content);
    std::unique_ptr<Content> content_;
    std::filesystem::path path_;
};

} // namespace tarnwell::test
