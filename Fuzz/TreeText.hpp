#pragma once

// A tree of files as a text, for targets that take one.

#include "TarnwellCore/Layout/RemovedNodes.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstdint>
#include <memory>
#include <string_view>

#include "Fuzz/TextInput.hpp"

namespace tarnwell::fuzz {

struct TreeFromText {
    std::shared_ptr<FileNode> root;
    RemovedNodes removed;
};

/// Reads all that is left of the input. Items stand one after the other, each ended by the one byte that is
/// in no name, "/":
///
///     <level><kind> <size> <allocated size> <reclaimable size> <name>/
///
/// such as "1d 70 80 80 Documents/2f 50 60 0 a,b.txt/". Children of the root are at level 1; an item's parent
/// is the last folder of the level above, or the nearest there is. Of the kinds, "d" is a folder, and "x" (as
/// in "dx") a removed item. Nothing is summed up or sorted: sizes are those of the text, folders' sizes too.
TreeFromText readTree(TextInput& input, std::string_view rootPath);

} // namespace tarnwell::fuzz
