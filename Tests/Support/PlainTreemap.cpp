#include "Tests/Support/PlainTreemap.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace tarnwell::test {

namespace {

double worstRatio(const std::vector<double>& areas, double side) {
    double sum = 0;
    double smallest = DBL_MAX;
    double largest = 0;
    for (const double area : areas) {
        sum += area;
        smallest = std::min(smallest, area);
        largest = std::max(largest, area);
    }
    if (!(sum > 0 && smallest > 0))
        return DBL_MAX;
    return std::max((side * side) * largest / (sum * sum), (sum * sum) / ((side * side) * smallest));
}

/// One level a call.
struct PlainLayout {
    const TreemapConfiguration& configuration;
    const RemovedNodes& removed;
    std::vector<TreemapItem> items = {};

    void lay(std::span<const FileNode* const> children, const FileNode* parent, const Rect& area,
             std::int64_t depth) {
        if (!(area.width() > 0 && area.height() > 0))
            return;
        std::vector<std::pair<const FileNode*, std::int64_t>> pairs;
        for (const FileNode* child : children)
            if (!removed.containsNodeOrAncestor(*child) && child->sizeFor(configuration.sizeMode) > 0)
                pairs.emplace_back(child, child->sizeFor(configuration.sizeMode));
        std::ranges::stable_sort(pairs, [](const auto& a, const auto& b) {
            return a.second != b.second ? a.second > b.second : a.first->name() < b.first->name();
        });
        std::int64_t total = 0;
        for (const auto& [child, weight] : pairs)
            total += weight;
        if (total < 1)
            return;
        std::size_t kept = pairs.size();
        if (configuration.minimumArea > 0) {
            const double least =
                configuration.minimumArea / (area.width() * area.height()) * static_cast<double>(total);
            while (kept > 1 && !(static_cast<double>(pairs[kept - 1].second) >= least))
                --kept;
        }
        std::vector<double> values;
        std::int64_t merged = 0;
        for (std::size_t index = 0; index < pairs.size(); ++index) {
            if (index < kept)
                values.push_back(static_cast<double>(pairs[index].second));
            else
                merged += pairs[index].second;
        }
        if (kept < pairs.size() && configuration.aggregateRemainder)
            values.push_back(static_cast<double>(merged));
        const std::vector<Rect> rects = plainSquarify(values, area);
        for (std::size_t index = 0; index < rects.size(); ++index) {
            Rect rect = rects[index];
            const double gap = configuration.padding;
            if (gap > 0)
                rect = rect.insetBy(std::min(rect.width() * 0.5, gap * 0.5),
                                    std::min(rect.height() * 0.5, gap * 0.5));
            const auto id = static_cast<std::int64_t>(items.size());
            if (index == kept) {
                items.push_back({id, nullptr, parent, rect, depth, merged,
                                 static_cast<std::int64_t>(pairs.size() - kept)});
                continue;
            }
            const auto [child, weight] = pairs[index];
            items.push_back({id, child, parent, rect, depth, weight, 0});
            if (depth >= configuration.maximumDepth || !child->isDirectory() ||
                !(configuration.minimumSideForRecursion < rect.width()) ||
                !(configuration.minimumSideForRecursion + configuration.headerHeight < rect.height()))
                continue;
            Rect inner = rect.insetBy(configuration.inset, configuration.inset);
            if (configuration.headerHeight > 0)
                inner = {inner.minX(), inner.minY() + configuration.headerHeight, inner.width(),
                         std::max(inner.height() - configuration.headerHeight, 0.0)};
            lay(child->children(), child, inner, depth + 1);
        }
    }
};

bool isInside(const Rect& inner, const Rect& outer, double slack) {
    return inner.minX() >= outer.minX() - slack && inner.maxX() <= outer.maxX() + slack &&
           inner.minY() >= outer.minY() - slack && inner.maxY() <= outer.maxY() + slack;
}

bool isApart(const Rect& a, const Rect& b, double slack) {
    const double width = std::min(a.maxX(), b.maxX()) - std::max(a.minX(), b.minX());
    const double height = std::min(a.maxY(), b.maxY()) - std::max(a.minY(), b.minY());
    return width <= slack || height <= slack;
}

} // namespace

