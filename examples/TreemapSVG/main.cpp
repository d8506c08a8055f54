// Writes a picture of a folder: areas are sizes, colours are categories, folders lie in one another.

#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"

#include "Picture.hpp"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

using namespace tarnwell;

namespace {

constexpr std::string_view usage =
    "usage: treemap-svg FOLDER [LEVELS [apparent|allocated|reclaimable\n"
    "                   [treemap|sunburst|icicle|bars]]] > picture.svg\n"
    "LEVELS of folders are drawn into one another, 3 unless given; sizes are allocated ones unless given.\n";

/// A count from 1 to 99.
std::optional<std::int64_t> levelCount(std::string_view text) {
    std::int64_t levels = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), levels);
    if (error != std::errc() || end != text.data() + text.size() || levels < 1 || levels > 99)
        return std::nullopt;
    return levels;
}

std::optional<example::Layout> layoutNamed(std::string_view text) {
    constexpr std::string_view names[] = {"treemap", "sunburst", "icicle", "bars"};
    const auto* const found = std::ranges::find(names, text);
    if (found == std::end(names))
        return std::nullopt;
    return static_cast<example::Layout>(found - std::begin(names));
}

} // namespace

int main(int count, char** values) {
    const std::vector<std::string_view> arguments(values + 1, values + count);
    if (arguments == std::vector<std::string_view>{"--help"}) {
        std::cout << usage;
        return 0;
    }
    const auto levels = levelCount(arguments.size() > 1 ? arguments[1] : "3");
    const auto mode = sizeModeFromRawValue(arguments.size() > 2 ? arguments[2] : "allocated");
    const auto layout = layoutNamed(arguments.size() > 3 ? arguments[3] : "treemap");
    if (arguments.empty() || arguments.size() > 4 || arguments[0].starts_with('-') || !levels || !mode ||
        !layout) {
        std::cerr << usage;
        return 2;
    }
    try {
        const ScanResult scan = DiskScanner().scan(arguments[0]).get();
        std::cout << example::picture(scan, *levels, *mode, *layout) << std::flush;
        return std::cout ? 0 : 1;
    } catch (const ScanError& error) {
        std::cerr << styled(error.what(), nameStyle(::isatty(STDERR_FILENO) == 1)) << '\n';
        return 1;
    }
}
