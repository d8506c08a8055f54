#include "TarnwellCore/Platform/BulkDirectoryReading.hpp"

#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/PackedAttributeRecords.hpp"

#include <fcntl.h>
#include <sys/attr.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace tarnwell {

namespace {

using namespace PackedAttributes;

static_assert(commonName == ATTR_CMN_NAME && commonDevice == ATTR_CMN_DEVID &&
              commonObjectType == ATTR_CMN_OBJTYPE && commonModificationTime == ATTR_CMN_MODTIME &&
              commonAccessTime == ATTR_CMN_ACCTIME && commonFlags == ATTR_CMN_FLAGS &&
              commonFileID == ATTR_CMN_FILEID && commonError == ATTR_CMN_ERROR &&
              commonReturnedAttributes == ATTR_CMN_RETURNED_ATTRS);
static_assert(directoryMountStatus == ATTR_DIR_MOUNTSTATUS &&
              mountStatusMountPoint == DIR_MNTSTATUS_MNTPOINT && mountStatusTrigger == DIR_MNTSTATUS_TRIGGER);
static_assert(fileLinkCount == ATTR_FILE_LINKCOUNT && fileTotalSize == ATTR_FILE_TOTALSIZE &&
              fileAllocatedSize == ATTR_FILE_ALLOCSIZE);
static_assert(extendedPrivateSize == ATTR_CMNEXT_PRIVATESIZE && extendedFlags == ATTR_CMNEXT_EXT_FLAGS);
static_assert(extendedCloneIdentifier == ATTR_CMNEXT_CLONEID);
#ifdef ATTR_CMNEXT_CLONE_REFCNT // not in every kit; whether the kernel knows it is asked of the kernel
static_assert(extendedCloneReferences == ATTR_CMNEXT_CLONE_REFCNT);
#endif
static_assert(requestedCommon == 0xA204140B && requestedFile == 0x7 && requestedExtended == 0x208);
static_assert(FSOPT_ATTR_CMN_EXTENDED == 0x20 && ATTR_BIT_MAP_COUNT == 5);
static_assert(ENOTSUP == 45 && EINVAL == 22);
static_assert(mayShareBlocksFlag == EF_MAY_SHARE_BLOCKS && sharesAllBlocksFlag == EF_SHARES_ALL_BLOCKS);
static_assert(hiddenFileFlag == UF_HIDDEN && datalessFileFlag == SF_DATALESS &&
              firmlinkFileFlag == SF_FIRMLINK);
// A bit that the kernel has kept for itself, but not used so far; decoding takes it out.
static_assert((automountFileFlag & (UF_SETTABLE | SF_SETTABLE | SF_DATALESS)) == 0);

long readPackedRecords(int folder, std::byte* buffer, std::size_t size) {
    // A kernel that does not know of a clone's references refuses them all, on every file system.
    static std::atomic<bool> knowsClones = true;
    attrlist request = {};
    request.bitmapcount = ATTR_BIT_MAP_COUNT;
    request.commonattr = requestedCommon;
    request.dirattr = requestedDirectory;
    request.fileattr = requestedFile;
    // extended common attributes, by the option below
    const bool asksForClones = knowsClones.load(std::memory_order_relaxed);
    request.forkattr = asksForClones ? requestedExtended | requestedOfClones : requestedExtended;
    long records = ::getattrlistbulk(folder, &request, buffer, size, FSOPT_ATTR_CMN_EXTENDED);
    if (records < 0 && errno == EINVAL && asksForClones) {
        request.forkattr = requestedExtended;
        records = ::getattrlistbulk(folder, &request, buffer, size, FSOPT_ATTR_CMN_EXTENDED);
        if (records >= 0)
            knowsClones = false;
    }
    return records;
}

} // namespace

const DirectoryCalls& DirectoryCalls::live() {
    static const DirectoryCalls calls = {
        .readPacked = readPackedRecords,
        .extendedStatus = nullptr,
        .entryStatus =
            [](int folder, const char* name, struct stat* status) {
                return ::fstatat(folder, name, status, AT_SYMLINK_NOFOLLOW);
            },
        .openEntry = [](int folder, const char* name, int flags) { return ::openat(folder, name, flags); },
        .readExtents = nullptr,
        .openFolder = openSubfolder,
    };
    return calls;
}

struct BulkDirectoryReading::State {
    const DirectoryCalls& calls;
    std::unique_ptr<HeldByBatch> held; // null when nothing is kept of it
};

BulkDirectoryReading::BulkDirectoryReading(const DirectoryCalls& calls, bool keepsHeldSpace)
    : state_(
          std::make_unique<State>(State{calls, keepsHeldSpace ? std::make_unique<HeldByBatch>() : nullptr})) {
}
BulkDirectoryReading::~BulkDirectoryReading() = default;

BulkReadOutcome BulkDirectoryReading::read(int folder, std::int32_t deviceID, bool,
                                           std::span<std::byte> buffer, EntryBatch& batch,
                                           const RecordSource*) {
    // The records of a mount point are those of the folder below, and a device in a record may be a volume's
    // where `fstat` names the group of volumes that share a tree. So entries are where their folder is; what
    // is elsewhere shows when it is opened.

    // A reused descriptor starts over.
    ::lseek(folder, 0, SEEK_SET);
    for (;;) {
        const long records = state_->calls.readPacked(folder, buffer.data(), buffer.size());
        if (records == 0)
            return BulkReadOutcome::success;
        if (records < 0) {
            if (errno == EINTR)
                continue;
            return isUnsupportedError(errno) ? BulkReadOutcome::unsupported : BulkReadOutcome::failure;
        }
        switch (decode(buffer, static_cast<std::size_t>(records), batch, &deviceID, state_->held.get())) {
        case DecodeOutcome::complete:
            break;
        case DecodeOutcome::stopped:
            return BulkReadOutcome::success;
        case DecodeOutcome::malformed:
            errno = EIO;
            return BulkReadOutcome::failure;
        }
    }
}

} // namespace tarnwell
