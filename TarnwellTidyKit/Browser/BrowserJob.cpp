#include "TarnwellTidyKit/Browser/BrowserJob.hpp"

#include <algorithm>

namespace tarnwell {

namespace {

using namespace BrowserJobs;
using enum BrowserLane;

struct About {
    BrowserLane lane;
    std::string_view title;
};

struct Describing {
    About operator()(const Scan&) const { return {look, "Scan"}; }
    About operator()(const Rescan&) const { return {look, "Scan"}; }
    About operator()(const Look&) const { return {quick, ""}; }
    About operator()(const Ledger&) const { return {look, ""}; }
    About operator()(const Discard&) const { return {upkeep, ""}; }
    About operator()(const Order&) const { return {quick, ""}; }
    About operator()(const Map&) const { return {quick, ""}; }
    About operator()(const Freed&) const { return {quick, ""}; }
    About operator()(const Figures&) const { return {quick, ""}; }
    About operator()(const Find&) const { return {look, "Search"}; }
    About operator()(const Findings&) const { return {look, "Look for what can be cleared"}; }
    About operator()(const Rules&) const { return {quick, ""}; }
    About operator()(const Duplicates&) const { return {look, "Look for duplicates"}; }
    About operator()(const Changes&) const { return {look, "Compare"}; }
    About operator()(const FindWaysOut&) const { return {wayOut, ""}; }
    About operator()(const Follow&) const { return {upkeep, "Note what went"}; }
    About operator()(const Carry&) const { return {upkeep, "Scan"}; }
    About operator()(const Volumes&) const { return {quick, ""}; }
    About operator()(const History&) const { return {look, ""}; }
    About operator()(const TrashList&) const { return {look, ""}; }
    About operator()(const Trash&) const { return {act, "Move to the Trash"}; }
    About operator()(const Undo&) const { return {act, "Undo"}; }
    About operator()(const Restore&) const { return {act, "Put back"}; }
    About operator()(const Remove&) const { return {act, "Delete"}; }
    About operator()(const Evict&) const { return {act, "Free local copies"}; }
    About operator()(const Share&) const { return {act, "Share blocks"}; }
    About operator()(const Clear&) const { return {act, "Clear"}; }
    About operator()(const EmptyTrash&) const { return {act, "Empty the Trash"}; }
    About operator()(const TakeSnapshot&) const { return {act, "Take a snapshot"}; }
    About operator()(const ChangeRules&) const { return {act, ""}; }
    About operator()(const Open&) const { return {act, ""}; }
    About operator()(const Reveal&) const { return {act, ""}; }
    About operator()(const Remember&) const { return {act, ""}; }
};

} // namespace

void ChangeRules::applyTo(std::vector<CleanupRule>& rules) const {
    const auto found = std::ranges::find(rules, rule.id, &CleanupRule::id);
    if (kind == Kind::put && found == rules.end()) // new, or dropped by others while it was edited
        rules.push_back(rule);
    else if (found == rules.end())
        return;
    else if (kind == Kind::put)
        *found = rule;
    else if (kind == Kind::drop)
        rules.erase(found);
    else
        found->isEnabled = kind == Kind::enable;
}

BrowserLane laneOf(const BrowserJob& job) {
    return std::visit(Describing{}, job).lane;
}

std::string_view titleOf(const BrowserJob& job) {
    return std::visit(Describing{}, job).title;
}

} // namespace tarnwell
