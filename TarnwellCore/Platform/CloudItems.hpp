#pragma once

// The platform's view of files that a cloud service keeps in step: what it knows about one, and how to have
// its local copy removed. Where the platform manages no such files the answers say so.

#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace tarnwell {

enum class UbiquitousDownloadingStatus : std::uint8_t {
    notDownloaded, ///< the contents are only in the cloud
    downloaded,    ///< there is a local copy, a newer one is in the cloud
    current,       ///< the local copy is the newest that is known
};

/// A value without behaviour.
struct CloudItemStatus {
    bool isDirectory = false;
    bool isRegularFile = false;
    /// The contents are not on disk.
    bool isDataless = false;
    /// Managed by the platform's own cloud drive.
    bool isUbiquitous = false;
    std::optional<UbiquitousDownloadingStatus> downloadingStatus = {};
    /// Bytes.
    std::int64_t allocatedSize = 0;

    bool operator==(const CloudItemStatus&) const = default;
};

/// What the platform answers to a request to evict.
struct CloudEvictionReply {
    enum class Kind : std::uint8_t {
        evicted,
        notManaged,  ///< no cloud service manages the item
        unavailable, ///< its service cannot be reached
        failed,      ///< the platform's text is in `message`
    };
    Kind kind = Kind::evicted;
    std::string message;
};

/// Reads an item's status without following a link; the platform's text where that fails. Never makes the
/// cloud service fetch the item.
std::expected<CloudItemStatus, std::string> readCloudItemStatus(const std::filesystem::path& item);

/// Removes the local copy of an item of the platform's own cloud drive. Blocks.
CloudEvictionReply evictFromUbiquitousStorage(const std::filesystem::path& item);

/// Removes the local copy of an item that another service manages. `completion` is called from any thread,
/// possibly before this returns, possibly more than once; it is dropped uncalled when the service dies.
void evictFromFileProvider(const std::filesystem::path& item,
                           std::function<void(const CloudEvictionReply&)> completion);

} // namespace tarnwell
