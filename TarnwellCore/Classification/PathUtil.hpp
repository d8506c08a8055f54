#pragma once

// Reading names and paths as bytes.

#include <string>
#include <string_view>

namespace tarnwell::PathUtil {

/// The text after the last "." of a name, its ASCII letters lower-cased; empty when there is no ".".
std::string fileExtension(std::string_view name);

/// The same text as it stands in the name: no copy, letter case kept.
constexpr std::string_view rawFileExtension(std::string_view name) {
    const auto dot = name.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : name.substr(dot + 1);
}

/// The text after the last "/" of a path whose trailing "/" are ignored; "/" for the root.
constexpr std::string_view lastComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

} // namespace tarnwell::PathUtil
