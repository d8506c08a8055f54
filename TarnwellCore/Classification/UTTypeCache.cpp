#include "TarnwellCore/Classification/UTTypeCache.hpp"

#include "TarnwellCore/Classification/FileClassifier.hpp"

#include <utility>

namespace tarnwell {

namespace {

constexpr std::size_t longestRecent = 7;
constexpr int answerBits = 5;

/// A slot's upper 59 bits: up to seven bytes of extension, then its length.
std::uint64_t recentKey(std::string_view ext) {
    std::uint64_t key = 0;
    for (const char byte : ext)
        key = key << 8 | static_cast<unsigned char>(byte);
    return (key << 3 | ext.size()) << answerBits;
}

} // namespace

UTTypeCache::UTTypeCache() : UTTypeCache(FileClassifier::classifyByUTType) {}

UTTypeCache::UTTypeCache(Lookup lookup) : lookup_(std::move(lookup)) {}

std::optional<FileCategory> UTTypeCache::category(std::string_view ext) {
    FileCategory found;
    if (ext.size() <= longestRecent) {
        static_assert(fileCategoryCount <= 1 << answerBits);
        constexpr std::uint64_t answerMask = (1 << answerBits) - 1;
        const std::uint64_t key = recentKey(ext);
        std::atomic<std::uint64_t>& slot = recent_[(key * 0x9E37'79B9'7F4A'7C15) >> 54];
        const std::uint64_t recent = slot.load(std::memory_order_relaxed);
        if (recent != 0 && (recent & ~answerMask) == key) {
            found = static_cast<FileCategory>(recent & answerMask);
        } else {
            found = storedCategory(ext);
            slot.store(key | rawValue(found), std::memory_order_relaxed);
        }
    } else {
        found = storedCategory(ext);
    }
    return found == FileCategory::other ? std::nullopt : std::optional(found);
}

FileCategory UTTypeCache::storedCategory(std::string_view ext) {
    const auto stored = lock_.withLock([&]() -> std::optional<FileCategory> {
        const auto position = storage_.find(ext);
        return position == storage_.end() ? std::nullopt : std::optional(position->second);
    });
    if (stored)
        return *stored;
    const FileCategory answer = lookup_(ext).value_or(FileCategory::other);
    std::string key(ext);
    lock_.withLock([&] { storage_.insert_or_assign(std::move(key), answer); });
    return answer;
}

} // namespace tarnwell
