#include "TarnwellCore/Platform/Linux/FileSystemKinds.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <sys/vfs.h>

namespace tarnwell {

namespace {

// The kernel's magic numbers (<linux/magic.h> lacks some).
constexpr std::uint32_t btrfsMagic = 0x9123683E;
constexpr std::uint32_t xfsMagic = 0x58465342;
constexpr std::uint32_t bcachefsMagic = 0xCA451A4E;
constexpr std::uint32_t ocfs2Magic = 0x7461636F;
constexpr std::uint32_t autofsMagic = 0x0187;

} // namespace

FileSystemKind FileSystemKinds::of(int folder, std::int32_t deviceID) {
    const auto known = known_.find(deviceID);
    if (known != known_.end())
        return known->second;
    struct statfs status = {};
    // A passing failure must not stand for all the folders to come.
    if (withoutInterruption([&] { return ::fstatfs(folder, &status); }) != 0)
        return {};
    const auto magic = static_cast<std::uint32_t>(status.f_type);
    const FileSystemKind kind{.sharesExtents = magic == btrfsMagic || magic == xfsMagic ||
                                               magic == bcachefsMagic || magic == ocfs2Magic,
                              .isBtrfs = magic == btrfsMagic,
                              .mountsOnDemand = magic == autofsMagic};
    known_.emplace(deviceID, kind);
    return kind;
}

} // namespace tarnwell
