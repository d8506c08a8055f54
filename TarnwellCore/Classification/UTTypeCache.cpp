#include "TarnwellCore/Classification/UTTypeCache.hpp"

#include "TarnwellCore/Classification/FileClassifier.hpp"

#include <utility>

namespace tarnwell {

UTTypeCache::UTTypeCache() : UTTypeCache(FileClassifier::classifyByUTType) {}

UTTypeCache::UTTypeCache(Lookup lookup) : lookup_(std::move(lookup)) {
    // Most new extensions then meet an empty bucket, which the processor fetches but once.
    storage_.max_load_factor(0.25f);
}

std::optional<FileCategory> UTTypeCache::category(std::string_view ext) {
    const auto known = [](FileCategory stored) {
        return stored == FileCategory::other ? std::nullopt : std::optional(stored);
    };
    const auto stored = lock_.withLock([&]() -> std::optional<FileCategory> {
        const auto position = storage_.find(ext);
        return position == storage_.end() ? std::nullopt : std::optional(position->second);
    });
    if (stored)
        return known(*stored);
    const FileCategory answer = lookup_(ext).value_or(FileCategory::other);
    std::string key(ext);
    lock_.withLock([&] { storage_.insert_or_assign(std::move(key), answer); });
    return known(answer);
}

} // namespace tarnwell
