// All that is known of the item where one stands, and of what is marked.

#include "TarnwellCore/Scanning/DateFormatting.hpp"
#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <functional>
#include <vector>

namespace tarnwell {

namespace {

/// Lines from above, as far as there is room.
class Sheet {
public:
    explicit Sheet(const Pane& pane) : pane_(pane), row_(pane.area.row) {}

    bool isFull() const { return row_ >= pane_.area.row + pane_.area.height; }
    int room() const { return pane_.area.row + pane_.area.height - row_; }
    void line(std::string_view head, std::string_view text, Role role = Role::text) {
        if (isFull())
            return;
        constexpr int headWidth = 12;
        RowPainter painter(pane_.grid, pane_.area.column, row_++, pane_.area.width);
        painter.gap(2);
        painter.text(headWidth, head, Role::dim);
        painter.rest(text, role, Cut::middle);
    }
    void title(std::string_view text, Role role = Role::heading) {
        if (isFull())
            return;
        RowPainter painter(pane_.grid, pane_.area.column, row_++, pane_.area.width);
        painter.gap(2);
        painter.rest(text, role, Cut::middle, true);
    }
    void sentence(std::string_view text, Role role = Role::dim) {
        const std::string lines =
            wrappedText(text, static_cast<std::size_t>(std::max(pane_.area.width - 4, 8)), 0);
        std::string_view rest = lines;
        while (!rest.empty() && !isFull()) {
            const auto end = rest.find('\n');
            pane_.grid.putFitted(pane_.area.column + 2, row_++, pane_.area.width - 3, rest.substr(0, end),
                                 {.role = role});
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
    }
    void gap() { ++row_; }

private:
    const Pane& pane_;
    int row_;
};

std::string dateText(double seconds) {
    return seconds == FileNode::missingTime
               ? "not known"
               : DateFormatting::absoluteString(dateFromReferenceSeconds(seconds));
}

/// Why deleting the item frees something else than what it takes up.
std::string whyDifferent(const BrowserEntry& entry) {
    if (entry.flags.contains(FileNodeFlags::dataless))
        return "Its contents are only in the cloud: nothing goes free.";
    if (entry.flags.contains(FileNodeFlags::hardlinkDuplicate))
        return "The file is counted at another link of it.";
    if (entry.reclaimableSize == entry.allocatedSize)
        return {};
    if (entry.isDirectory)
        return "Some of what is in it shares blocks with other files, or is only in the cloud.";
    return "It shares blocks with other files; those stay until the last of them goes.";
}

void drawMarked(Sheet& sheet, const BrowserState& state) {
    if (state.marks.isEmpty())
        return;
    sheet.gap();
    sheet.title(countedText(static_cast<std::int64_t>(state.marks.count()), "item", "items") + " marked");
    if (!state.freed.value) {
        sheet.sentence(state.freed.isLoading() ? "Reckoning what goes free together …" : state.freed.failure);
        return;
    }
    const FreedBytes& freed = *state.freed.value;
    sheet.line("At least", sizeText(freed.atLeast), Role::good);
    sheet.line("At most", sizeText(freed.atMost), Role::good);
    for (const FreedBytes::Reason& reason : freed.reasons) {
        const bool isUnseen = reason.kind == FreedSpaceReason::unseen;
        sheet.sentence(
            (isUnseen ? std::string() : sizeText(reason.bytes) + " in ") +
                countedText(reason.count, isUnseen ? "entry" : "file", isUnseen ? "entries" : "files") +
                ": " + std::string(text(reason.kind)),
            Role::warning);
        for (std::size_t index = 0; index < std::min<std::size_t>(reason.elsewhere.size(), 3); ++index)
            sheet.line("", shortPath(state, reason.elsewhere[index]->path()), Role::dim);
    }
}

/// Where there is room left: what takes most of the space in a folder.
void drawLargest(Sheet& sheet, const BrowserState& state, const FileNode& folder) {
    constexpr std::size_t most =
        1000; // of a folder's entries, the largest by apparent size; more cannot be seen
    if (!folder.isDirectory() || folder.children().empty() || sheet.room() < 5)
        return;
    const SizeMode mode = state.choice.mode;
    const auto children = folder.children().first(std::min(folder.children().size(), most));
    std::vector<BrowserEntry> entries;
    for (const FileNode* child : children)
        if (!state.removals->isGone(*child))
            entries.push_back(TreeEntries::entryOf(*child, *state.removals));
    std::ranges::stable_sort(entries, std::ranges::greater{},
                             [mode](const BrowserEntry& entry) { return entry.sizeFor(mode); });
    sheet.gap();
    sheet.title("In it");
    for (const BrowserEntry& entry : entries) {
        if (sheet.isFull())
            break;
        const EntryMark mark = markOf(entry);
        sheet.line(shortSize(entry.sizeFor(mode)), std::string(mark.sign) + std::string(entry.name),
                   mark.role);
    }
}

} // namespace

void drawDetails(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (pane.area.column > 0)
        for (int row = 0; row < pane.area.height; ++row)
            pane.grid.put(pane.area.column - 1, pane.area.row + row, pane.isUnicode ? "│" : "|",
                          {.role = Role::rule});
    else
        pane.grid.repeat(0, pane.area.row, pane.area.width, pane.isUnicode ? "─" : "-", {.role = Role::rule});
    Pane inner = pane;
    if (pane.area.column == 0) {
        ++inner.area.row;
        --inner.area.height;
    }
    if (state.view == BrowserView::volumes) {
        drawLedger(inner);
        return;
    }
    Sheet sheet(inner);
    if (state.view == BrowserView::findings && state.findings.value &&
        state.cursor().row < state.findings.value->size()) {
        const SpaceSaverFinding& finding = (*state.findings.value)[state.cursor().row];
        sheet.title(finding.title);
        sheet.sentence(finding.subtitle);
        sheet.sentence(finding.explanation, Role::text);
        for (const auto& path : finding.paths)
            sheet.line("", shortPath(state, path.native()), Role::dim);
        return;
    }
    const auto item = target(state);
    if (item && item->node != nullptr && (state.tree != nullptr || state.view == BrowserView::list)) {
        const BrowserEntry entry = state.view == BrowserView::list
                                       ? *entryAt(state, state.cursor().row)
                                       : TreeEntries::entryOf(*item->node, *state.removals);
        const EntryMark mark = markOf(entry);
        sheet.title(entry.name, mark.role == Role::text ? Role::heading : mark.role);
        sheet.line("Kind", std::string(mark.meaning) + (entry.isDirectory ? "" : ", ") +
                               (entry.isDirectory ? "" : std::string(displayName(entry.category))));
        sheet.line("Size", sizeText(entry.size));
        sheet.line("On disk", sizeText(entry.allocatedSize));
        sheet.line("Frees", sizeText(entry.reclaimableSize),
                   entry.reclaimableSize < entry.allocatedSize ? Role::warning : Role::text);
        if (const std::string why = whyDifferent(entry); !why.empty())
            sheet.sentence(why);
        if (entry.isDirectory)
            sheet.line("Holds", countedText(entry.fileCount, "file", "files") + ", " +
                                    countedText(entry.directoryCount, "folder", "folders"));
        sheet.line("Modified", dateText(entry.modificationSeconds));
        if (!entry.isDirectory && entry.node != nullptr)
            sheet.line("Opened", dateText(entry.node->accessSeconds));
        if (const auto change = changeOf(entry, placeOf(state, state.folder), state.choice);
            change && state.view == BrowserView::list)
            sheet.line("Change", signedSize(*change), *change > 0 ? Role::warning : Role::good);
        if (!state.isScanning())
            if (const std::string_view reason = reasonToStay(state, *item->node); !reason.empty())
                sheet.sentence("It stays: " + std::string(reason), Role::warning);
        sheet.gap();
        sheet.sentence(shortPath(state, item->path), Role::text);
    }
    drawMarked(sheet, state);
    if (item && item->node != nullptr && state.tree != nullptr)
        drawLargest(sheet, state, *item->node);
}

} // namespace tarnwell
