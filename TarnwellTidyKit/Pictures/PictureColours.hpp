#pragma once

// What has which colour: items by category, everything else by the page, which may be light or dark.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace tarnwell {

/// Bytes by the raw value of a category.
using CategoryBytes = std::array<std::int64_t, fileCategoryCount>;

/// Remembers what folders hold.
class PictureColours {
public:
    /// `removed` must outlive this and not change.
    PictureColours(SizeMode mode, const RemovedNodes& removed) : mode_(mode), removed_(removed) {}

    /// What the counted files below a folder take that are not removed, and folders whose sums came without
    /// their files.
    const CategoryBytes& bytes(const FileNode& folder);

    /// A file's category; for a folder, the one that takes most of its space.
    FileCategory mainCategory(const FileNode& node);

private:
    SizeMode mode_;
    const RemovedNodes& removed_;
    std::unordered_map<const FileNode*, CategoryBytes> bytes_;
};

/// CSS of a picture: class "c4" is the colour of the category with the raw value 4, "t4" that of text on it.
std::string pictureStyleSheet();

} // namespace tarnwell
