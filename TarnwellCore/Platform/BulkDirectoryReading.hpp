#pragma once

// The platform's way to read a whole folder with its entries' attributes in few calls.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/NameStore.hpp"
#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace tarnwell {

enum class BulkReadOutcome {
    success,
    failure,     ///< the folder could not be read, errno says why
    unsupported, ///< this file system or kernel cannot read in bulk
};

/// Confined to one thread.
class BulkDirectoryReading {
public:
    explicit BulkDirectoryReading(const DirectoryCalls& calls);
    ~BulkDirectoryReading();

    /// Appends the entries of an open folder, without "." and "..". `deviceID` is the folder's device.
    /// `isAtStart` tells that nothing was read from the descriptor yet. After a failure or a refusal
    /// `entries` may hold a part of the folder.
    BulkReadOutcome read(int folder, std::int32_t deviceID, bool isAtStart, std::span<std::byte> buffer,
                         NameStore& names, std::vector<RawDirectoryEntry>& entries);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace tarnwell
