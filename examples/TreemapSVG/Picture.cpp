#include "Picture.hpp"

#include "TarnwellCore/Layout/BarsLayout.hpp"
#include "TarnwellCore/Layout/IcicleLayout.hpp"
#include "TarnwellCore/Layout/SunburstLayout.hpp"
#include "TarnwellCore/Layout/TreemapLayout.hpp"
#include "TarnwellCore/Scanning/ByteFormatter.hpp"

#include "Colours.hpp"
#include "Text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

using namespace tarnwell;

namespace example {

namespace {

constexpr double pictureWidth = 1200;
constexpr double pictureHeight = 800;
constexpr double margin = 16;
constexpr double titleHeight = 40;
constexpr double legendRowHeight = 22;
constexpr std::size_t legendColumns = 6;
constexpr double headerHeight = 17;
constexpr std::size_t barCount = 20;

std::string number(double value) {
    std::array<char, 32> digits{};
    char* end =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, 1).ptr;
    std::string text(digits.data(), end);
    return text.ends_with(".0") ? text.substr(0, text.size() - 2) : text;
}

std::string sizeText(std::int64_t bytes) {
    return ByteFormatter::string(bytes, "0 bytes");
}

/// "1 file", "2 files".
std::string counted(std::int64_t count, std::string_view one) {
    return std::to_string(count) + " " + std::string(one) + (count == 1 ? "" : "s");
}

std::string attributes(double x, double y, double width, double height) {
    return "x=\"" + number(x) + "\" y=\"" + number(y) + "\" width=\"" + number(width) + "\" height=\"" +
           number(height) + "\"";
}

class Picture {
public:
    Picture(const ScanResult& scan, SizeMode mode, Layout layout)
        : root_(*scan.root), stats_(scan.stats), mode_(mode), layout_(layout) {}

    std::string draw(std::int64_t levels);

private:
    RemovedNodes furtherLinks() const;
    std::vector<TreemapItem> layOut(const Rect& area, std::int64_t levels) const;
    void addText(std::string_view styleClass, double x, double y, std::string_view printableText,
                 std::string_view more = {});
    void addTitle();
    void addLegend(double top);
    void addTile(const TreemapItem& item, bool isOpen);
    void addBar(const TreemapItem& item);
    void addSector(const TreemapItem& item);
    void addLabel(const TreemapItem& item, bool isOpen, const std::string& ink);
    std::string tooltip(const TreemapItem& item, FileCategory category) const;

