#include "TarnwellTidyKit/Pictures/PictureViews.hpp"

#include "TarnwellCore/Layout/BarsLayout.hpp"
#include "TarnwellCore/Layout/IcicleLayout.hpp"
#include "TarnwellCore/Layout/SunburstLayout.hpp"
#include "TarnwellCore/Layout/TreemapLayout.hpp"
#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"
#include "TarnwellTidyKit/Pictures/PictureColours.hpp"
#include "TarnwellTidyKit/Pictures/PictureText.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

constexpr double pictureWidth = 1200;
constexpr double pictureHeight = 800;
constexpr double margin = 16;
constexpr double titleHeight = 40;
constexpr double legendRowHeight = 22;
constexpr std::size_t legendColumns = 6;
constexpr double headerHeight = 17;
constexpr double barHeight = 30;
constexpr double barNamesWidth = 300;
constexpr double barSizesWidth = 110;
constexpr std::size_t listLength = 24;

std::string placed(const Rect& rect) {
    return "x=\"" + coordinate(rect.minX()) + "\" y=\"" + coordinate(rect.minY()) + "\" width=\"" +
           coordinate(rect.width()) + "\" height=\"" + coordinate(rect.height()) + "\"";
}

std::string classOf(FileCategory category, char letter) {
    return letter + std::to_string(rawValue(category));
}

class Views {
public:
    explicit Views(const PictureRequest& request);

    std::string draw();

private:
    void drawView(std::size_t number);
    void drawTreemap(const FileNode& folder, const Rect& area);
    void drawIcicle(const FileNode& folder, const Rect& area);
    void drawSunburst(const FileNode& folder, const Rect& area);
    void drawBars(const FileNode& folder, const Rect& area);

    void addTitle(const FileNode& folder);
    double addLegend(const FileNode& folder);
    void addText(std::string_view styleClass, double x, double y, std::string_view text,
                 std::string_view more = {});
    /// What lies between `begin` and `end` is one item: a link where it leads to a view.
    void begin(const FileNode* node);
    void end(const FileNode* node);
    void addBox(const TreemapItem& item, std::string_view fill);
    void addBoxLabel(const TreemapItem& item, std::string_view ink);
    void addList(const FileNode& folder, const Rect& area);
    void addSectorLabel(const SunburstLayout::Disc& disc, const SunburstLayout::Sector& sector,
                        const TreemapItem& item, std::string_view ink);
    std::string sectorPath(const SunburstLayout::Disc& disc, const SunburstLayout::Sector& sector) const;
    std::string tooltip(const TreemapItem& item);
    std::string nameOf(const TreemapItem& item) const;
    std::pair<std::string, std::string> paint(const TreemapItem& item);

    std::size_t viewOf(const FileNode* node);
    TreemapConfiguration configuration(double padding, double minimumArea, double minimumSide) const;

    const PictureRequest& request_;
    RemovedNodes removed_;
    PictureColours colours_;
    std::vector<const FileNode*> views_; // by number; those behind the one at hand are still to be drawn
    std::unordered_map<const FileNode*, std::size_t> numbers_;
    std::string svg_;
};

constexpr std::size_t noView = static_cast<std::size_t>(-1);

Views::Views(const PictureRequest& request) : request_(request), colours_(request.sizeMode, removed_) {
    if (request.removed != nullptr)
        removed_ = *request.removed;
    // A file with several links takes its space once.
    request.folder->forEachDescendant([&](const FileNode& node) {
        if (node.isHardlinkDuplicate())
            removed_.insert(node);
        return true;
    });
    views_.push_back(request.folder);
    numbers_.emplace(request.folder, 0);
}

std::string Views::draw() {
    drawView(0);
    const std::string first = std::exchange(svg_, {});
    for (std::size_t number = 1; number < views_.size(); ++number)
        drawView(number);
    return std::move(svg_) + first;
}

/// The number of the folder's view, which it gets where there is one left; `noView` for all else.
std::size_t Views::viewOf(const FileNode* node) {
    if (node == nullptr || !node->isDirectory() || node->children().empty())
        return noView;
    if (const auto known = numbers_.find(node); known != numbers_.end())
        return known->second;
    if (views_.size() >= std::max<std::size_t>(request_.viewCount, 1))
        return noView;
    views_.push_back(node);
    numbers_.emplace(node, views_.size() - 1);
    return views_.size() - 1;
}

