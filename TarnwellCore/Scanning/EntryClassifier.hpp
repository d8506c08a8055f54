#pragma once

// The category of each entry that a worker reads, at the cost of a look into a table that stays in the
// processor's first cache.

#include "TarnwellCore/Classification/FileCategory.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwell {

/// A name with its lower-case extension. The extension belongs to the classifier that made it and lasts until
/// the next call.
struct ExtensionView {
    std::string_view text;
    /// The same bytes, packed, first byte lowest; 0 for an empty or long extension.
    std::uint64_t packed = 0;
};

/// Confined to one thread.
class EntryClassifier {
public:
    /// Longer extensions are in no table.
    static constexpr std::size_t longestExtension = 64;

    /// The lower-case text after the last "." of a name; empty also when it is longer than any known one.
    ExtensionView extension(std::string_view name);

    FileCategory file(std::string_view name, const ExtensionView& extension);
    static FileCategory folder(std::string_view name, const ExtensionView& extension);

private:
    /// Remembers what the tables and the type database answered, by packed extension.
    struct Remembered {
        std::uint64_t packed = 0;
        FileCategory category = FileCategory::other;
    };

    std::array<char, longestExtension> buffer_;
    std::array<Remembered, 512> memory_;
};

} // namespace tarnwell
