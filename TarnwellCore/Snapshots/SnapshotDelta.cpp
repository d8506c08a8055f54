#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"

#include <algorithm>
#include <limits>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace tarnwell {

namespace {

using Change = SnapshotDelta::Change;
using Entry = ScanSnapshot::Entry;
using Index = std::unordered_map<std::string_view, const Entry*>;

/// How much of a change a folder above has to show to stand for it.
constexpr double nestingShare = 0.8;

std::int64_t difference(std::int64_t after, std::int64_t before) {
    std::int64_t result = 0;
    if (!__builtin_sub_overflow(after, before, &result))
        return result;
    // Sizes of a foreign file may be anything.
    return after < 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
}

std::uint64_t magnitude(std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? 0 - bits : bits;
}

bool isBelow(std::int64_t delta, std::int64_t threshold) {
    return threshold > 0 && magnitude(delta) < static_cast<std::uint64_t>(threshold);
}

/// The first entry of each path.
Index indexed(const std::vector<Entry>& entries) {
    Index index;
    index.reserve(entries.size());
    for (const Entry& entry : entries)
        index.try_emplace(entry.path, &entry);
    return index;
}

const Entry* find(const Index& index, std::string_view path) {
    const auto place = index.find(path);
    return place == index.end() ? nullptr : place->second;
}

/// Compares item by item; both indexes refer to the same two snapshots as long as this lives.
class Comparison {
public:
    Comparison(const ScanSnapshot& before, const ScanSnapshot& after, std::int64_t threshold, SizeMode mode)
        : before_(before),
          after_(after),
          threshold_(threshold),
          mode_(mode),
          beforeIndex_(indexed(before.entries)),
          afterIndex_(indexed(after.entries)) {}

    std::vector<Change> changes() {
        std::vector<Change> changes;
        // A path stands in an index once, for its first entry: the others are passed over.
        for (const Entry& entry : before_.entries)
            if (find(beforeIndex_, entry.path) == &entry)
                append(changes, &entry, find(afterIndex_, entry.path));
        for (const Entry& entry : after_.entries)
            if (find(afterIndex_, entry.path) == &entry && !beforeIndex_.contains(entry.path))
                append(changes, nullptr, &entry);
        return changes;
    }

private:
    void append(std::vector<Change>& changes, const Entry* before, const Entry* after) const {
        const std::int64_t sizeBefore = before ? before->sizeFor(mode_) : 0;
        const std::int64_t sizeAfter = after ? after->sizeFor(mode_) : 0;
        const std::int64_t delta = difference(sizeAfter, sizeBefore);
        if (isBelow(delta, threshold_))
            return;
        changes.push_back({.path = before ? before->path : after->path,
                           .kind = kind(before, after, delta),
                           .before = sizeBefore,
                           .after = sizeAfter,
                           .delta = delta});
    }

    Change::Kind kind(const Entry* before, const Entry* after, std::int64_t delta) const {
        if (before && after)
            return delta >= 1 ? Change::Kind::grew : Change::Kind::shrank;
        if (before)
            return wasTooSmall(*before, after_) ? Change::Kind::belowThreshold : Change::Kind::removed;
        return wasTooSmall(*after, before_) ? Change::Kind::belowThreshold : Change::Kind::added;
    }

    /// Whether an item, which one snapshot has, only fell through the other's floor: its folder holds the
    /// same number of files in both.
    bool wasTooSmall(const Entry& item, const ScanSnapshot& other) const {
        if (other.minimumSize < 1 || item.path.empty())
            return false;
        const std::size_t slash = item.path.rfind('/');
        const std::string_view parent =
            std::string_view(item.path).substr(0, slash == std::string::npos ? 0 : slash);
        const Entry* const parentBefore = find(beforeIndex_, parent);
        const Entry* const parentAfter = find(afterIndex_, parent);
        return parentBefore && parentAfter && parentBefore->fileCount == parentAfter->fileCount;
    }

    const ScanSnapshot& before_;
    const ScanSnapshot& after_;
    const std::int64_t threshold_;
    const SizeMode mode_;
    const Index beforeIndex_;
    const Index afterIndex_;
};

/// Marks the changes that a change above them stands for. Every path is walked up once: an ancestor ends
/// before a "/" of the path, and the root is above every other path.
void markNested(std::vector<Change>& changes) {
    std::unordered_map<std::string_view, std::int64_t> deltas;
    deltas.reserve(changes.size());
    // Only paths of these lengths are looked up, so that a path of nothing but slashes costs little too.
    std::vector<bool> hasLength;
    for (const Change& change : changes) {
        deltas.emplace(change.path, change.delta);
        if (hasLength.size() <= change.path.size())
            hasLength.resize(change.path.size() + 1);
        hasLength[change.path.size()] = true;
    }

    for (Change& change : changes) {
        const std::string_view path = change.path;
        const double leastMagnitude = nestingShare * static_cast<double>(magnitude(change.delta));
        const auto isToldBy = [&](std::string_view ancestor) {
            if (!hasLength[ancestor.size()])
                return false;
            const auto place = deltas.find(ancestor);
            return place != deltas.end() && (place->second >= 1) == (change.delta >= 1) &&
                   static_cast<double>(magnitude(place->second)) >= leastMagnitude;
        };
        for (std::size_t slash = path.rfind('/'); slash != std::string_view::npos && !change.isNested;
             slash = slash == 0 ? std::string_view::npos : path.rfind('/', slash - 1))
            change.isNested = isToldBy(path.substr(0, slash));
        if (!change.isNested && !path.empty())
            change.isNested = isToldBy({});
    }
}

} // namespace

SnapshotDelta SnapshotDelta::compare(ScanSnapshot before, ScanSnapshot after, std::int64_t threshold,
                                     SizeMode sizeMode) {
    SnapshotDelta delta{.before = std::move(before),
                        .after = std::move(after),
                        .changes = {},
                        .totalChange = 0,
                        .rootsMatch = false};
    delta.changes = Comparison(delta.before, delta.after, threshold, sizeMode).changes();
    markNested(delta.changes);
    std::ranges::sort(delta.changes, [](const Change& a, const Change& b) {
        return std::tuple(magnitude(b.delta), std::string_view(a.path)) <
               std::tuple(magnitude(a.delta), std::string_view(b.path));
    });
    delta.totalChange = difference(delta.after.totalSizeFor(sizeMode), delta.before.totalSizeFor(sizeMode));
    delta.rootsMatch = delta.before.rootPath == delta.after.rootPath;
    return delta;
}

std::string_view rawValue(SnapshotDelta::Change::Kind kind) {
    switch (kind) {
    case Change::Kind::grew:
        return "grew";
    case Change::Kind::shrank:
        return "shrank";
    case Change::Kind::added:
        return "added";
    case Change::Kind::removed:
        return "removed";
    case Change::Kind::belowThreshold:
        return "belowThreshold";
    }
    return "grew";
}

} // namespace tarnwell