void Views::drawView(std::size_t number) {
    const FileNode& folder = *views_[number];
    svg_ += number == 0 ? "<g id=\"v0\">\n" : "<g class=\"view\" id=\"v" + std::to_string(number) + "\">\n";
    svg_ += "<rect class=\"page\" " + placed({0, 0, pictureWidth, pictureHeight}) + "/>\n";
    addTitle(folder);
    const double legendTop = addLegend(folder);
    const Rect area{margin, margin + titleHeight, pictureWidth - 2 * margin,
                    legendTop - margin / 2 - margin - titleHeight};
    switch (request_.kind) {
    case PictureKind::treemap:
        drawTreemap(folder, area);
        break;
    case PictureKind::icicle:
        drawIcicle(folder, area);
        break;
    case PictureKind::sunburst:
        drawSunburst(folder, area);
        break;
    case PictureKind::bars:
        drawBars(folder, area);
        break;
    }
    svg_ += "</g>\n";
}

TreemapConfiguration Views::configuration(double padding, double minimumArea, double minimumSide) const {
    return {.padding = padding,
            .headerHeight = 0,
            .inset = 2,
            .minimumArea = minimumArea,
            .minimumSideForRecursion = minimumSide,
            .maximumDepth = std::clamp<std::int64_t>(request_.levels, 1, 99) - 1,
            .sizeMode = request_.sizeMode};
}

// --- What all have -----------------------------------------------------------------------------------------

void Views::addText(std::string_view styleClass, double x, double y, std::string_view text,
                    std::string_view more) {
    svg_ += "<text class=\"" + std::string(styleClass) + "\" x=\"" + coordinate(x) + "\" y=\"" +
            coordinate(y) + "\"" + std::string(more) + ">" + escapedMarkup(text) + "</text>";
}

/// The folder's path, whose parts lead back, and what it holds.
void Views::addTitle(const FileNode& folder) {
    const std::string facts =
        sizeText(folder.sizeFor(request_.sizeMode)) + " " + std::string(rawValue(request_.sizeMode)) + ", " +
        countedText(folder.fileCount(), "file") + ", " + countedText(folder.directoryCount(), "folder");
    constexpr double y = margin + 20;
    addText("faint", pictureWidth - margin, y, facts, " text-anchor=\"end\" style=\"font-size:14px\"");

    std::vector<const FileNode*> way; // from the picture's folder down
    for (const FileNode* node = &folder; node != nullptr; node = node->parent()) {
        way.push_back(node);
        if (node == request_.folder)
            break;
    }
    std::ranges::reverse(way);
    double room = pictureWidth - 3 * margin - estimatedWidth(facts, 14);
    // The last names say most: what has no room is left out after the first.
    std::vector<std::string> names;
    for (const FileNode* node : way)
        names.push_back(node == request_.folder ? picturePath(*node) : pictureName(node->name()));
    const double separator = estimatedWidth(" / ", 20) + 4;
    std::size_t skipped = 0;
    const auto needed = [&] {
        double width = estimatedWidth(names.front(), 21);
        for (std::size_t index = 1 + skipped; index < names.size(); ++index)
            width += separator + estimatedWidth(names[index], 21);
        return width;
    };
    while (names.size() > 2 + skipped && needed() > room)
        ++skipped;
    double x = margin;
    for (std::size_t index = 0; index < names.size() && room > 0; index += index == 0 ? 1 + skipped : 1) {
        if (index > 0) {
            addText("faint title", x, y, skipped > 0 && index == 1 + skipped ? "…" : "/");
            x += separator;
            room -= separator;
        }
        const std::string text = fittedText(names[index], room, 21);
        const bool leadsBack = way[index] != &folder;
        if (leadsBack)
            begin(way[index]);
        addText("ink title", x, y, text);
        if (leadsBack)
            end(way[index]);
        x += estimatedWidth(text, 20) + 4;
        room -= estimatedWidth(text, 20) + 4;
    }
    svg_ += '\n';
}

