#include "Tests/Support/SilentShare.hpp"

#include "Tests/Support/MountedImage.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#ifdef __linux__
#include <sys/mount.h>
#endif

namespace tarnwell::test {

SilentShare::SilentShare(std::unique_ptr<MountedImage> place)
    : place_(std::move(place)), path_(place_->path() / "share") {}

#ifdef __linux__

std::expected<std::unique_ptr<SilentShare>, std::string> SilentShare::make() {
    auto place = MountedImage::make({.type = "tmpfs", .size = 1'000'000});
    if (!place)
        return std::unexpected(place.error());
    std::unique_ptr<SilentShare> share(new SilentShare(*std::move(place)));
    std::filesystem::create_directory(share->path_);
    // A user-space file system that nobody serves: every call on it waits until the connection is cut.
    share->connection_ = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(share->connection_) + ",rootmode=40000,user_id=0,group_id=0,subtype=sshfs";
    if (::mount("me@host:/home", share->path_.c_str(), "fuse", MS_NOSUID, options.c_str()) != 0)
        return std::unexpected("no user-space file systems here");
    return share;
}

SilentShare::~SilentShare() {
    ::close(connection_);
    ::umount2(path_.c_str(), MNT_DETACH);
}

#else

std::expected<std::unique_ptr<SilentShare>, std::string> SilentShare::make() {
    return std::unexpected("needs Linux");
}

SilentShare::~SilentShare() = default;

#endif

} // namespace tarnwell::test
