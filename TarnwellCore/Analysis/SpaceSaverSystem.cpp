// What only the system knows: the Trash and the local snapshots of its backups.

#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Analysis/SpaceSaverMeasuring.hpp"
#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Analysis/TrashFolders.hpp"
#include "TarnwellCore/Text/Trim.hpp"

#include <set>

namespace fs = std::filesystem;

namespace tarnwell {

using namespace SpaceSaverMeasuring;

namespace {

constexpr double snapshotListTimeout = 20; // seconds
constexpr double killGracePeriod = 2;      // seconds

/// The snapshots' names, one a line among others that introduce the list.
std::int64_t snapshotCount(std::string_view listing) {
    std::set<std::string_view> names;
    while (!listing.empty()) {
        const std::size_t length = std::min(listing.find('\n'), listing.size());
        const std::string_view line = trimmed(listing.substr(0, length));
        if (line.starts_with("com.apple.TimeMachine."))
            names.insert(line);
        listing.remove_prefix(std::min(length + 1, listing.size()));
    }
    return static_cast<std::int64_t>(names.size());
}

} // namespace

std::vector<fs::path> SpaceSaverProbe::liveTrashFolders(const fs::path& home) {
    std::vector<fs::path> folders{TrashFolders::ofHome(home)};
    const std::vector<fs::path> others = TrashFolders::onVolumes();
    folders.insert(folders.end(), others.begin(), others.end());
    return folders;
}

std::optional<CommandResult> SpaceSaverProbe::liveRunTool(const std::string& executable,
                                                          const std::vector<std::string>& arguments,
                                                          double timeout) {
    return Shell::runAsync(executable, arguments, timeout, killGracePeriod).get();
}

std::optional<SpaceSaverFinding> SpaceSaverProbe::trashFinding(const DiskScanner& scanner,
                                                               const CancellationToken& token) const {
    SpaceSaverFinding finding;
    for (const fs::path& folder : trashFolders(home)) {
        using State = TrashFolders::Contents::State;
        const TrashFolders::Contents contents = TrashFolders::contents(folder, scanner, token);
        // Whether a volume that does not answer has a Trash at all cannot be told.
        finding.sizeIsKnown = finding.sizeIsKnown && contents.state != State::unanswered;
        if (contents.state == State::measured || contents.state == State::unreadable)
            add(finding, folder,
                {.size = contents.measurement.logicalSize,
                 .allocatedSize = contents.measurement.allocatedSize,
                 .reclaimableSize = contents.measurement.reclaimableSize,
                 .isKnown = contents.state == State::measured},
                contents.itemCount);
    }
    finding.id = rawValue(SpaceSaverKind::trash);
    finding.kind = SpaceSaverKind::trash;
    finding.title = "Trash";
    finding.subtitle = finding.sizeIsKnown
                           ? counted(finding.itemCount, "item", "items") + " you already threw away"
                           : "Items you already threw away";
    finding.explanation =
        "Files in the Trash still occupy disk space until it is emptied. Emptying is permanent.";
    finding.safety = CleanupSafety::reviewNeeded;
    finding.action = SpaceSaverActions::EmptyTrash{};
    if (!isWorthReporting(finding))
        return std::nullopt;
    return finding;
}

std::optional<SpaceSaverFinding> SpaceSaverProbe::snapshotFinding() const {
    const auto result = runTool("/usr/bin/tmutil", {"listlocalsnapshots", "/"}, snapshotListTimeout);
    if (!result || !result->succeeded())
        return std::nullopt;
    const std::int64_t count = snapshotCount(result->standardOutput);
    if (count == 0)
        return std::nullopt;

    SpaceSaverFinding finding;
    finding.id = rawValue(SpaceSaverKind::timeMachineSnapshots);
    finding.kind = SpaceSaverKind::timeMachineSnapshots;
    finding.title = "Time Machine Local Snapshots";
    finding.subtitle = counted(count, "snapshot", "snapshots") + " on the startup disk";
    finding.explanation =
        "Between backups, Time Machine keeps earlier versions of your files on the startup disk. macOS "
        "removes "
        "them by itself when space runs low; deleting them now gives the space back at once and leaves the "
        "backups on other disks alone.";
    finding.itemCount = count;
    finding.safety = CleanupSafety::reviewNeeded;
    // Deletes every local snapshot of the startup disk, those of the list among them.
    finding.action = SpaceSaverActions::RunCommand{"tmutil deletelocalsnapshots /"};
    finding.category = FileCategory::backups;
    finding.sizeIsKnown = false;
    return finding;
}

} // namespace tarnwell
