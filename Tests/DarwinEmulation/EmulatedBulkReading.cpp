// getattrlistbulk over getdents64 and fstatat, with records as the Darwin kernel packs them.

#include "Tests/DarwinEmulation/EmulatedCalls.hpp"
#include "Tests/DarwinEmulation/KernelState.hpp"
#include "Tests/DarwinEmulation/include/sys/attr.h"
#include "Tests/DarwinEmulation/include/sys/vnode.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

using tarnwell::test::EmulatedBehaviour;
using tarnwell::test::EmulatedEntry;
using tarnwell::test::KernelState;

/// The masks of a record, in their order.
struct AttributeSet {
    std::uint32_t common;
    std::uint32_t volume;
    std::uint32_t directory;
    std::uint32_t file;
    std::uint32_t extended;
};

struct Time {
    std::int64_t seconds;
    std::int64_t nanoseconds;
};

/// A folder's entry as the file system holds it.
struct Entry {
    std::string_view name;
    std::uint32_t type = VNON;
    std::uint64_t inode = 0;
    /// Nothing when it cannot be had; then `error` says why.
    bool hasStatus = false;
    struct stat status = {};
    std::uint32_t error = 0;
    bool isMountPoint = false;
    EmulatedEntry traits = {};
};

std::uint32_t typeFromDirent(unsigned char type) {
    switch (type) {
    case DT_REG:
        return VREG;
    case DT_DIR:
        return VDIR;
    case DT_LNK:
        return VLNK;
    case DT_BLK:
        return VBLK;
    case DT_CHR:
        return VCHR;
    case DT_SOCK:
        return VSOCK;
    case DT_FIFO:
        return VFIFO;
    default:
        return VNON;
    }
}

/// Attributes are aligned to 4 bytes, records to 8; what varies in length stands behind what does not.
class Record {
public:
    Record(const AttributeSet& requested, const EmulatedBehaviour& behaviour)
        : requested_{requested.common & ~behaviour.withheldCommon, 0,
                     requested.directory & ~behaviour.withheldDirectory,
                     requested.file & ~behaviour.withheldFile,
                     requested.extended & ~behaviour.withheldExtended} {
        bytes_.resize(sizeof(std::uint32_t) + sizeof(AttributeSet));
        returned_.common = ATTR_CMN_RETURNED_ATTRS;
    }

    template <class Value>
    void common(std::uint32_t bit, const Value& value) {
        add(requested_.common, returned_.common, bit, value);
    }
    template <class Value>
    void directory(std::uint32_t bit, const Value& value) {
        add(requested_.directory, returned_.directory, bit, value);
    }
    template <class Value>
    void file(std::uint32_t bit, const Value& value) {
        add(requested_.file, returned_.file, bit, value);
    }
    template <class Value>
    void extended(std::uint32_t bit, const Value& value) {
        add(requested_.extended, returned_.extended, bit, value);
    }

    void name(std::string_view name) {
        name_ = name;
        namePlace_ = bytes_.size();
        common(ATTR_CMN_NAME, std::array<std::uint32_t, 2>{});
    }

    const std::vector<std::byte>& finish() {
        if ((returned_.common & ATTR_CMN_NAME) != 0) {
            const auto offset = static_cast<std::uint32_t>(bytes_.size() - namePlace_);
            const std::array<std::uint32_t, 2> reference = {offset,
                                                            static_cast<std::uint32_t>(name_.size() + 1)};
            std::memcpy(bytes_.data() + namePlace_, reference.data(), sizeof reference);
            const auto* const text = reinterpret_cast<const std::byte*>(name_.data());
            bytes_.insert(bytes_.end(), text, text + name_.size());
            bytes_.push_back(std::byte{0});
        }
        bytes_.resize((bytes_.size() + 7) / 8 * 8);
        const auto length = static_cast<std::uint32_t>(bytes_.size());
        std::memcpy(bytes_.data(), &length, sizeof length);
        std::memcpy(bytes_.data() + sizeof length, &returned_, sizeof returned_);
        return bytes_;
    }

private:
    template <class Value>
    void add(std::uint32_t requested, std::uint32_t& returned, std::uint32_t bit, const Value& value) {
        static_assert(sizeof value % 4 == 0);
        if ((requested & bit) == 0)
            return;
        returned |= bit;
        const auto* const start = reinterpret_cast<const std::byte*>(&value);
        bytes_.insert(bytes_.end(), start, start + sizeof value);
    }

    AttributeSet requested_;
    AttributeSet returned_ = {};
    std::vector<std::byte> bytes_;
    std::string_view name_;
    std::size_t namePlace_ = 0;
};

