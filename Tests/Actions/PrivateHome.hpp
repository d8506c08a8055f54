#pragma once

// A home folder of the test program's own, so that its Trash is not the user's.

#include <filesystem>

namespace tarnwell::test {

/// The folder that $HOME names while the program runs: empty at the start, removed at the end.
const std::filesystem::path& privateHome();

/// Where moved items land for that home.
std::filesystem::path privateTrashFiles();

} // namespace tarnwell::test
