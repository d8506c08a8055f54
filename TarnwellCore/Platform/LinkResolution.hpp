#pragma once

// Links resolved by reading them one by one, for paths that the system's own functions refuse.

#include <string>
#include <string_view>

namespace tarnwell {

/// The absolute path with ".", ".." and symbolic links resolved by the rules of realpath, as far as the path
/// exists; what does not exist is kept as text. Any bytes, any length. Never fails: a relative path stays as
/// it is where the current folder has no path.
std::string resolveEveryLink(std::string_view path);

} // namespace tarnwell
