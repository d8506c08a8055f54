#pragma once

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>

namespace tarnwell {

/// Nodes that follow one another in a large folder lie all over memory: asks for one and its name before they
/// are needed, a dozen nodes ahead as a rule.
inline void fetchSoon(const FileNode* node) noexcept {
    const auto* bytes = reinterpret_cast<const char*>(node);
    __builtin_prefetch(bytes);
    __builtin_prefetch(bytes + 64);
}
inline constexpr std::size_t nodesAhead = 12;

} // namespace tarnwell
