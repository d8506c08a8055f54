#pragma once

// Names and numbers as text in a document of XML or HTML.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnwell {

/// A name as a reader may see it: `harmless`, and characters that no XML document may hold as U+FFFD.
std::string pictureName(std::string_view name);

/// A node's path, of which a long one shows its end.
std::string picturePath(const FileNode& node);

/// With the characters that begin or end markup as entities, good in texts and in quoted attributes.
std::string escapedMarkup(std::string_view text);

/// Points that a text takes in a common sans-serif font of this size, estimated on the safe side.
double estimatedWidth(std::string_view text, double fontSize);

/// The text, or as much of its beginning as fits the width with "…"; empty when that would say nothing.
std::string fittedText(std::string_view text, double width, double fontSize);

/// With at most two decimals.
std::string coordinate(double value);

/// "1 file", "2 files".
std::string countedText(std::int64_t count, std::string_view one);

} // namespace tarnwell
