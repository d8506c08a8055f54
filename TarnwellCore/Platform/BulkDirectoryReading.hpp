#pragma once

// The platform's way to read a whole folder with its entries' attributes in few calls.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/EntryBatch.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace tarnwell {

enum class BulkReadOutcome {
    success,
    failure,     ///< the folder could not be read, errno says why
    unsupported, ///< this file system or kernel cannot read in bulk
};

/// Stands for `DirectoryCalls::readPacked` of the folder at hand, where others may read the same folder.
using RecordSource = std::function<long(std::span<std::byte>)>;

/// Confined to one thread.
class BulkDirectoryReading {
public:
    /// With `keepsHeldSpace`, entries that share blocks say which (`RawDirectoryEntry::held`).
    BulkDirectoryReading(const DirectoryCalls& calls, bool keepsHeldSpace);
    ~BulkDirectoryReading();

    /// Hands on the entries of an open folder, without "." and "..", all of them unless the consumer wants no
    /// more or the reading fails on the way. `deviceID` is the folder's device. `isAtStart` tells that
    /// nothing was read from the descriptor yet. The names lie in `buffer`. Records come from `source`, if
    /// there is one and asking about an entry takes a call besides its record, as on Linux; its entries have
    /// all been handed on when the next records are asked for.
    BulkReadOutcome read(int folder, std::int32_t deviceID, bool isAtStart, std::span<std::byte> buffer,
                         EntryBatch& batch, const RecordSource* source = nullptr);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace tarnwell
