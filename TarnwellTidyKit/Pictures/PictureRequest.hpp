#pragma once

// What a picture shall show.

#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwell {

enum class PictureKind : std::uint8_t { treemap, sunburst, icicle, bars };

/// "treemap", "sunburst", "icicle" or "bars".
constexpr std::string_view rawValue(PictureKind kind) {
    switch (kind) {
    case PictureKind::treemap:
        return "treemap";
    case PictureKind::sunburst:
        return "sunburst";
    case PictureKind::icicle:
        return "icicle";
    case PictureKind::bars:
        return "bars";
    }
    return "treemap";
}

/// The kind of exactly this name.
constexpr std::optional<PictureKind> pictureKindFromRawValue(std::string_view text) {
    for (const PictureKind kind :
         {PictureKind::treemap, PictureKind::sunburst, PictureKind::icicle, PictureKind::bars})
        if (rawValue(kind) == text)
            return kind;
    return std::nullopt;
}

struct PictureRequest {
    /// The folder to show; its tree must live while it is drawn.
    const FileNode* folder = nullptr;
    PictureKind kind = PictureKind::treemap;
    /// Which size is shown.
    SizeMode sizeMode = SizeMode::allocated;
    /// How many levels of folders lie in one another; at least 1. Bars show 1 and what each is made of.
    std::int64_t levels = 3;
    /// How many bars there are beside the one for the rest.
    std::size_t barCount = 20;
    /// How many folders can be gone into, the folder itself with them; 1 makes a picture that stands still.
    std::size_t viewCount = 200;
    /// Left out; may be null. Further links to a file always are.
    const RemovedNodes* removed = nullptr;
};

} // namespace tarnwell
