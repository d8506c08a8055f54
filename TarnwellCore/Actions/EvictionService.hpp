#pragma once

// Removes the local copies of cloud-synced files, one by one, and says precisely why one stays.

#include "TarnwellCore/Actions/EvictionOutcome.hpp"
#include "TarnwellCore/Actions/SyncedRoots.hpp"
#include "TarnwellCore/Platform/CloudItems.hpp"

#include <filesystem>
#include <functional>
#include <future>
#include <vector>

namespace tarnwell {

/// A value without mutable state; may be used from any thread and may go away while `evict` runs.
///
/// The three functions may block: `evict` calls them from its background thread, one at a time. They throw
/// CloudEvictionError or any other std::exception, whose text is for the user. The path they get is the URL
/// with "." and ".." resolved as text: what was found to lie in a root is what is acted on.
struct EvictionService {
    std::function<CloudItemStatus(const std::filesystem::path&)> probe;
    std::function<void(const std::filesystem::path&)> evictUbiquitousItem;
    std::function<void(const std::filesystem::path&)> evictFileProviderItem;

    /// The service wired to the platform.
    static EvictionService live();

    /// Evicts the files one after another; one outcome each, in the same order. Never throws, nor does the
    /// future. Dropping the future waits for the operation to end.
    std::future<std::vector<EvictionOutcome>> evict(std::vector<std::filesystem::path> urls,
                                                    std::vector<SyncedRoot> roots) const;
};

} // namespace tarnwell
