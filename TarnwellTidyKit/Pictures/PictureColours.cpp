#include "TarnwellTidyKit/Pictures/PictureColours.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string_view>

namespace tarnwell {

namespace {

// A view is seen while its place is the document's target, and the folder itself, which stands last, while no
// other one is. Colours of categories are the same on light and dark.
constexpr std::string_view styles = R"(
.view{display:none}.view:target{display:inline}.view:target~#v0{display:none}
text{font:12px system-ui,-apple-system,"Segoe UI","DejaVu Sans",Helvetica,Arial,sans-serif;pointer-events:none}
.page{fill:#fff}.ink{fill:#0f172a}.faint{fill:#52606d}.title{font-size:20px;font-weight:600}
.open{fill:#e2e8f0}.odd{fill:#cbd5e1}.name{font-weight:600}.size{opacity:.8}.rest{fill:#94a3b8;fill-opacity:.45}
a{cursor:pointer;text-decoration:none}.title,.link{pointer-events:auto}a .ink:hover{text-decoration:underline}
.item:hover{stroke:#0f172a;stroke-width:2}a:focus .item{stroke:#0f172a;stroke-width:3}
@media(prefers-color-scheme:dark){.page{fill:#0b1120}.ink{fill:#f1f5f9}.faint{fill:#a3b1c2}
.open{fill:#1e293b}.odd{fill:#334155}.rest{fill:#94a3b8;fill-opacity:.3}
.item:hover,a:focus .item{stroke:#fff}}
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

const CategoryBytes& PictureColours::bytes(const FileNode& folder) {
    const auto [place, isNew] = bytes_.try_emplace(&folder);
    if (!isNew)
        return place->second;
    constexpr FileNodeFlags uncounted = FileNodeFlags::hardlinkDuplicate | FileNodeFlags::inaccessible;
    CategoryBytes& bytes = place->second;
    folder.forEachDescendant([&](const FileNode& node) {
        if (removed_.contains(node))
            return false;
        const bool isCounted = node.isDirectory() ? node.flags.contains(FileNodeFlags::collapsed)
                                                  : !node.flags.intersects(uncounted);
        if (isCounted)
            addChecked(bytes[rawValue(node.category)], node.sizeFor(mode_));
        return !node.flags.contains(FileNodeFlags::collapsed);
    });
    return bytes;
}

FileCategory PictureColours::mainCategory(const FileNode& node) {
    if (!node.isDirectory())
        return node.category;
    const CategoryBytes& all = bytes(node);
    const auto largest = std::ranges::max_element(all);
    return *largest > 0 ? allFileCategories()[static_cast<std::size_t>(largest - all.begin())]
                        : node.category;
}

std::string pictureStyleSheet() {
    std::string css(styles);
    for (const FileCategory category : allFileCategories()) {
        const std::string number = std::to_string(rawValue(category));
        css += ".c" + number + "{fill:" + std::string(hexColor(category)) + "}.t" + number +
               "{fill:" + std::string(inkOn(category)) + "}\n";
    }
    return css;
}

} // namespace tarnwell
