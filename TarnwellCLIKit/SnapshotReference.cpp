#include "TarnwellCLIKit/SnapshotReference.hpp"

#include <algorithm>
#include <functional>
#include <utility>

namespace tarnwell {

namespace {

/// In lower case; what is not ASCII cannot begin a reference anyway.
std::string lowerCased(std::string_view text) {
    std::string lower(text);
    for (char& character : lower)
        if (character >= 'A' && character <= 'Z')
            character = static_cast<char>(character - 'A' + 'a');
    return lower;
}

/// The snapshot with this many newer ones; null when there are too few.
const ScanSnapshot* newest(std::size_t newerOnes, std::span<const ScanSnapshot> snapshots) {
    std::vector<const ScanSnapshot*> sorted;
    for (const ScanSnapshot& snapshot : snapshots)
        sorted.push_back(&snapshot);
    std::ranges::stable_sort(sorted, std::greater(), &ScanSnapshot::createdAt);
    return newerOnes < sorted.size() ? sorted[newerOnes] : nullptr;
}

std::string text(const SnapshotReferenceError::NotFound& error) {
    const std::string word = lowerCased(error.reference);
    if (word == "latest")
        return "No snapshots are stored.";
    if (word == "previous")
        return "There is no previous snapshot. `previous` is the second newest, so at least two snapshots "
               "have to "
               "be stored.";
    return "No snapshot matches '" + error.reference + "'.";
}

std::string text(const SnapshotReferenceError::Ambiguous& error) {
    std::vector<std::string> matches = error.matches;
    std::ranges::sort(matches);
    std::string text = "Snapshot prefix '" + error.prefix + "' matches more than one snapshot: ";
    for (std::string_view separator; const std::string& match : matches) {
        text.append(separator).append(match);
        separator = ", ";
    }
    return text + ".";
}

} // namespace

std::string SnapshotReferenceError::message() const {
    return std::visit([](const auto& error) { return text(error); }, reason);
}

std::expected<const ScanSnapshot*, SnapshotReferenceError>
SnapshotReference::resolve(std::string_view reference, std::span<const ScanSnapshot> in) {
    const std::string wanted = lowerCased(reference);
    std::vector<const ScanSnapshot*> found;
    if (wanted == "latest" || wanted == "previous") {
        if (const ScanSnapshot* snapshot = newest(wanted == "latest" ? 0 : 1, in))
            found.push_back(snapshot);
    } else if (!wanted.empty()) {
        for (const ScanSnapshot& snapshot : in)
            if (lowerCased(snapshot.id.text()).starts_with(wanted))
                found.push_back(&snapshot);
    }

    if (found.size() == 1)
        return found.front();
    if (found.empty())
        return std::unexpected(
            SnapshotReferenceError{SnapshotReferenceError::NotFound{.reference = std::string(reference)}});
    SnapshotReferenceError::Ambiguous ambiguous{.prefix = std::string(reference), .matches = {}};
    for (const ScanSnapshot* snapshot : found)
        ambiguous.matches.push_back(snapshot->id.text());
    return std::unexpected(SnapshotReferenceError{std::move(ambiguous)});
}

} // namespace tarnwell