    const FileNode& root_;
    const ScanStats& stats_;
    SizeMode mode_;
    Layout layout_;
    SunburstLayout::Disc disc_;
    std::vector<FileCategory> legend_; // what occurs, largest first
    CategoryBytes totals_{};
    std::string svg_;
};

std::string Picture::draw(std::int64_t levels) {
    totals_ = bytesByCategory(root_, mode_);
    for (const FileCategory category : allFileCategories())
        if (totals_[rawValue(category)] > 0)
            legend_.push_back(category);
    std::ranges::sort(legend_, {}, [&](FileCategory category) {
        return std::pair(-totals_[rawValue(category)], rawValue(category));
    });

    svg_ = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + number(pictureWidth) + " " +
           number(pictureHeight) + "\" width=\"" + number(pictureWidth) + "\" height=\"" +
           number(pictureHeight) + "\" role=\"img\">\n<title>" + escaped(printable(root_.path())) +
           "</title>\n";
    svg_ += "<style>" + styleSheet() + "</style>\n";
    svg_ += "<rect class=\"page\" rx=\"10\" " + attributes(0, 0, pictureWidth, pictureHeight) + "/>\n";
    addTitle();

    const std::size_t rows = (legend_.size() + legendColumns - 1) / legendColumns;
    const double legendTop = pictureHeight - margin / 2 - static_cast<double>(rows) * legendRowHeight;
    const Rect area{margin, margin + titleHeight, pictureWidth - 2 * margin,
                    legendTop - margin / 2 - margin - titleHeight};
    disc_ = {{pictureWidth / 2, area.minY() + area.height() / 2}, area.height() / 10, area.height() / 2};
    const auto items = layOut(area, levels);
    for (std::size_t index = 0; index < items.size(); ++index) {
        const bool isOpen = index + 1 < items.size() && items[index + 1].depth > items[index].depth;
        if (layout_ == Layout::sunburst)
            addSector(items[index]);
        else if (layout_ == Layout::bars)
            addBar(items[index]);
        else
            addTile(items[index], isOpen && layout_ == Layout::treemap);
    }
    addLegend(legendTop);
    return std::move(svg_) + "</svg>\n";
}

std::vector<TreemapItem> Picture::layOut(const Rect& area, std::int64_t levels) const {
    TreemapConfiguration configuration{.padding = 1,
                                       .minimumArea = 9,
                                       .minimumSideForRecursion = 12,
                                       .maximumDepth = levels - 1,
                                       .sizeMode = mode_};
    switch (layout_) {
    case Layout::sunburst:
        return SunburstLayout::layout(root_, disc_, configuration, furtherLinks());
    case Layout::icicle:
        return IcicleLayout::layout(root_, area, configuration, furtherLinks());
    case Layout::bars: {
        // Names stand behind the bars.
        const Rect bars{area.minX(), area.minY(), area.width() * 0.6, area.height()};
        configuration.padding = 4;
        configuration.maximumDepth = 0;
        return BarsLayout::layout(root_, bars, barCount, configuration, furtherLinks());
    }
    case Layout::treemap:
        break;
    }
    configuration.padding = 2;
    configuration.headerHeight = headerHeight;
    configuration.inset = 2;
    configuration.minimumArea = 150;
    configuration.minimumSideForRecursion = 44;
    return TreemapLayout::layout(root_, area, configuration, furtherLinks());
}

/// A file with several links takes its space once.
RemovedNodes Picture::furtherLinks() const {
    RemovedNodes links;
    root_.forEachDescendant([&](const FileNode& item) {
        if (item.isHardlinkDuplicate())
            links.insert(item);
        return true;
    });
    return links;
}

void Picture::addText(std::string_view styleClass, double x, double y, std::string_view printableText,
                      std::string_view more) {
    svg_ += "<text class=\"" + std::string(styleClass) + "\" x=\"" + number(x) + "\" y=\"" + number(y) +
            "\"" + std::string(more) + ">" + escaped(printableText) + "</text>";
}

void Picture::addTitle() {
    const std::string facts = sizeText(root_.sizeFor(mode_)) + " " + std::string(rawValue(mode_)) + ", " +
                              counted(stats_.fileCount, "file") + ", " +
                              counted(stats_.directoryCount, "folder");
    const double factsWidth = textWidth(facts, 14);
    const double y = margin + 20;
    addText("ink title", margin, y,
            fitted(printable(root_.path()), pictureWidth - 3 * margin - factsWidth, 21));
    addText("faint", pictureWidth - margin, y, facts, " text-anchor=\"end\" style=\"font-size:14px\"");
    svg_ += '\n';
}

void Picture::addLegend(double top) {
    constexpr double columnWidth = (pictureWidth - 2 * margin) / legendColumns;
    for (std::size_t index = 0; index < legend_.size(); ++index) {
        const FileCategory category = legend_[index];
        const std::size_t column = index % legendColumns;
        const std::size_t row = index / legendColumns;
        const double x = margin + static_cast<double>(column) * columnWidth;
        const double y = top + static_cast<double>(row) * legendRowHeight;
        svg_ += "<rect class=\"c" + std::to_string(rawValue(category)) + "\" rx=\"3\" " +
                attributes(x, y + 4, 14, 14) + "/>";
        svg_ += "<text class=\"ink\" x=\"" + number(x + 20) + "\" y=\"" + number(y + 15) + "\">" +
                std::string(displayName(category)) + "<tspan class=\"faint\" dx=\"6\">" +
                sizeText(totals_[rawValue(category)]) + "</tspan></text>";
        svg_ += '\n';
    }
}

std::string Picture::tooltip(const TreemapItem& item, FileCategory category) const {
    const auto whole = static_cast<double>(std::max<std::int64_t>(root_.sizeFor(mode_), 1));
    const std::string size = sizeText(item.value) + " (" + std::to_string(item.value) + " bytes), " +
                             ByteFormatter::percent(static_cast<double>(item.value) / whole, 1);
    if (item.isAggregate())
        return counted(item.aggregatedCount, "smaller item") + " in " + printable(item.parent->path()) +
               "\n" + size;
    std::string text = printable(item.node->path()) + "\n" + size + "\n";
    if (item.node->isDirectory())
        text += counted(item.node->fileCount(), "file") + ", mostly ";
    return text + std::string(displayName(category));
}

void Picture::addTile(const TreemapItem& item, bool isOpen) {
    const FileCategory category = item.isAggregate() ? FileCategory::other : mainCategory(*item.node, mode_);
    const std::string number = std::to_string(rawValue(category));
    std::string fill = "c" + number;
    std::string ink = "t" + number;
    if (item.isAggregate() || isOpen) {
        fill = item.isAggregate() ? "rest" : item.depth % 2 == 0 ? "open" : "open odd";
        ink = "ink";
    }
    // A picture of its own for every tile cuts off what an unusual font makes too long.
    svg_ += "<svg " + attributes(item.rect.minX(), item.rect.minY(), item.rect.width(), item.rect.height()) +
            "><rect class=\"" + fill + "\" rx=\"2\" width=\"100%\" height=\"100%\"><title>" +
            escaped(tooltip(item, category)) + "</title></rect>";
    addLabel(item, isOpen, ink);
    svg_ += "</svg>\n";
}

void Picture::addBar(const TreemapItem& item) {
    const FileCategory category = item.isAggregate() ? FileCategory::other : mainCategory(*item.node, mode_);
    svg_ += "<rect class=\"" + (item.isAggregate() ? "rest" : "c" + std::to_string(rawValue(category))) +
            "\" rx=\"2\" " +
            attributes(item.rect.minX(), item.rect.minY(), item.rect.width(), item.rect.height()) +
            "><title>" + escaped(tooltip(item, category)) + "</title></rect>";
    const std::string name =
        item.isAggregate() ? std::to_string(item.aggregatedCount) + " more" : printable(item.node->name());
    addText("ink", item.rect.maxX() + 8, item.rect.minY() + item.rect.height() / 2 + 4,
            fitted(name, 300, 13) + "  " + sizeText(item.value));
    svg_ += '\n';
}

void Picture::addSector(const TreemapItem& item) {
    const FileCategory category = item.isAggregate() ? FileCategory::other : mainCategory(*item.node, mode_);
    const SunburstLayout::Sector sector = SunburstLayout::sector(item);
    const auto point = [&](double angle, double radius) {
        const Point at = SunburstLayout::pointAt(disc_, angle, radius);
        return number(at.x) + " " + number(at.y);
    };
    // An arc knows its ends only: two halves are never the same point.
    const double middle = (sector.startAngle + sector.endAngle) / 2;
    const auto arc = [&](double end, double radius, const char* direction) {
        const std::string start = " A" + number(radius) + " " + number(radius) + " 0 0 " + direction;
        return start + point(middle, radius) + start + point(end, radius);
    };
    svg_ += "<path class=\"" + (item.isAggregate() ? "rest" : "c" + std::to_string(rawValue(category))) +
            "\" d=\"M" + point(sector.startAngle, sector.outerRadius) +
            arc(sector.endAngle, sector.outerRadius, "1 ") + " L" +
            point(sector.endAngle, sector.innerRadius) + arc(sector.startAngle, sector.innerRadius, "0 ") +
            " Z\"><title>" + escaped(tooltip(item, category)) + "</title></path>\n";
}

void Picture::addLabel(const TreemapItem& item, bool isOpen, const std::string& ink) {
    const double width = item.rect.width() - 10;
    const double height = item.rect.height() - 4;
    const std::string size = sizeText(item.value);
    std::string name =
        item.isAggregate() ? std::to_string(item.aggregatedCount) + " more" : printable(item.node->name());
    if (isOpen) {
        addText(ink + " name", 5, 14, fitted(name, width, 13));
        if (textWidth(name, 13) + textWidth(size, 12) + 12 <= width)
            addText("faint", item.rect.width() - 5, 14, size, " text-anchor=\"end\"");
        return;
    }
    const double fontSize = std::floor(std::clamp(std::min(width / 7, height / 4), 11.0, 18.0));
    const std::string style = fontSize == 12 ? "" : " style=\"font-size:" + number(fontSize) + "px\"";
    name = fitted(name, width, fontSize);
    if (height < fontSize + 2 || name.empty())
        return;
    addText(ink, 5, fontSize + 3, name, style);
    if (height >= 2 * fontSize + 8 && textWidth(size, fontSize) <= width)
        addText(ink + " size", 5, 2 * fontSize + 6, size, style);
}

} // namespace

std::string picture(const ScanResult& scan, std::int64_t levels, SizeMode mode, Layout layout) {
    return Picture(scan, mode, layout).draw(levels);
}

} // namespace example