/// What occurs, largest first. Returns where it begins.
double Views::addLegend(const FileNode& folder) {
    const CategoryBytes& totals = colours_.bytes(folder);
    std::vector<FileCategory> legend;
    for (const FileCategory category : allFileCategories())
        if (totals[rawValue(category)] > 0)
            legend.push_back(category);
    std::ranges::stable_sort(legend, std::ranges::greater(),
                             [&](FileCategory category) { return totals[rawValue(category)]; });
    const std::size_t rows = (legend.size() + legendColumns - 1) / legendColumns;
    const double top = pictureHeight - margin / 2 - static_cast<double>(rows) * legendRowHeight;
    constexpr double columnWidth = (pictureWidth - 2 * margin) / legendColumns;
    for (std::size_t index = 0; index < legend.size(); ++index) {
        const FileCategory category = legend[index];
        const double x = margin + static_cast<double>(index % legendColumns) * columnWidth;
        const double y = top + static_cast<double>(index / legendColumns) * legendRowHeight;
        svg_ += "<rect class=\"" + classOf(category, 'c') + "\" rx=\"3\" " + placed({x, y + 4, 14, 14}) +
                "/><text class=\"ink\" x=\"" + coordinate(x + 20) + "\" y=\"" + coordinate(y + 15) + "\">" +
                std::string(displayName(category)) + "<tspan class=\"faint\" dx=\"6\">" +
                sizeText(totals[rawValue(category)]) + "</tspan></text>\n";
    }
    return top;
}

void Views::begin(const FileNode* node) {
    if (const std::size_t view = viewOf(node); view != noView)
        svg_ += "<a href=\"#v" + std::to_string(view) + "\">";
}

void Views::end(const FileNode* node) {
    if (viewOf(node) != noView)
        svg_ += "</a>";
    svg_ += '\n';
}

std::string Views::nameOf(const TreemapItem& item) const {
    return item.isAggregate() ? std::to_string(item.aggregatedCount) + " more"
                              : pictureName(item.node->name());
}

std::string Views::tooltip(const TreemapItem& item) {
    const auto whole =
        static_cast<double>(std::max<std::int64_t>(request_.folder->sizeFor(request_.sizeMode), 1));
    const std::string size = sizeText(item.value) + " (" + std::to_string(item.value) + " bytes), " +
                             ByteFormatter::percent(static_cast<double>(item.value) / whole, 1);
    if (item.isAggregate())
        return countedText(item.aggregatedCount, "smaller item") + " in " + picturePath(*item.parent) + "\n" +
               size;
    std::string text = picturePath(*item.node) + "\n" + size + "\n";
    if (item.node->isDirectory())
        text += countedText(item.node->fileCount(), "file") + ", mostly ";
    return text + std::string(displayName(colours_.mainCategory(*item.node)));
}

/// The classes of an item's area and of the text on it.
std::pair<std::string, std::string> Views::paint(const TreemapItem& item) {
    if (item.isAggregate())
        return {"rest", "ink"};
    const FileCategory category = colours_.mainCategory(*item.node);
    return {classOf(category, 'c'), classOf(category, 't')};
}

// --- Rectangles --------------------------------------------------------------------------------------------

void Views::addBox(const TreemapItem& item, std::string_view fill) {
    svg_ += "<rect class=\"item " + std::string(fill) + "\" rx=\"2\" " + placed(item.rect) + "><title>" +
            escapedMarkup(tooltip(item)) + "</title></rect>";
}

/// The name, and the size below it where there is room.
void Views::addBoxLabel(const TreemapItem& item, std::string_view ink) {
    const double width = item.rect.width() - 10;
    const double height = item.rect.height() - 4;
    const double fontSize = std::floor(std::clamp(std::min(width / 7, height / 4), 11.0, 18.0));
    const std::string style = " style=\"font-size:" + coordinate(fontSize) + "px\"";
    const std::string name = fittedText(nameOf(item), width, fontSize);
    if (height < fontSize + 2 || name.empty())
        return;
    const double x = item.rect.minX() + 5;
    addText(ink, x, item.rect.minY() + fontSize + 3, name, style);
    const std::string size = sizeText(item.value);
    if (height >= 2 * fontSize + 8 && estimatedWidth(size, fontSize) <= width)
        addText(std::string(ink) + " size", x, item.rect.minY() + 2 * fontSize + 6, size, style);
}