std::vector<std::byte> packed(const Entry& entry, const AttributeSet& requested,
                              const EmulatedBehaviour& behaviour, std::int32_t device) {
    Record record(requested, behaviour);
    if (entry.error != 0) {
        record.common(ATTR_CMN_ERROR, entry.error);
        record.name(entry.name);
        record.common(ATTR_CMN_OBJTYPE, entry.type);
        record.common(ATTR_CMN_FILEID, entry.inode);
        return record.finish();
    }
    const bool isFolder = entry.type == VDIR;
    record.common(ATTR_CMN_ERROR, std::uint32_t{0});
    record.name(entry.name);
    record.common(ATTR_CMN_DEVID, device);
    record.common(ATTR_CMN_OBJTYPE, entry.type);
    record.common(ATTR_CMN_MODTIME, Time{entry.status.st_mtim.tv_sec, entry.status.st_mtim.tv_nsec});
    record.common(ATTR_CMN_ACCTIME, Time{entry.status.st_atim.tv_sec, entry.status.st_atim.tv_nsec});
    record.common(ATTR_CMN_FLAGS, entry.traits.flags);
    record.common(ATTR_CMN_FILEID, entry.inode);
    if (isFolder) {
        const std::uint32_t mountStatus = (entry.isMountPoint ? DIR_MNTSTATUS_MNTPOINT : 0) |
                                          (entry.traits.isTrigger ? DIR_MNTSTATUS_TRIGGER : 0);
        record.directory(ATTR_DIR_MOUNTSTATUS, mountStatus);
    } else {
        record.file(ATTR_FILE_LINKCOUNT, static_cast<std::uint32_t>(entry.status.st_nlink));
        record.file(ATTR_FILE_TOTALSIZE, std::int64_t{entry.status.st_size});
        record.file(ATTR_FILE_ALLOCSIZE, std::int64_t{entry.status.st_blocks} * 512);
    }
    if (entry.traits.privateSize)
        record.extended(ATTR_CMNEXT_PRIVATESIZE, *entry.traits.privateSize);
    if (entry.traits.cloneIdentifier)
        record.extended(ATTR_CMNEXT_CLONEID, *entry.traits.cloneIdentifier);
    if (entry.traits.extendedFlags)
        record.extended(ATTR_CMNEXT_EXT_FLAGS, std::uint64_t{*entry.traits.extendedFlags});
    if (entry.traits.cloneReferences)
        record.extended(ATTR_CMNEXT_CLONE_REFCNT, *entry.traits.cloneReferences);
    return record.finish();
}

Entry entryOf(int folder, const dirent64& listed) {
    Entry entry{.name = listed.d_name, .type = typeFromDirent(listed.d_type), .inode = listed.d_ino};
    struct statx mountStatus = {};
    // A mount point is listed as what it covers, of which Linux tells no more than the inode.
    entry.isMountPoint = ::statx(folder, listed.d_name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE,
                                 &mountStatus) == 0 &&
                         (mountStatus.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    if (::fstatat(folder, listed.d_name, &entry.status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0) {
        entry.error = static_cast<std::uint32_t>(errno);
        return entry;
    }
    KernelState& state = KernelState::current();
    const std::lock_guard guard(state.mutex);
    entry.traits = state.entry({entry.status.st_dev, entry.status.st_ino});
    entry.error = entry.traits.error;
    // A real mount with the mark plays a firmlink, which is no mount.
    constexpr std::uint32_t firmlinkFlag = 0x0080'0000;
    entry.isMountPoint = entry.isMountPoint && (entry.traits.flags & firmlinkFlag) == 0;
    return entry;
}

} // namespace

int getattrlistbulk(int folder, void* list, void* buffer, std::size_t size, std::uint64_t options) {
    const attrlist& request = *static_cast<const attrlist*>(list);
    constexpr std::uint32_t required = ATTR_CMN_NAME | ATTR_CMN_RETURNED_ATTRS;
    if (request.bitmapcount != ATTR_BIT_MAP_COUNT || (request.commonattr & required) != required ||
        request.volattr != 0 || (request.forkattr != 0 && options != FSOPT_ATTR_CMN_EXTENDED)) {
        errno = EINVAL;
        return -1;
    }
    const AttributeSet requested = {request.commonattr, 0, request.dirattr, request.fileattr,
                                    request.forkattr};
    EmulatedBehaviour behaviour;
    {
        KernelState& state = KernelState::current();
        const std::lock_guard guard(state.mutex);
        behaviour = state.behaviour;
    }
    struct stat folderStatus = {};
    errno = behaviour.bulkError;
    if (!behaviour.knowsCloneReferences && (request.forkattr & ATTR_CMNEXT_CLONE_REFCNT) != 0)
        errno = EINVAL;
    if (errno != 0 || ::fstat(folder, &folderStatus) != 0)
        return -1;
    const std::int32_t device = behaviour.device.value_or(static_cast<std::int32_t>(folderStatus.st_dev));

    std::size_t used = 0;
    int count = 0;
    off_t position = ::lseek(folder, 0, SEEK_CUR);
    for (;;) {
        alignas(dirent64) std::array<char, 32768> names;
        const long filled = ::syscall(SYS_getdents64, folder, names.data(), names.size());
        if (filled <= 0)
            return filled < 0 && count == 0 ? -1 : count;
        for (long place = 0; place < filled;) {
            const auto& listed = *reinterpret_cast<const dirent64*>(names.data() + place);
            place += listed.d_reclen;
            const std::string_view name = listed.d_name;
            const Entry entry = name == "." || name == ".." ? Entry() : entryOf(folder, listed);
            if (!entry.name.empty()) {
                const std::vector<std::byte> record = packed(entry, requested, behaviour, device);
                if (record.size() > size - used) {
                    ::lseek(folder, position, SEEK_SET);
                    errno = ERANGE;
                    return count > 0 ? count : -1;
                }
                std::memcpy(static_cast<std::byte*>(buffer) + used, record.data(), record.size());
                used += record.size();
                ++count;
            }
            position = listed.d_off;
        }
    }
}
