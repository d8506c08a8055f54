#pragma once

// A network share whose server does not answer, for tests of what must not wait for it.

#include <expected>
#include <filesystem>
#include <memory>
#include <string>

namespace tarnwell::test {

class MountedImage;

/// Needs Linux, the rights to mount, and user-space file systems. Every call on the share waits until this
/// goes away.
class SilentShare {
public:
    /// Otherwise the reason why it cannot be had here.
    static std::expected<std::unique_ptr<SilentShare>, std::string> make();
    ~SilentShare();
    SilentShare(const SilentShare&) = delete;
    SilentShare& operator=(const SilentShare&) = delete;

    /// The mount point.
    const std::filesystem::path& path() const { return path_; }

private:
    explicit SilentShare(std::unique_ptr<MountedImage> place);
    std::unique_ptr<MountedImage> place_;
    std::filesystem::path path_;
    [[maybe_unused]] int connection_ = -1; // unused where there is no such share
};

} // namespace tarnwell::test
