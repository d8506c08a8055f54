#pragma once

// The Darwin kernel, as far as the sources in Platform/Darwin can tell, over what Linux has: real folders,
// files and mounts. What Linux does not have is said here, of single entries and of the kernel as a whole.

#include <cstdint>
#include <filesystem>
#include <optional>

namespace tarnwell::test {

/// What the file system says of one entry besides what Linux knows.
struct EmulatedEntry {
    std::uint32_t flags = 0;
    std::optional<std::int64_t> privateSize = {};
    std::optional<std::uint32_t> extendedFlags = {};
    std::optional<std::uint64_t> cloneIdentifier = {};
    std::optional<std::uint32_t> cloneReferences = {};
    /// Its attributes cannot be had, for this reason.
    std::uint32_t error = 0;
    /// Opening it would mount something on it.
    bool isTrigger = false;
};

struct EmulatedBehaviour {
    /// Attributes that records do not carry, by their bits.
    std::uint32_t withheldCommon = 0;
    std::uint32_t withheldDirectory = 0;
    std::uint32_t withheldFile = 0;
    std::uint32_t withheldExtended = 0;
    /// Whether it has heard of the references of clones.
    bool knowsCloneReferences = true;
    /// The device in every record, rather than the folder's.
    std::optional<std::int32_t> device = {};
    /// Whether getfsstat names what is mounted.
    bool tellsMounts = true;
    /// With which getattrlistbulk or F_FULLFSYNC fails.
    int bulkError = 0;
    int fullSyncError = 0;
};

/// One at a time. The kernel is as usual again, and has forgotten all entries, once it is gone.
class EmulatedKernel {
public:
    EmulatedKernel() : EmulatedKernel(EmulatedBehaviour()) {}
    explicit EmulatedKernel(const EmulatedBehaviour& behaviour);
    ~EmulatedKernel();
    EmulatedKernel(const EmulatedKernel&) = delete;
    EmulatedKernel& operator=(const EmulatedKernel&) = delete;

    /// Of a mount point: of what is mounted there, and in its parent's listing of the folder below.
    void describe(const std::filesystem::path& path, const EmulatedEntry& entry);

    /// Whether the platform has opened it or asked for its status since then.
    bool wasTouched(const std::filesystem::path& path) const;

    /// How often the contents of something dataless had to be fetched.
    int fetches() const;
};

} // namespace tarnwell::test