std::vector<Rect> plainSquarify(std::span<const double> values, const Rect& area) {
    std::vector<Rect> tiles(values.size());
    double sum = 0;
    for (const double value : values)
        sum += value;
    const double wholeArea = area.size.width * area.size.height;
    if (!(area.size.width > 0) || !(area.size.height > 0) || !(sum > 0) || !std::isfinite(area.origin.x) ||
        !std::isfinite(area.origin.y) || !std::isfinite(wholeArea))
        return tiles;
    const double scale = wholeArea / sum;
    double left = area.origin.x;
    double top = area.origin.y;
    double width = area.size.width;
    double height = area.size.height;
    std::size_t begin = 0;
    for (; begin < values.size() && std::min(width, height) > 0;) {
        const double side = std::min(width, height);
        std::vector<double> row{scale * values[begin]};
        while (begin + row.size() < values.size()) {
            std::vector<double> longer = row;
            longer.push_back(scale * values[begin + row.size()]);
            if (worstRatio(row, side) < worstRatio(longer, side))
                break;
            row = longer;
        }
        double rowArea = 0;
        for (const double each : row)
            rowArea += each;
        const double thickness = rowArea / side;
        const bool across = width <= height;
        double position = across ? left : top;
        for (std::size_t index = 0; index < row.size(); ++index) {
            const double end = across ? left + width : top + height;
            double length = rowArea > 0 ? scale * values[begin + index] / thickness : 0;
            if (index + 1 == row.size())
                length = std::max(end - position, 0.0);
            if (across)
                tiles[begin + index] = Rect(position, top, length, std::min(height, thickness));
            else
                tiles[begin + index] = Rect(left, position, std::min(width, thickness), length);
            position += length;
        }
        if (across) {
            const double taken = std::min(height, thickness);
            top += taken;
            height = std::max(height - taken, 0.0);
        } else {
            const double taken = std::min(width, thickness);
            left += taken;
            width = std::max(width - taken, 0.0);
        }
        begin += row.size();
    }
    for (; begin < values.size(); ++begin)
        tiles[begin] = Rect(left, top, 0, 0);
    return tiles;
}

std::vector<TreemapItem> plainLayout(const FileNode& node, const Rect& area,
                                     const TreemapConfiguration& configuration, const RemovedNodes& removed) {
    PlainLayout plain{configuration, removed};
    plain.lay(node.children(), &node, area.standardized(), 0);
    return std::move(plain.items);
}

std::string layoutFault(std::span<const TreemapItem> items, const FileNode& node, const Rect& area,
                        double slack) {
    std::vector<const TreemapItem*> open; // the items around the next one
    for (const TreemapItem& item : items) {
        const std::string name = "tile " + std::to_string(&item - items.data());
        if (item.id != &item - items.data())
            return name + " is numbered " + std::to_string(item.id);
        if (item.depth < 0 || item.depth > static_cast<std::int64_t>(open.size()))
            return name + " has no tile around it";
        open.resize(static_cast<std::size_t>(item.depth));
        if (item.parent != (open.empty() ? &node : open.back()->node))
            return name + " belongs to another node";
        if (item.value < 1 || item.isAggregate() != (item.aggregatedCount > 0))
            return name + " shows nothing";
        if (!isInside(item.rect, open.empty() ? area : open.back()->rect, slack))
            return name + " lies outside";
        for (const TreemapItem& other : items.first(static_cast<std::size_t>(item.id)))
            if (other.parent == item.parent && other.depth == item.depth &&
                !isApart(item.rect, other.rect, slack))
                return name + " lies over tile " + std::to_string(other.id);
        open.push_back(&item);
    }
    return {};
}

} // namespace tarnwell::test