void Views::drawTreemap(const FileNode& folder, const Rect& area) {
    TreemapConfiguration wanted = configuration(2, 150, 44);
    wanted.headerHeight = headerHeight;
    const auto items = TreemapLayout::layout(folder, area, wanted, removed_);
    for (std::size_t index = 0; index < items.size(); ++index) {
        const TreemapItem& item = items[index];
        const bool isOpen = index + 1 < items.size() && items[index + 1].depth > item.depth;
        begin(item.node);
        if (isOpen) {
            addBox(item, item.depth % 2 == 0 ? "open" : "open odd");
            const double width = item.rect.width() - 10;
            const std::string name = nameOf(item);
            const std::string size = sizeText(item.value);
            addText("ink name", item.rect.minX() + 5, item.rect.minY() + 14, fittedText(name, width, 13));
            if (estimatedWidth(name, 13) + estimatedWidth(size, 12) + 12 <= width)
                addText("faint", item.rect.maxX() - 5, item.rect.minY() + 14, size, " text-anchor=\"end\"");
        } else {
            const auto [fill, ink] = paint(item);
            addBox(item, fill);
            addBoxLabel(item, ink);
        }
        end(item.node);
    }
}

void Views::drawIcicle(const FileNode& folder, const Rect& area) {
    for (const TreemapItem& item : IcicleLayout::layout(folder, area, configuration(1, 9, 12), removed_)) {
        const auto [fill, ink] = paint(item);
        begin(item.node);
        addBox(item, fill);
        addBoxLabel(item, ink);
        end(item.node);
    }
}

