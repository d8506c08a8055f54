#pragma once

// Folders full of surprises on the real disk.

#include <cstdint>
#include <filesystem>

namespace tarnwell::test {

/// Fills a folder with some `itemCount` random files, folders, links, hard links and FIFOs below each other;
/// names of any bytes, sizes from empty to some hundred KB, some files with holes. The same seed gives the
/// same tree.
void makeRandomTree(const std::filesystem::path& folder, int itemCount, std::uint64_t seed);

} // namespace tarnwell::test
