#include "TarnwellTidyKit/Browser/BrowserState.hpp"

#include "TarnwellTidyKit/Browser/BrowserPaths.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include <algorithm>

namespace tarnwell {

namespace {

template <class Value>
std::size_t countOf(const Loaded<std::vector<Value>>& loaded) {
    return loaded.value ? loaded.value->size() : 0;
}

BrowserTarget targetOf(const FileNode& node) {
    return {.path = node.path(), .node = &node, .isDirectory = node.isDirectory()};
}

BrowserTarget targetOfPath(const BrowserState& state, const std::string& path) {
    if (state.tree)
        if (const FileNode* node = state.tree->root().node(path))
            return targetOf(*node);
    return {.path = path};
}

} // namespace

std::optional<BrowserEntry> entryAt(const BrowserState& state, std::size_t row) {
    if (!state.entries || !state.order || row >= state.order->rows.size())
        return std::nullopt;
    return state.entries->at(state.order->rows[row]);
}

std::vector<FileCategory> categoryRows(const BrowserState& state) {
    std::vector<FileCategory> rows;
    if (!state.figures.value)
        return rows;
    const auto sizeOf = [&](FileCategory category) {
        return state.figures.value->categories[rawValue(category)].sizeFor(state.choice.mode);
    };
    for (const FileCategory category : allFileCategories())
        if (sizeOf(category) > 0)
            rows.push_back(category);
    std::ranges::stable_sort(rows, [&](auto a, auto b) { return sizeOf(a) > sizeOf(b); });
    return rows;
}

std::size_t rowCount(const BrowserState& state) {
    switch (state.view) {
    case BrowserView::list:
        return state.order ? state.order->rows.size() : 0;
    case BrowserView::map:
        return 0;
    case BrowserView::largest:
        return state.figures.value ? state.figures.value->largestFiles.size() : 0;
    case BrowserView::found:
        return state.found.value ? state.found.value->nodes.size() : 0;
    case BrowserView::categories:
        return categoryRows(state).size();
    case BrowserView::ages:
        return state.figures.value ? reportAgeCount : 0;
    case BrowserView::changes:
        return state.changes.value && *state.changes.value ? (*state.changes.value)->causes.size() : 0;
    case BrowserView::findings:
        return countOf(state.findings);
    case BrowserView::rules:
        return state.rules.value ? state.rules.value->rules.size() : 0;
    case BrowserView::duplicates:
        return state.duplicateRows.size();
    case BrowserView::volumes:
        return countOf(state.volumes) + (state.lastFolder.empty() ? 0 : 1);
    case BrowserView::history:
        return state.history.value ? state.history.value->series.size() : 0;
    case BrowserView::trash:
        return state.trash.value ? state.trash.value->items.size() : 0;
    case BrowserView::outcomes:
        return state.outcomes.size();
    }
    return 0;
}

std::optional<BrowserTarget> targetAt(const BrowserState& state, std::size_t row) {
    if (state.view == BrowserView::map) {
        if (!state.map.value || state.tile >= state.map.value->size())
            return std::nullopt;
        const FileNode* node = (*state.map.value)[state.tile].node;
        return node == nullptr ? std::nullopt : std::optional(targetOf(*node));
    }
    if (row >= rowCount(state))
        return std::nullopt;
    switch (state.view) {
    case BrowserView::list:
        if (const auto entry = entryAt(state, row); entry && entry->node != nullptr)
            return BrowserTarget{
                .path = entry->node->path(), .node = entry->node, .isDirectory = entry->isDirectory};
        return std::nullopt;
    case BrowserView::largest:
        return targetOf(*state.figures.value->largestFiles[row]);
    case BrowserView::found:
        return targetOf(*state.found.value->nodes[row]);
    case BrowserView::changes: {
        const ChangesFound& changes = **state.changes.value;
        return targetOfPath(
            state, joinedPath(changes.delta.after.rootPath, changes.delta.changes[changes.causes[row]].path));
    }
    case BrowserView::findings: {
        const SpaceSaverFinding& finding = (*state.findings.value)[row];
        return finding.paths.empty() ? std::nullopt
                                     : std::optional(targetOfPath(state, finding.paths.front().native()));
    }
    case BrowserView::duplicates: {
        const DuplicateRow& place = state.duplicateRows[row];
        if (place.member == DuplicateRow::none)
            return std::nullopt;
        return targetOf(*(*state.duplicates.value)->groups[place.group].members[place.member].node);
    }
    case BrowserView::volumes: {
        const bool hasLast = !state.lastFolder.empty();
        if (hasLast && row == 0)
            return BrowserTarget{.path = state.lastFolder, .isDirectory = true};
        return BrowserTarget{.path = (*state.volumes.value)[row - (hasLast ? 1 : 0)].path,
                             .isDirectory = true};
    }
    case BrowserView::trash: {
        const TrashedItem& item = state.trash.value->items[row];
        return BrowserTarget{.path = item.location.native(), .isDirectory = item.isFolder};
    }
    default:
        return std::nullopt;
    }
}

std::optional<BrowserTarget> target(const BrowserState& state) {
    return targetAt(state, state.cursor().row);
}

std::string folderPath(const BrowserState& state) {
    return state.folder != nullptr ? state.folder->path() : state.rootPath;
}

std::string placeOf(const BrowserState& state, const FileNode* node) {
    return node == nullptr ? std::string() : std::string(relativePath(node->path(), state.rootPath));
}

std::string_view reasonToStay(const BrowserState& state, const FileNode& node) {
    for (const FileNode* above = state.folder; above != nullptr; above = above->parent())
        if (above == &node)
            return "It holds the folder that is shown.";
    if (state.tree)
        return state.tree->reasonToStay(node);
    return state.homeFolder ? tarnwell::reasonToStay(node.path(), *state.homeFolder) : std::string_view();
}

bool mayMark(const BrowserState& state) {
    return !state.isReadOnly && (state.tree != nullptr || state.live != nullptr);
}

bool mayAct(const BrowserState& state) {
    return !state.isReadOnly && state.tree != nullptr && !state.isScanning();
}

std::string shortPath(const BrowserState& state, std::string_view path) {
    if (!state.home.empty() && state.home != "/" && path.starts_with(state.home) &&
        (path.size() == state.home.size() || path[state.home.size()] == '/'))
        return "~" + std::string(path.substr(state.home.size()));
    return std::string(path);
}

} // namespace tarnwell
