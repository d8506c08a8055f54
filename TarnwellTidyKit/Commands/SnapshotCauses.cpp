#include "TarnwellTidyKit/Commands/SnapshotCauses.hpp"

#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace tarnwell {

namespace {

using Change = SnapshotDelta::Change;

std::uint64_t magnitude(std::int64_t delta) {
    return delta < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(delta)
                     : static_cast<std::uint64_t>(delta);
}

/// The path of the folder that an item lies in; empty for the root.
std::string_view parentOf(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

/// Whether the second change, of something inside, tells the first.
bool isTold(const Change& folder, const Change& inside) {
    return (folder.delta < 0) == (inside.delta < 0) &&
           magnitude(inside.delta) >= magnitude(folder.delta) - magnitude(folder.delta) / 5;
}

std::string upperCase(std::string_view text) {
    std::string upper(text);
    for (char& letter : upper)
        if (letter >= 'a' && letter <= 'z')
            letter = static_cast<char>(letter - 'a' + 'A');
    return upper;
}

} // namespace

std::vector<const Change*> snapshotCauses(const SnapshotDelta& delta) {
    std::map<std::string_view, const Change*> changes;
    for (const Change& change : delta.changes)
        if (!change.path.empty() && change.kind != Change::Kind::belowThreshold)
            changes.try_emplace(change.path, &change); // of equal paths the larger counts
    std::set<const Change*> told;
    for (const auto& [path, change] : changes)
        for (std::string_view above = parentOf(path); !above.empty(); above = parentOf(above))
            if (const auto found = changes.find(above);
                found != changes.end() && isTold(*found->second, *change))
                told.insert(found->second);
    std::vector<const Change*> causes;
    for (const Change& change : delta.changes) {
        const auto own = changes.find(change.path);
        if (own == changes.end() || own->second != &change || told.contains(&change))
            continue;
        bool isHeld = false;
        for (std::string_view above = parentOf(change.path); !above.empty(); above = parentOf(above))
            if (const auto found = changes.find(above);
                found != changes.end() && !told.contains(found->second))
                isHeld = isHeld || (found->second->delta < 0) == (change.delta < 0);
        if (!isHeld)
            causes.push_back(&change);
    }
    return causes;
}

const ScanSnapshot& snapshotMeant(std::string_view word, std::string_view rootPath,
                                  const std::vector<ScanSnapshot>& snapshots, Date now) {
    std::vector<const ScanSnapshot*> own;
    for (const ScanSnapshot& snapshot : snapshots)
        if (snapshot.rootPath == rootPath)
            own.push_back(&snapshot);
    const auto fail = [&](const std::string& message) -> const ScanSnapshot& {
        throw std::runtime_error(message + " Snapshots are taken with: tarnwell snapshot save " +
                                 std::string(rootPath));
    };
    if (own.empty())
        return fail("There is no snapshot of " + std::string(rootPath) + ".");
    if (word == "latest")
        return *own.front();
    if (word == "previous")
        return own.size() > 1 ? *own[1] : fail("There is only one snapshot of it.");
    if (const auto moment = momentFromText(word, now)) {
        const auto found = std::ranges::find_if(
            own, [&](const ScanSnapshot* snapshot) { return snapshot->createdAt <= *moment; });
        return found != own.end() ? **found
                                  : fail("There is no snapshot of it from before " + std::string(word) + ".");
    }
    const ScanSnapshot* match = nullptr;
    for (const ScanSnapshot* snapshot : own)
        if (snapshot->id.text().starts_with(upperCase(word))) {
            if (match != nullptr)
                throw std::runtime_error("More than one snapshot begins with " + std::string(word) + ".");
            match = snapshot;
        }
    if (match == nullptr || word.empty())
        return fail("No snapshot of it is called " + std::string(word) + ".");
    return *match;
}

} // namespace tarnwell
