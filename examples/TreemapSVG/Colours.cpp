#include "Colours.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string_view>

using namespace tarnwell;

namespace example {

namespace {

// Whether the page is dark is the viewer's wish; the colours of categories are the same on both.
constexpr std::string_view styles = R"(
text{font:12px system-ui,-apple-system,"Segoe UI","DejaVu Sans",Helvetica,Arial,sans-serif;pointer-events:none}
.page{fill:#fff}.ink{fill:#0f172a}.faint{fill:#52606d}.title{font-size:20px;font-weight:600}
.open{fill:#e2e8f0}.odd{fill:#cbd5e1}.name{font-weight:600}.size{opacity:.8}.rest{fill:#94a3b8;fill-opacity:.45}
svg svg rect:hover{stroke:#0f172a;stroke-width:3}
@media(prefers-color-scheme:dark){.page{fill:#0b1120}.ink{fill:#f1f5f9}.faint{fill:#a3b1c2}
.open{fill:#1e293b}.odd{fill:#334155}.rest{fill:#94a3b8;fill-opacity:.3}svg svg rect:hover{stroke:#fff}}
)";

/// Black or white, whichever is easier to read on the colour.
std::string_view inkOn(FileCategory category) {
    double luminance = 0;
    constexpr std::array weights{0.2126, 0.7152, 0.0722};
    const auto channels = rgb(category);
    for (std::size_t index = 0; index < weights.size(); ++index)
        luminance += weights[index] * std::pow(channels[index] / 255.0, 2.2);
    return luminance > 0.18 ? "#0b1120" : "#fff";
}

} // namespace

CategoryBytes bytesByCategory(const FileNode& node, SizeMode mode) {
    constexpr FileNodeFlags uncounted = FileNodeFlags::hardlinkDuplicate | FileNodeFlags::inaccessible;
    CategoryBytes bytes{};
    node.forEachDescendant([&](const FileNode& item) {
        if (!item.isDirectory() && !item.flags.intersects(uncounted))
            bytes[rawValue(item.category)] += item.sizeFor(mode);
        return true;
    });
    return bytes;
}

FileCategory mainCategory(const FileNode& node, SizeMode mode) {
    if (!node.isDirectory())
        return node.category;
    const CategoryBytes bytes = bytesByCategory(node, mode);
    const auto largest = std::ranges::max_element(bytes);
    return *largest > 0 ? allFileCategories()[static_cast<std::size_t>(largest - bytes.begin())]
                        : node.category;
}

std::string styleSheet() {
    std::string css(styles);
    for (const FileCategory category : allFileCategories()) {
        const std::string number = std::to_string(rawValue(category));
        css += ".c" + number + "{fill:" + std::string(hexColor(category)) + "}.t" + number +
               "{fill:" + std::string(inkOn(category)) + "}\n";
    }
    return css;
}

} // namespace example
