#include "TarnwellCore/Platform/ExtentSharing.hpp"

#include "TarnwellCore/Platform/BlockLayout.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/Linux/ExtentMap.hpp"
#include "TarnwellCore/Platform/Linux/SharedExtents.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <memory>
#include <new>

namespace tarnwell {

namespace {

using Kind = SharingFault::Kind;

/// What file systems take at once.
constexpr std::int64_t rangeLength = std::int64_t{16} << 20;

bool isImmutable(int file) {
    int flags = 0;
    return ::ioctl(file, FS_IOC_GETFLAGS, &flags) == 0 && (flags & (FS_IMMUTABLE_FL | FS_APPEND_FL)) != 0;
}

/// Whether somebody has the file open for writing, as far as the kernel tells this user: it gives a lease for
/// reading on nobody else's terms.
bool isOpenForWriting(int file) {
    // Should somebody want to write it in this moment, a signal says so: one that nobody minds.
    if (::fcntl(file, F_SETSIG, SIGURG) != 0)
        return false;
    if (::fcntl(file, F_SETLEASE, F_RDLCK) != 0)
        return errno == EAGAIN;
    ::fcntl(file, F_SETLEASE, F_UNLCK);
    return false;
}

/// Bytes of the file that nobody shares; 0 when they cannot be told.
std::int64_t privateBytes(int file) {
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        return 0;
    RawDirectoryEntry entry = entryFromStatus(status);
    SharedExtents::measure(file, *std::make_unique<ExtentMap>(), FIEMAP_FLAG_SYNC, entry);
    return entry.reportsPrivateSize ? entry.privateSize : 0;
}

Kind kindOf(int error) {
    switch (error) {
    case EOPNOTSUPP:
    case ENOTTY:
    case ENOSYS:
    case EINVAL: // an encrypted file, or contents that lie within the inode
        return Kind::unsupported;
    case EXDEV:
        return Kind::otherFileSystem;
    case ETXTBSY: // a swap file
        return Kind::openForWriting;
    default:
        return Kind::failed;
    }
}

/// Shares up to `length` bytes from `offset` on; how many, or what came in between.
std::expected<std::int64_t, SharingFault> shareRange(int first, int further, std::int64_t offset,
                                                     std::int64_t length) {
    // The request ends in a flexible array: the only target follows it in memory.
    alignas(struct file_dedupe_range)
        std::byte bytes[sizeof(struct file_dedupe_range) + sizeof(struct file_dedupe_range_info)] = {};
    auto* const request = std::launder(reinterpret_cast<file_dedupe_range*>(bytes));
    auto* const target =
        std::launder(reinterpret_cast<file_dedupe_range_info*>(bytes + sizeof(struct file_dedupe_range)));
    request->src_offset = static_cast<std::uint64_t>(offset);
    request->src_length = static_cast<std::uint64_t>(length);
    request->dest_count = 1;
    target->dest_fd = further;
    target->dest_offset = static_cast<std::uint64_t>(offset);
    if (withoutInterruption([&] { return ::ioctl(first, FIDEDUPERANGE, request); }) != 0)
        return std::unexpected(SharingFault{kindOf(errno), errno});
    if (target->status == FILE_DEDUPE_RANGE_DIFFERS)
        return std::unexpected(SharingFault{Kind::different});
    if (target->status < 0)
        return std::unexpected(SharingFault{kindOf(-target->status), -target->status});
    // None at all is no error to the kernel, but there would be no end.
    if (target->bytes_deduped == 0)
        return std::unexpected(SharingFault{Kind::unsupported});
    return static_cast<std::int64_t>(target->bytes_deduped);
}

std::expected<void, SharingFault> shareAll(const SharingFile& first, const SharingFile& further,
                                           const std::function<bool()>& isCancelled) {
    for (std::int64_t offset = 0; offset < first.version.size;) {
        if (isCancelled())
            return std::unexpected(SharingFault{Kind::cancelled});
        const auto shared =
            shareRange(first.file, further.file, offset, std::min(rangeLength, first.version.size - offset));
        if (!shared)
            return std::unexpected(shared.error());
        offset += *shared;
    }
    return {};
}

} // namespace

std::expected<std::int64_t, SharingFault> shareExtents(const SharingFile& first, const SharingFile& further,
                                                       const std::function<bool()>& isCancelled) {
    if (first.version.size != further.version.size || !requireVersion(first.file, first.version) ||
        !requireVersion(further.file, further.version))
        return std::unexpected(SharingFault{Kind::different});
    if (isImmutable(further.file))
        return std::unexpected(SharingFault{Kind::immutable});
    if (isOpenForWriting(further.file))
        return std::unexpected(SharingFault{Kind::openForWriting});
    const auto firstLayout = layoutOfSharedBlocks(first.file);
    if (firstLayout && firstLayout == layoutOfSharedBlocks(further.file))
        return 0;
    const std::int64_t before = privateBytes(further.file);
    const auto shared = shareAll(first, further, isCancelled);
    const std::int64_t freed = std::max<std::int64_t>(0, before - privateBytes(further.file));
    if (shared)
        return freed;
    SharingFault fault = shared.error();
    fault.bytesFreed = freed;
    return std::unexpected(fault);
}

} // namespace tarnwell
