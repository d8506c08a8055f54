#pragma once

// What a listing in JSON says, read without the library's help.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tarnwell::test {

/// Sizes in bytes.
struct JSONListing {
    std::int64_t totalSize = 0;
    std::int64_t totalAllocatedSize = 0;
    /// The items below the root, at any depth; there may be fewer paths, since bytes that are no text look
    /// alike.
    std::size_t itemCount = 0;
    std::map<std::string, std::int64_t> sizes; // by path
};

/// Nothing for what is no JSON, no UTF-8 or no listing.
std::optional<JSONListing> readJSONListing(const std::string& text);

} // namespace tarnwell::test
