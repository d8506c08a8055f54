#include "Tests/Support/PlainDelta.hpp"

#include <algorithm>
#include <functional>
#include <limits>
#include <set>
#include <string>

namespace tarnwell::test {

namespace {

using Change = SnapshotDelta::Change;
using Kind = Change::Kind;
__extension__ using Wide = __int128;

const ScanSnapshot::Entry* find(const ScanSnapshot& snapshot, const std::string& path) {
    for (const ScanSnapshot::Entry& entry : snapshot.entries)
        if (entry.path == path)
            return &entry;
    return nullptr;
}

/// The nearest 64-bit number.
std::int64_t difference(std::int64_t after, std::int64_t before) {
    return static_cast<std::int64_t>(std::clamp<Wide>(static_cast<Wide>(after) - before,
                                                      std::numeric_limits<std::int64_t>::min(),
                                                      std::numeric_limits<std::int64_t>::max()));
}

Wide magnitude(const Change& change) {
    return change.delta < 0 ? -static_cast<Wide>(change.delta) : change.delta;
}

} // namespace

std::vector<Change> plainChanges(const ScanSnapshot& before, const ScanSnapshot& after,
                                 std::int64_t threshold, SizeMode mode) {
    std::set<std::string> paths;
    for (const ScanSnapshot* snapshot : {&before, &after})
        for (const ScanSnapshot::Entry& entry : snapshot->entries)
            paths.insert(entry.path);
    std::vector<Change> changes;
    for (const std::string& path : paths) {
        const ScanSnapshot::Entry* old = find(before, path);
        const ScanSnapshot::Entry* now = find(after, path);
        Change change{.path = path};
        change.before = old ? old->sizeFor(mode) : 0;
        change.after = now ? now->sizeFor(mode) : 0;
        change.delta = difference(change.after, change.before);
        if (magnitude(change) < threshold)
            continue;
        const std::size_t slash = path.rfind('/');
        const std::string parent = slash == path.npos ? "" : path.substr(0, slash);
        const bool isSameCount = !path.empty() && find(before, parent) && find(after, parent) &&
                                 find(before, parent)->fileCount == find(after, parent)->fileCount;
        if (old && now)
            change.kind = change.delta >= 1 ? Kind::grew : Kind::shrank;
        else if (old)
            change.kind = after.minimumSize >= 1 && isSameCount ? Kind::belowThreshold : Kind::removed;
        else
            change.kind = before.minimumSize >= 1 && isSameCount ? Kind::belowThreshold : Kind::added;
        changes.push_back(change);
    }
    for (Change& change : changes)
        for (const Change& other : changes) {
            const bool isAncestor =
                (other.path.empty() && !change.path.empty()) || change.path.starts_with(other.path + "/");
            if (other.path != change.path && isAncestor && (other.delta >= 1) == (change.delta >= 1) &&
                static_cast<double>(magnitude(other)) >= 0.8 * static_cast<double>(magnitude(change)))
                change.isNested = true;
        }
    std::ranges::stable_sort(changes, std::greater(), magnitude);
    return changes;
}

} // namespace tarnwell::test