void Views::drawBars(const FileNode& folder, const Rect& area) {
    const auto counted = std::ranges::count_if(folder.children(), [&](const FileNode* child) {
        return child->sizeFor(request_.sizeMode) > 0 && !removed_.contains(*child);
    });
    const double rows = std::min(static_cast<double>(counted),
                                 static_cast<double>(std::min<std::size_t>(request_.barCount, 1'000)) + 1);
    const Rect bars{area.minX() + barNamesWidth, area.minY(), area.width() - barNamesWidth - barSizesWidth,
                    std::min(area.height(), rows * barHeight)};
    TreemapConfiguration wanted = configuration(3, 36, 12);
    wanted.maximumDepth = 1;
    for (const TreemapItem& item : BarsLayout::layout(folder, bars, request_.barCount, wanted, removed_)) {
        const auto [fill, ink] = paint(item);
        begin(item.node);
        addBox(item, item.depth == 0 ? fill : fill + " part");
        if (item.depth == 0) {
            const double y = item.rect.minY() + item.rect.height() / 2 + 5;
            addText("ink", bars.minX() - 8, y, fittedText(nameOf(item), barNamesWidth - 16, 14),
                    " text-anchor=\"end\" style=\"font-size:14px\"");
            addText("faint", item.rect.maxX() + 8, y, sizeText(item.value), " style=\"font-size:14px\"");
        }
        end(item.node);
    }
}

// --- Rings -------------------------------------------------------------------------------------------------

std::string Views::sectorPath(const SunburstLayout::Disc& disc, const SunburstLayout::Sector& sector) const {
    const auto point = [&](double angle, double radius) {
        const Point at = SunburstLayout::pointAt(disc, angle, radius);
        return coordinate(at.x) + " " + coordinate(at.y);
    };
    // An arc knows its ends only: one of a whole ring, or nearly, is drawn in two halves.
    const double middle = (sector.startAngle + sector.endAngle) / 2;
    const auto arc = [&](double to, double radius, bool isClockwise) {
        const std::string start =
            " A" + coordinate(radius) + " " + coordinate(radius) + " 0 0 " + (isClockwise ? "1 " : "0 ");
        return start + point(middle, radius) + start + point(to, radius);
    };
    return "M" + point(sector.startAngle, sector.outerRadius) +
           arc(sector.endAngle, sector.outerRadius, true) + " L" +
           point(sector.endAngle, sector.innerRadius) + arc(sector.startAngle, sector.innerRadius, false) +
           " Z";
}

void Views::addSectorLabel(const SunburstLayout::Disc& disc, const SunburstLayout::Sector& sector,
                           const TreemapItem& item, std::string_view ink) {
    const double middle = (sector.startAngle + sector.endAngle) / 2;
    const double radius = (sector.innerRadius + sector.outerRadius) / 2;
    const double arc = (sector.endAngle - sector.startAngle) * sector.innerRadius;
    const std::string text = fittedText(nameOf(item), sector.outerRadius - sector.innerRadius - 8, 11);
    if (arc < 13 || text.empty())
        return;
    const Point at = SunburstLayout::pointAt(disc, middle, radius);
    // Read from the left to the right on both sides.
    double turn = middle * 180 / std::numbers::pi - 90;
    if (middle > std::numbers::pi)
        turn += 180;
    addText(
        ink, at.x, at.y, text,
        " text-anchor=\"middle\" dominant-baseline=\"central\" style=\"font-size:11px\" transform=\"rotate(" +
            coordinate(turn) + " " + coordinate(at.x) + " " + coordinate(at.y) + ")\"");
}

void Views::drawSunburst(const FileNode& folder, const Rect& area) {
    const double radius = area.height() / 2;
    const SunburstLayout::Disc disc{{area.minX() + radius, area.minY() + radius}, radius * 0.22, radius};
    for (const TreemapItem& item : SunburstLayout::layout(folder, disc, configuration(1, 9, 10), removed_)) {
        const SunburstLayout::Sector sector = SunburstLayout::sector(item);
        const auto [fill, ink] = paint(item);
        begin(item.node);
        svg_ += "<path class=\"item " + fill + "\" d=\"" + sectorPath(disc, sector) + "\"><title>" +
                escapedMarkup(tooltip(item)) + "</title></path>";
        addSectorLabel(disc, sector, item, ink);
        end(item.node);
    }
    // The middle is the folder, and the way back.
    const FileNode* const back = &folder == request_.folder ? nullptr : folder.parent();
    begin(back);
    svg_ += "<circle class=\"item open\" cx=\"" + coordinate(disc.centre.x) + "\" cy=\"" +
            coordinate(disc.centre.y) + "\" r=\"" + coordinate(disc.innerRadius - 2) + "\"><title>" +
            escapedMarkup(picturePath(folder)) + "</title></circle>";
    const std::string name = fittedText(pictureName(folder.displayName()), disc.innerRadius * 1.7, 14);
    addText("ink name", disc.centre.x, disc.centre.y - 2, name,
            " text-anchor=\"middle\" style=\"font-size:14px\"");
    addText("faint", disc.centre.x, disc.centre.y + 15, sizeText(folder.sizeFor(request_.sizeMode)),
            " text-anchor=\"middle\"");
    end(back);
    const double left = area.minX() + 2 * radius + 2 * margin;
    addList(folder, {left, area.minY(), area.maxX() - left, area.height()});
}

/// The folder's largest beside the rings, whose parts are too small for names.
void Views::addList(const FileNode& folder, const Rect& area) {
    TreemapConfiguration wanted = configuration(0, 0, 0);
    wanted.maximumDepth = 0;
    double y = area.minY() + 14;
    for (const TreemapItem& item : BarsLayout::layout(folder, area, listLength, wanted, removed_)) {
        const std::string size = sizeText(item.value);
        begin(item.node);
        svg_ += "<rect class=\"" + paint(item).first + "\" rx=\"3\" " +
                placed({area.minX(), y - 11, 12, 12}) + "/>";
        addText("ink link", area.minX() + 20, y,
                fittedText(nameOf(item), area.width() - 30 - estimatedWidth(size, 13), 13),
                " style=\"font-size:13px\"");
        addText("faint", area.maxX(), y, size, " text-anchor=\"end\"");
        end(item.node);
        y += 24;
    }
}

} // namespace

std::string pictureViews(const PictureRequest& request) {
    return Views(request).draw();
}

} // namespace tarnwell
