#pragma once

// Reading names and paths as bytes.

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace tarnwell::PathUtil {

/// The text in lower case, letters of every script included; of what is not UTF-8 the ASCII letters only.
std::string lowerCase(std::string_view text);

/// The text after the last "." of a name in lower case; empty when there is no ".".
std::string fileExtension(std::string_view name);

/// The same text as it stands in the name: no copy, letter case kept.
constexpr std::string_view rawFileExtension(std::string_view name) {
    const auto dot = name.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : name.substr(dot + 1);
}

/// A size for the buffer of `lowerCaseExtension`: all that a name of most file systems can hold. No letter
/// grows beyond three times its bytes.
inline constexpr std::size_t extensionBufferSize = std::size_t{3} * 256;

/// As `fileExtension`, without allocating for ASCII: a part of `name` where that is lower case already,
/// otherwise written into `buffer`; good for as long as both are. An extension longer than the buffer comes
/// back in the letter case of the name: no table holds it, and the platform's type database ignores case.
std::string_view lowerCaseExtension(std::string_view name, std::span<char> buffer);

/// The path without its trailing "/"; the root stays "/".
constexpr std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

/// The text after the last "/" of a path whose trailing "/" are ignored; "/" for the root.
constexpr std::string_view lastComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

} // namespace tarnwell::PathUtil
