#include "TarnwellTidyKit/Browser/BrowserViews.hpp"

#include "TarnwellTidyKit/Browser/ViewFrame.hpp"
#include "TarnwellTidyKit/Browser/ViewParts.hpp"

#include <algorithm>
#include <array>

namespace tarnwell {

namespace {

constexpr std::array<void (*)(const Pane&), browserViewCount> views = {
    drawList,     drawMap,   drawLargest,    drawFound,   drawCategories, drawAges,  drawChanges,
    drawFindings, drawRules, drawDuplicates, drawVolumes, drawHistory,    drawTrash, drawOutcomes};

constexpr bool hasHeads(BrowserView view) {
    return view != BrowserView::map && view != BrowserView::outcomes;
}

GridArea helpArea(const BrowserLayout& layout, GridSize size) {
    GridArea area = layout.body;
    area.row -= layout.heads.height;
    area.height += layout.heads.height;
    area.width = size.width;
    return area;
}

} // namespace

BrowserLayout layoutOf(const BrowserState& state, GridSize size) {
    BrowserLayout layout;
    const int width = std::max(size.width, 0);
    int top = 0;
    int bottom = std::max(size.height, 0);
    const auto takeTop = [&](bool isWanted) {
        const GridArea area{0, top, width, isWanted && bottom - top > 0 ? 1 : 0};
        top += area.height;
        return area;
    };
    const auto takeBottom = [&](bool isWanted) {
        const int height = isWanted && bottom - top > 1 ? 1 : 0;
        bottom -= height;
        return GridArea{0, bottom, width, height};
    };
    layout.title = takeTop(true);
    layout.keys = takeBottom(true);
    layout.status = takeBottom(size.height >= 4);
    layout.tabs = takeTop(size.height >= 8);
    layout.heads = takeTop(size.height >= 10 && hasHeads(state.view));
    layout.body = {0, top, width, std::max(bottom - top, 0)};
    const bool isVolumes = state.view == BrowserView::volumes;
    const bool isWide = width >= 130;
    // With the volumes: where the bytes of the browsed one are.
    const bool hasRoom = isWide || layout.body.height >= 18;
    const bool isShown = isVolumes ? state.tree != nullptr && state.togglesDetails != hasRoom
                                   : state.folder != nullptr && state.togglesDetails != isWide;
    if (isShown) {
        if (isWide || (width >= 90 && !isVolumes)) {
            const int columns = std::min(width / 3, 64);
            layout.details = {width - columns, layout.body.row - layout.heads.height, columns,
                              layout.body.height + layout.heads.height};
            layout.body.width = width - columns - 1;
            layout.heads.width = layout.body.width;
        } else if (layout.body.height >= 6) {
            const int rows = isVolumes ? std::min(layout.body.height - 4, ledgerEntryCount + 2)
                                       : std::min(layout.body.height / 2, 10);
            layout.details = {0, layout.body.row + layout.body.height - rows, width, rows};
            layout.body.height -= rows;
        }
    }
    if (hasHistoryChart(state) && layout.body.height >= 14 && layout.body.width >= 40) {
        layout.chart = {0, layout.body.row, layout.body.width, std::min(layout.body.height / 2, 24)};
        layout.body.row += layout.chart.height;
        layout.body.height -= layout.chart.height;
    }
    return layout;
}

BrowserPicture drawn(const BrowserState& state, GridSize size, bool isUnicode) {
    BrowserPicture picture{.grid = Grid(size)};
    const BrowserLayout layout = layoutOf(state, size);
    const auto pane = [&](GridArea area, GridArea heads = {}) {
        return Pane{picture.grid, area, heads, state, isUnicode};
    };
    drawTitle(pane(layout.title));
    drawTabs(pane(layout.tabs));
    if (state.showsHelp) {
        drawHelp(pane(helpArea(layout, size)));
    } else {
        views[static_cast<std::size_t>(state.view)](pane(layout.body, layout.heads));
        if (layout.chart.height > 0)
            drawHistoryChart(pane(layout.chart));
        if (layout.details.height > 0)
            drawDetails(pane(layout.details));
    }
    drawStatus(pane(layout.status));
    if (state.prompt)
        picture.cursor = drawPrompt(pane(layout.keys), pane(layout.status), pane(layout.body));
    else if (state.question)
        drawQuestion(pane(layout.keys), pane(layout.body));
    else
        drawKeys(pane(layout.keys));
    return picture;
}

void fitTo(BrowserState& state, GridSize size) {
    const BrowserLayout layout = layoutOf(state, size);
    if (state.showsHelp)
        state.helpTop = std::min(state.helpTop, lastHelpTop(state.isReadOnly, helpArea(layout, size).height));
    // A cell of the map is two points high: there are half blocks.
    setRoom(state, static_cast<std::size_t>(std::max(layout.body.height, 1)), std::max(layout.body.width, 1),
            std::max(layout.body.height, 1) * 2);
}

std::optional<BrowserClick> whatIsAt(const BrowserState& state, GridSize size, GridPoint point) {
    const BrowserLayout layout = layoutOf(state, size);
    using Kind = BrowserClick::Kind;
    if (layout.tabs.contains(point)) {
        const auto view = tabAt(state, layout.tabs, point.column);
        return view ? std::optional(BrowserClick{Kind::view, static_cast<std::size_t>(*view)}) : std::nullopt;
    }
    if (!layout.body.contains(point))
        return std::nullopt;
    if (state.view == BrowserView::map) {
        if (!state.map.value)
            return std::nullopt;
        const Point place{static_cast<double>(point.column - layout.body.column) + 0.5,
                          static_cast<double>(point.row - layout.body.row) * 2 + 1};
        for (std::size_t tile = 0; tile < state.map.value->size(); ++tile)
            if ((*state.map.value)[tile].depth == 0 && (*state.map.value)[tile].rect.contains(place))
                return BrowserClick{Kind::tile, tile};
        return std::nullopt;
    }
    return BrowserClick{Kind::row,
                        state.cursor().top + static_cast<std::size_t>(point.row - layout.body.row)};
}

} // namespace tarnwell
