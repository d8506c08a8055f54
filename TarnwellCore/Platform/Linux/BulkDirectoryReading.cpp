#include "TarnwellCore/Platform/BulkDirectoryReading.hpp"

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Platform/EntrySizes.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FileModes.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/Linux/FileSystemKinds.hpp"
#include "TarnwellCore/Platform/Linux/LinuxFileTypes.hpp"
#include "TarnwellCore/Platform/Linux/SharedExtents.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace tarnwell {

namespace {

struct PackedEntry {
    const char* name; // ends in a NUL
    std::size_t nameLength;
    std::uint8_t type;
};

/// The records that getdents64 packs into a buffer, one after the other.
class PackedEntries {
public:
    explicit PackedEntries(std::span<const std::byte> bytes) : bytes_(bytes) {}

    /// Null at the end, or where the bytes are not what the kernel writes. Lasts until the next call.
    const PackedEntry* next() {
        if (bytes_.size() <= nameOffset) {
            isMalformed_ = !bytes_.empty();
            return nullptr;
        }
        Header header;
        std::memcpy(&header, bytes_.data(), nameOffset);
        isMalformed_ = header.length <= nameOffset || header.length > bytes_.size();
        if (isMalformed_)
            return nullptr;
        const std::size_t room = header.length - nameOffset;
        entry_.name = reinterpret_cast<const char*>(bytes_.data() + nameOffset);
        entry_.nameLength = ::strnlen(entry_.name, room);
        entry_.type = header.type;
        isMalformed_ = entry_.nameLength == room;
        if (isMalformed_)
            return nullptr;
        bytes_ = bytes_.subspan(header.length);
        return &entry_;
    }
    bool isMalformed() const { return isMalformed_; }

private:
    /// The kernel's struct linux_dirent64 up to its name.
    struct Header {
        std::uint64_t inode;
        std::int64_t offset;
        std::uint16_t length;
        std::uint8_t type;
    };
    static constexpr std::size_t nameOffset = 19;

    std::span<const std::byte> bytes_;
    PackedEntry entry_ = {};
    bool isMalformed_ = false;
};

constexpr unsigned statusMask =
    STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_INO | STATX_SIZE | STATX_BLOCKS | STATX_MTIME | STATX_ATIME;

VnodeType vnodeTypeFromDirent(std::uint8_t type) {
    switch (type) {
    case DT_REG:
        return VnodeType::regular;
    case DT_DIR:
        return VnodeType::directory;
    case DT_LNK:
        return VnodeType::symbolicLink;
    case DT_BLK:
        return VnodeType::blockDevice;
    case DT_CHR:
        return VnodeType::characterDevice;
    case DT_SOCK:
        return VnodeType::socket;
    case DT_FIFO:
        return VnodeType::fifo;
    default:
        return VnodeType::none;
    }
}

void fill(RawDirectoryEntry& entry, const struct statx& status) {
    entry.objectType = vnodeTypeFromMode(status.stx_mode);
    entry.deviceID = deviceIDFromNumbers(status.stx_dev_major, status.stx_dev_minor);
    entry.fileID = status.stx_ino;
    entry.linkCount = status.stx_nlink;
    setSizes(entry, status.stx_size, status.stx_blocks);
    entry.modificationSeconds = static_cast<double>(status.stx_mtime.tv_sec) - referenceDateOffset;
    entry.accessSeconds = static_cast<double>(status.stx_atime.tv_sec) - referenceDateOffset;
    if ((status.stx_attributes & STATX_ATTR_AUTOMOUNT) != 0)
        entry.finderFlags |= automountFileFlag;
}

bool isDotName(const char* name) {
    return name[0] == '\0' || (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')));
}

} // namespace

const DirectoryCalls& DirectoryCalls::live() {
    static const DirectoryCalls calls = {
        .readPacked = [](int folder, std::byte* buffer,
                         std::size_t size) { return ::syscall(SYS_getdents64, folder, buffer, size); },
        .extendedStatus =
            [](int folder, const char* name, void* status) {
                return ::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, statusMask,
                               static_cast<struct statx*>(status));
            },
        .entryStatus =
            [](int folder, const char* name, struct stat* status) {
                return ::fstatat(folder, name, status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT);
            },
        .openEntry = [](int folder, const char* name, int flags) { return ::openat(folder, name, flags); },
        .readExtents = [](int file, void* map) { return ::ioctl(file, FS_IOC_FIEMAP, map); },
        .openFolder = openSubfolder,
    };
    return calls;
}

struct BulkDirectoryReading::State {
    State(const DirectoryCalls& directoryCalls, bool keepsHeld)
        : calls(directoryCalls), keepsHeldSpace(keepsHeld), sharedExtents(directoryCalls) {}

    const DirectoryCalls& calls;
    const bool keepsHeldSpace;
    FileSystemKinds fileSystemKinds;
    SharedExtents sharedExtents;
    std::array<HeldSpace, EntryBatch::capacity> held; // of the entries in the batch
};

BulkDirectoryReading::BulkDirectoryReading(const DirectoryCalls& calls, bool keepsHeldSpace)
    : state_(std::make_unique<State>(calls, keepsHeldSpace)) {}
BulkDirectoryReading::~BulkDirectoryReading() = default;

BulkReadOutcome BulkDirectoryReading::read(int folder, std::int32_t deviceID, bool isAtStart,
                                           std::span<std::byte> buffer, EntryBatch& batch,
                                           const RecordSource* source) {
    if (!isAtStart)
        ::lseek(folder, 0, SEEK_SET);
    const FileSystemKind kind = state_->fileSystemKinds.of(folder, deviceID);
    const auto handOn = [&] {
        if (kind.sharesExtents)
            state_->sharedExtents.measure(folder, deviceID, kind.isBtrfs, batch.entries(),
                                          state_->keepsHeldSpace ? state_->held.data() : nullptr);
        return batch.handOn();
    };
    for (;;) {
        const long filled = source != nullptr
                                ? (*source)(buffer)
                                : state_->calls.readPacked(folder, buffer.data(), buffer.size());
        if (filled == 0)
            return BulkReadOutcome::success;
        if (filled < 0) {
            if (errno == EINTR)
                continue;
            return errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL ? BulkReadOutcome::unsupported
                                                                             : BulkReadOutcome::failure;
        }
        PackedEntries packed(buffer.first(static_cast<std::size_t>(filled)));
        while (const PackedEntry* next = packed.next()) {
            if (isDotName(next->name))
                continue;
            if (batch.isFull() && !handOn())
                return BulkReadOutcome::success;
            RawDirectoryEntry& entry = batch.add();
            entry.name = {next->name, next->nameLength};
            struct statx status;
            if (withoutInterruption(
                    [&] { return state_->calls.extendedStatus(folder, next->name, &status); }) == 0) {
                fill(entry, status);
                if (kind.mountsOnDemand && entry.objectType == VnodeType::directory &&
                    entry.deviceID == deviceID)
                    entry.finderFlags |= automountFileFlag;
            } else if (errno == ENOSYS) {
                batch.removeLast();
                return BulkReadOutcome::unsupported;
            } else {
                entry.objectType = vnodeTypeFromDirent(next->type);
                entry.errorCode = static_cast<std::uint32_t>(errno);
            }
        }
        if (!handOn())
            return BulkReadOutcome::success;
        if (packed.isMalformed()) {
            errno = EIO;
            return BulkReadOutcome::failure;
        }
    }
}

} // namespace tarnwell
