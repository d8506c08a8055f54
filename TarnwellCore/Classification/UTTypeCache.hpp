#pragma once

// Remembers what the platform's type database says about an extension, because asking costs far more than
// reading a directory entry does.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Platform/UnfairLock.hpp"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tarnwell {

/// Answers by lower-case extension, misses included; never emptied, never bounded. Safe from any thread.
class UTTypeCache {
public:
    using Lookup = std::function<std::optional<FileCategory>(std::string_view ext)>;

    /// Asks the type database.
    UTTypeCache();
    /// Asks `lookup` instead; it is called without a lock, from several threads at once.
    explicit UTTypeCache(Lookup lookup);
    UTTypeCache(const UTTypeCache&) = delete;
    UTTypeCache& operator=(const UTTypeCache&) = delete;

    /// The category that the lookup gives to this extension. The lookup runs about once for each: threads
    /// that meet a new extension at the same time may each ask, and get the same answer.
    std::optional<FileCategory> category(std::string_view ext);

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view ext) const { return std::hash<std::string_view>()(ext); }
    };

    const Lookup lookup_;
    UnfairLock lock_;
    /// Guarded by lock_. `other` marks an extension that the lookup does not know.
    std::unordered_map<std::string, FileCategory, Hash, std::equal_to<>> storage_;
};

} // namespace tarnwell
