// The walk over what the kernel writes about a folder (struct linux_dirent64). Input: a byte that says how
// the reading ends, the buffer. A name with a "!" cannot be looked at, one with a "?" tells of an old kernel.
// Exercises: TarnwellCore/Platform/Linux/BulkDirectoryReading.cpp

#include "TarnwellCore/Platform/BulkDirectoryReading.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz/Require.hpp"

namespace tarnwell::fuzz {

namespace {

/// What the second call of a reading brings.
constexpr int endings[] = {0, EINTR, EIO, ENOSYS, EOPNOTSUPP, EINVAL, ENOENT};

bool isLocked(std::string_view name) {
    return name.find('!') != name.npos;
}
bool needsNewKernel(std::string_view name) {
    return name.find('?') != name.npos;
}

/// The kernel's side of one reading: a call that fills the buffer, and one that ends the reading.
struct Kernel {
    std::string_view bytes;
    int ending = 0;
    int callCount = 0;
    std::vector<std::string> namesAskedFor = {};
};

/// The calls are functions without a state of their own.
Kernel kernel;

long readPacked(int, std::byte* buffer, std::size_t) {
    switch (kernel.callCount++) {
    case 0:
        std::memcpy(buffer, kernel.bytes.data(), kernel.bytes.size());
        return static_cast<long>(kernel.bytes.size());
    case 1:
        errno = kernel.ending;
        return kernel.ending == 0 ? 0 : -1;
    default:
        return 0;
    }
}

int extendedStatus(int, const char* name, void* result) {
    kernel.namesAskedFor.emplace_back(name); // reads up to the NUL, wherever that is
    if (isLocked(name) || needsNewKernel(name)) {
        errno = needsNewKernel(name) ? ENOSYS : EACCES;
        return -1;
    }
    struct statx status = {};
    status.stx_mode = S_IFREG;
    status.stx_size = kernel.namesAskedFor.back().size();
    std::memcpy(result, &status, sizeof status);
    return 0;
}

constexpr DirectoryCalls calls = {.readPacked = readPacked,
                                  .extendedStatus = extendedStatus,
                                  .entryStatus = nullptr,
                                  .openEntry = nullptr,
                                  .readExtents = nullptr,
                                  .openFolder = nullptr};

/// Of an entry, what the kernel told.
struct Entry {
    std::string name;
    std::int64_t size = 0;
    std::uint32_t error = 0;

    bool operator==(const Entry&) const = default;
};

Entry expectedEntry(const std::string& name) {
    if (isLocked(name))
        return {.name = name, .error = EACCES};
    return {.name = name, .size = static_cast<std::int64_t>(name.size())};
}

struct Walk {
    std::vector<std::string> names = {};
    /// Whether the buffer is one that a kernel writes.
    bool isGood = false;
};

/// The names in a buffer, told plainly: a record is 8 bytes of inode, 8 of offset, 2 of length and 1 of type,
/// then the name up to a NUL.
Walk walk(std::string_view bytes) {
    constexpr std::size_t namePlace = 19;
    Walk result;
    while (!bytes.empty()) {
        if (bytes.size() <= namePlace)
            return result;
        std::uint16_t length = 0;
        std::memcpy(&length, bytes.data() + 16, sizeof length);
        if (length <= namePlace || length > bytes.size())
            return result;
        const std::string_view rest = bytes.substr(namePlace, length - namePlace);
        const std::size_t end = rest.find('\0');
        if (end == rest.npos)
            return result;
        const std::string_view name = rest.substr(0, end);
        bytes.remove_prefix(length);
        if (name.empty() || name == "." || name == "..")
            continue;
        result.names.emplace_back(name);
        if (needsNewKernel(name))
            return result;
    }
    result.isGood = true;
    return result;
}

BulkReadOutcome expectedOutcome(const Walk& walk, int ending) {
    if (!walk.names.empty() && needsNewKernel(walk.names.back()))
        return BulkReadOutcome::unsupported;
    if (!walk.isGood)
        return BulkReadOutcome::failure;
    switch (ending) {
    case 0:
    case EINTR:
        return BulkReadOutcome::success;
    case ENOSYS:
    case EOPNOTSUPP:
    case EINVAL:
        return BulkReadOutcome::unsupported;
    default:
        return BulkReadOutcome::failure;
    }
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    if (size < 2)
        return 0;
    const int ending = fuzz::endings[data[0] % std::size(fuzz::endings)];
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const fuzz::Walk expected = fuzz::walk(bytes);

    fuzz::kernel = {.bytes = bytes, .ending = ending};
    // As long as what is written into it: a read beyond that ends the program.
    const auto buffer = std::make_unique_for_overwrite<std::byte[]>(bytes.size());
    std::vector<fuzz::Entry> entries;
    const EntryConsumer consumer = [&](std::span<const RawDirectoryEntry> next) {
        for (const RawDirectoryEntry& entry : next)
            entries.push_back({std::string(entry.name), entry.logicalSize, entry.errorCode});
        return true;
    };
    EntryBatch batch;
    batch.begin(consumer);
    const BulkReadOutcome outcome =
        BulkDirectoryReading(fuzz::calls, false).read(-1, 1, true, {buffer.get(), bytes.size()}, batch);

    fuzz::require(fuzz::kernel.namesAskedFor == expected.names, "every name is looked at, and nothing else");
    fuzz::require(outcome == fuzz::expectedOutcome(expected, ending), "the reading ends as it should");
    if (outcome == BulkReadOutcome::unsupported)
        return 0;
    fuzz::require(entries.size() == expected.names.size(), "every name has an entry");
    for (std::size_t index = 0; index < entries.size(); ++index)
        fuzz::require(entries[index] == fuzz::expectedEntry(expected.names[index]),
                      "an entry has what its name has");
    return 0;
}
