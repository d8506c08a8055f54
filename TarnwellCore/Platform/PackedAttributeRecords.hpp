#pragma once

// Decoding of the records that getattrlistbulk(2) packs into a buffer. The layout is the kernel's: each
// record starts with its length, then the set of attributes that it carries, then those attributes in the
// order of their bits, each aligned to 4 bytes; a name is an offset, counted from the place of the reference
// itself, and a length that includes a closing NUL. A pure function over bytes: it compiles and is tested on
// every system.

#include "TarnwellCore/Platform/EntryBatch.hpp"
#include "TarnwellCore/Platform/HeldSpace.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tarnwell::PackedAttributes {

// Attribute bits of <sys/attr.h>.
inline constexpr std::uint32_t commonName = 0x0000'0001;
inline constexpr std::uint32_t commonDevice = 0x0000'0002;
inline constexpr std::uint32_t commonObjectType = 0x0000'0008;
inline constexpr std::uint32_t commonModificationTime = 0x0000'0400;
inline constexpr std::uint32_t commonAccessTime = 0x0000'1000;
inline constexpr std::uint32_t commonFlags = 0x0004'0000;
inline constexpr std::uint32_t commonFileID = 0x0200'0000;
inline constexpr std::uint32_t commonError = 0x2000'0000;
inline constexpr std::uint32_t commonReturnedAttributes = 0x8000'0000;
inline constexpr std::uint32_t directoryMountStatus = 0x0000'0004;
inline constexpr std::uint32_t fileLinkCount = 0x0000'0001;
inline constexpr std::uint32_t fileTotalSize = 0x0000'0002;
inline constexpr std::uint32_t fileAllocatedSize = 0x0000'0004;
inline constexpr std::uint32_t extendedPrivateSize = 0x0000'0008;
inline constexpr std::uint32_t extendedCloneIdentifier = 0x0000'0100;
inline constexpr std::uint32_t extendedFlags = 0x0000'0200;
inline constexpr std::uint32_t extendedCloneReferences = 0x0000'1000;

/// Bits of a folder's mount status: something is mounted on it; something gets mounted when it is opened.
inline constexpr std::uint32_t mountStatusMountPoint = 1;
inline constexpr std::uint32_t mountStatusTrigger = 2;

/// What a reader asks for, as the five words of a struct attrlist's masks would carry it.
inline constexpr std::uint32_t requestedCommon = commonName | commonDevice | commonObjectType |
                                                 commonModificationTime | commonAccessTime | commonFlags |
                                                 commonFileID | commonError | commonReturnedAttributes;
inline constexpr std::uint32_t requestedDirectory = directoryMountStatus;
inline constexpr std::uint32_t requestedFile = fileLinkCount | fileTotalSize | fileAllocatedSize;
inline constexpr std::uint32_t requestedExtended = extendedPrivateSize | extendedFlags;
/// Asked for as well where the kernel knows them.
inline constexpr std::uint32_t requestedOfClones = extendedCloneIdentifier | extendedCloneReferences;

enum class DecodeOutcome {
    complete,
    stopped,   ///< the consumer wants no more
    malformed, ///< the bytes are not what the kernel writes
};

/// What the entries of a batch share, each at its place in the batch.
using HeldByBatch = std::array<HeldSpace, EntryBatch::capacity>;

/// Hands on the entries of `recordCount` records, their names as parts of `bytes`. Records without an error
/// are left out when their name is empty, "." or ".."; records with one are kept as they stand. A negative
/// size is one that did not fit: the entry gets EOVERFLOW for its error, and no bytes. Malformed is:
/// a record or a field that does not lie wholly inside the buffer, a length that does not move on, an
/// attribute that was not asked for. Entries decoded before that are handed on all the same. With `device`
/// they are on that one, whatever the records say. With `held`, a file all of whose blocks are those of its
/// clones says so by `RawDirectoryEntry::held`, which lasts as long as the entry; one that has been changed
/// since it was cloned has no clone with its identifier left, and only its private size to tell.
DecodeOutcome decode(std::span<const std::byte> bytes, std::size_t recordCount, EntryBatch& batch,
                     const std::int32_t* device = nullptr, HeldByBatch* held = nullptr);

/// Whether a failed bulk call with this error number of the Darwin kernel means that the file system cannot
/// read in bulk at all (operation not supported, invalid argument).
constexpr bool isUnsupportedError(int darwinErrorNumber) {
    return darwinErrorNumber == 45 || darwinErrorNumber == 22;
}

} // namespace tarnwell::PackedAttributes
