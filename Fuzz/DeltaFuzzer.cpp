// The comparison of snapshots. Input: a line "<threshold> <size mode> <floor before> <floor after>" (the mode
// as a number), then a line an entry: "<side> <size> <files> <path>", the side "b" (before) or "a" (after).
// Exercises: TarnwellCore/Snapshots/SnapshotDelta.cpp

#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"

#include "Tests/Support/PlainDelta.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include "Fuzz/Require.hpp"
#include "Fuzz/TextInput.hpp"

namespace tarnwell::fuzz {

namespace {

/// Three sizes that differ, so that one taken for another shows.
ScanSnapshot::Entry readEntry(TextInput& line) {
    ScanSnapshot::Entry entry;
    entry.allocatedSize = line.takeInteger();
    entry.size = entry.allocatedSize ^ 1;
    entry.reclaimableSize = entry.allocatedSize ^ 2;
    entry.fileCount = line.takeInteger();
    entry.path = line.take('\n');
    return entry;
}

void requireTurnedRound(const SnapshotDelta& delta, const SnapshotDelta& turned) {
    using Kind = SnapshotDelta::Change::Kind;
    const auto mirrored = [](Kind kind) {
        constexpr Kind mirrors[] = {Kind::shrank, Kind::grew, Kind::removed, Kind::added,
                                    Kind::belowThreshold};
        return mirrors[static_cast<std::size_t>(kind)];
    };
    require(delta.changes.size() == turned.changes.size(), "a change is one from either side");
    for (const SnapshotDelta::Change& change : delta.changes) {
        const auto other = std::ranges::find(turned.changes, change.path, &SnapshotDelta::Change::path);
        require(other != turned.changes.end() && other->kind == mirrored(change.kind) &&
                    other->before == change.after && other->after == change.before,
                "turned round, a change is turned round");
    }
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    fuzz::TextInput input(data, size);
    fuzz::TextInput head(input.take('\n'));
    const std::int64_t threshold = head.takeInteger();
    const auto mode = static_cast<SizeMode>(static_cast<std::uint64_t>(head.takeInteger()) % 3);
    ScanSnapshot before;
    ScanSnapshot after;
    before.minimumSize = head.takeInteger();
    after.minimumSize = head.takeInteger();
    while (!input.isAtEnd()) {
        fuzz::TextInput line(input.take('\n'));
        const bool isAfter = line.take(' ') == "a";
        (isAfter ? after : before).entries.push_back(fuzz::readEntry(line));
    }
    const SnapshotDelta delta = SnapshotDelta::compare(before, after, threshold, mode);
    fuzz::require(delta.changes == test::plainChanges(before, after, threshold, mode),
                  "the changes follow the plain rules");
    fuzz::require(delta.before == before && delta.after == after, "the snapshots are kept");
    if (threshold > 0)
        fuzz::requireTurnedRound(delta, SnapshotDelta::compare(after, before, threshold, mode));
    return 0;
}
