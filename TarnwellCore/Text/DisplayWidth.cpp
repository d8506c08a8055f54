#include "TarnwellCore/Text/DisplayWidth.hpp"

#include "TarnwellCore/Platform/CharacterWidth.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <utility>
#include <vector>

namespace tarnwell {

namespace {

constexpr std::string_view ellipsis = "…";
constexpr std::size_t ellipsisWidth = 1;
constexpr char32_t zeroWidthJoiner = 0x200D;

/// Characters that are not taken apart.
struct Cluster {
    /// Bytes up to its end, from the beginning of the text.
    std::size_t end;
    /// Columns up to its end, likewise.
    std::size_t columns;
};

bool isPlain(std::string_view harmlessText) {
    for (const char byte : harmlessText)
        if ((static_cast<unsigned char>(byte) & 0x80) != 0)
            return false;
    return true;
}

std::size_t columnsOf(char32_t code) {
    return code < 0x80 ? 1 : static_cast<std::size_t>(characterWidth(code));
}

std::size_t widthOf(std::string_view harmlessText) {
    if (isPlain(harmlessText))
        return harmlessText.size();
    std::size_t width = 0;
    while (!harmlessText.empty()) {
        const Utf8Part part = firstUTF8Part(harmlessText);
        width += columnsOf(part.code);
        harmlessText.remove_prefix(part.length);
    }
    return width;
}

/// The clusters of a text, preceded by one of nothing.
std::vector<Cluster> clustersOf(std::string_view harmlessText) {
    std::vector<Cluster> clusters{{0, 0}};
    Cluster position{0, 0};
    bool isJoined = false;
    while (position.end < harmlessText.size()) {
        const Utf8Part part = firstUTF8Part(harmlessText.substr(position.end));
        const std::size_t columns = columnsOf(part.code);
        position = {position.end + part.length, position.columns + columns};
        if (clusters.size() > 1 && (columns == 0 || isJoined))
            clusters.back() = position;
        else
            clusters.push_back(position);
        isJoined = part.code == zeroWidthJoiner;
    }
    return clusters;
}

/// The longest beginning of at most `width` columns.
std::string_view beginning(std::string_view text, const std::vector<Cluster>& clusters, std::size_t width) {
    std::size_t end = 0;
    for (const Cluster& cluster : clusters) {
        if (cluster.columns > width)
            break;
        end = cluster.end;
    }
    return text.substr(0, end);
}

/// The longest end of at most `width` columns.
std::string_view ending(std::string_view text, const std::vector<Cluster>& clusters, std::size_t width) {
    const std::size_t whole = clusters.back().columns;
    for (const Cluster& cluster : clusters)
        if (whole - cluster.columns <= width)
            return text.substr(cluster.end);
    return {};
}

/// `harmlessText`, which is wider than `width`, with less of it.
std::string shortened(std::string_view harmlessText, std::size_t width, Cut cut) {
    if (width < ellipsisWidth)
        return {};
    const auto clusters = clustersOf(harmlessText);
    const std::size_t free = width - ellipsisWidth;
    const std::size_t back = cut == Cut::end ? 0 : cut == Cut::start ? free : free / 2;
    std::string text(beginning(harmlessText, clusters, free - back));
    text += ellipsis;
    if (back > 0)
        text += ending(harmlessText, clusters, back);
    return text;
}

} // namespace

std::size_t displayWidth(std::string_view text) {
    return isHarmless(text) ? widthOf(text) : widthOf(harmless(text));
}

std::string fitted(std::string_view text, std::size_t width, Cut cut) {
    std::string shown = harmless(text);
    return widthOf(shown) <= width ? shown : shortened(shown, width, cut);
}

std::string padded(std::string_view text, std::size_t width, Side side, Cut cut) {
    std::string shown = fitted(text, width, cut);
    // A wide character that did not fit leaves a column free.
    shown.insert(side == Side::left ? shown.size() : 0, width - widthOf(shown), ' ');
    return shown;
}

} // namespace tarnwell
