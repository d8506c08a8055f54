// All keys, and what the marks before names mean.

#include "TarnwellTidyKit/Browser/BrowserKeys.hpp"
#include "TarnwellTidyKit/Browser/ViewParts.hpp"

#include <algorithm>

namespace tarnwell {

namespace {

struct Line {
    std::string head;
    std::string text;
    Role role = Role::text;
};

std::string allKeys(const BrowserKey& key) {
    if (!key.shown.empty())
        return std::string(key.shown);
    return std::string(key.keys);
}

std::vector<Line> lines(bool isReadOnly) {
    std::vector<Line> all;
    for (const BrowserKeyGroup& group : browserKeyGroups()) {
        if (isReadOnly && (group.title == "Marking" || group.title == "Acting"))
            continue;
        if (!all.empty())
            all.push_back({});
        all.push_back({std::string(group.title), "", Role::heading});
        for (const BrowserKey& key : group.keys)
            if (!key.help.empty())
                all.push_back({allKeys(key), std::string(key.help)});
    }
    all.push_back({});
    all.push_back({"Before names", "", Role::heading});
    for (const auto& [sign, meaning] : {std::pair{"/", "folder"},
                                        {"#", "package, which the system shows as one item"},
                                        {"@", "symbolic link"},
                                        {"!", "could not be read"},
                                        {".", "left out of the scan"},
                                        {">", "another file system"},
                                        {"=", "shares blocks with a clone"},
                                        {"+", "several links, or shared blocks"},
                                        {"&", "a further link to a file that is counted elsewhere"},
                                        {"~", "contents in the cloud only"},
                                        {"*", "device, pipe or socket"}})
        all.push_back({sign, meaning});
    return all;
}

} // namespace

std::size_t lastHelpTop(bool isReadOnly, int height) {
    const std::size_t count = lines(isReadOnly).size();
    return count - std::min(count, static_cast<std::size_t>(std::max(height, 0)));
}

void drawHelp(const Pane& pane) {
    const std::vector<Line> all = lines(pane.state.isReadOnly);
    const auto height = static_cast<std::size_t>(std::max(pane.area.height, 0));
    const std::size_t top = std::min(pane.state.helpTop, all.size() > height ? all.size() - height : 0);
    constexpr int keyWidth = 12;
    for (std::size_t row = 0; row < height && top + row < all.size(); ++row) {
        const Line& line = all[top + row];
        RowPainter painter(pane.grid, pane.area.column, pane.area.row + static_cast<int>(row),
                           pane.area.width);
        painter.gap(1);
        if (line.role == Role::heading) {
            painter.rest(line.head, Role::heading, Cut::end, true);
            continue;
        }
        painter.text(keyWidth, line.head, Role::key);
        painter.gap();
        painter.rest(line.text);
    }
}

} // namespace tarnwell
