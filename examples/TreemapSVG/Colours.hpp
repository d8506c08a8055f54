#pragma once

// What has which colour: tiles by category, everything else by the page, which may be light or dark.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <array>
#include <cstdint>
#include <string>

namespace example {

/// Bytes by the raw value of a category.
using CategoryBytes = std::array<std::int64_t, tarnwell::fileCategoryCount>;

/// What the counted files of a tree take.
CategoryBytes bytesByCategory(const tarnwell::FileNode& node, tarnwell::SizeMode mode);

/// A file's category; for a folder, the one that takes most of its space.
tarnwell::FileCategory mainCategory(const tarnwell::FileNode& node, tarnwell::SizeMode mode);

/// CSS: class "c4" is the colour of the category with the raw value 4, "t4" that of text on it.
std::string styleSheet();

} // namespace example
