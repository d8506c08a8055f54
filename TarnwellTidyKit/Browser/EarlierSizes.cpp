#include "TarnwellTidyKit/Browser/EarlierSizes.hpp"

namespace tarnwell {

EarlierSizes::EarlierSizes(ScanSnapshot snapshot) : snapshot_(std::move(snapshot)) {
    for (const ScanSnapshot::Entry& entry : snapshot_.entries)
        byPath_.try_emplace(entry.path, &entry);
}

std::optional<std::int64_t> EarlierSizes::sizeOf(std::string_view path, SizeMode mode) const {
    if (path.empty())
        return snapshot_.totalSizeFor(mode);
    const auto found = byPath_.find(path);
    return found == byPath_.end() ? std::nullopt : std::optional(found->second->sizeFor(mode));
}

} // namespace tarnwell
