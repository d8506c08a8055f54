// What lies in the Trash, and what has been done.

#include "TarnwellTidyKit/Browser/ViewParts.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

namespace tarnwell {

void drawTrash(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (drawWaiting(pane, state.trash, "Looking into the Trash …"))
        return;
    constexpr int dateWidth = 10;
    const TrashListing& listing = *state.trash.value;
    if (pane.heads.height > 0) {
        RowPainter painter(pane.grid, pane.heads.column, pane.heads.row, pane.heads.width);
        painter.gap(2);
        painter.text(dateWidth, "Moved on", Role::dim);
        painter.gap();
        std::string head = "From where";
        if (!listing.unanswered.empty())
            head += "   (" +
                    countedText(static_cast<std::int64_t>(listing.unanswered.size()), "volume", "volumes") +
                    " did not answer)";
        painter.rest(head, Role::dim);
    }
    if (listing.items.empty()) {
        drawNote(pane, "The Trash is empty.");
        return;
    }
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        const TrashedItem& item = listing.items[row];
        painter.gap(2);
        painter.text(dateWidth, item.trashedAt ? dayText(item.trashedAt) : "", Role::dim);
        painter.gap();
        if (item.original)
            painter.rest(shortPath(state, item.original->native()) + (item.isFolder ? "/" : ""),
                         item.isFolder ? Role::link : Role::text, Cut::start);
        else
            painter.rest(item.location.filename().native() + "   (nobody noted from where)", Role::dim,
                         Cut::middle);
    });
}

void drawOutcomes(const Pane& pane) {
    const BrowserState& state = pane.state;
    if (state.outcomes.empty()) {
        drawNote(pane, "Nothing has been done yet.");
        return;
    }
    drawRows(pane, [&](std::size_t row, RowPainter& painter) {
        // The latest first.
        const BrowserOutcome& outcome = state.outcomes[state.outcomes.size() - 1 - row];
        painter.text(2, outcome.isFailure ? "!" : "", Role::danger);
        painter.rest(outcome.text, outcome.isFailure ? Role::warning : Role::text, Cut::middle);
    });
}

} // namespace tarnwell
