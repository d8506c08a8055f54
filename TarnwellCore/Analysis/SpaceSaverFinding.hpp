#pragma once

// What the space-saver probe reports: a place where space piles up, how safe it is to clear, and how.

#include "TarnwellCore/Analysis/CleanupSafety.hpp"
#include "TarnwellCore/Classification/FileCategory.hpp"

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tarnwell {

enum class SpaceSaverKind : std::uint8_t {
    xcodeDerivedData,
    xcodeArchives,
    xcodeDeviceSupport,
    xcodeCaches,
    simulatorCaches,
    simulatorDevices,
    homebrewCache,
    npmCache,
    yarnCache,
    pnpmStore,
    pipCache,
    cocoaPodsCache,
    gradleCache,
    cargoRegistry,
    goModuleCache,
    dockerData,
    androidSystemImages,
    androidVirtualDevices,
    nodeModules,
    deviceBackups,
    mailDownloads,
    userCaches,
    userLogs,
    trash,
    downloadsClutter,
    installerArchives,
    largeFiles,
    oldLargeFiles,
    cleanupRule,
    timeMachineSnapshots,
};

inline constexpr std::size_t spaceSaverKindCount = 30;

/// The kind's name as it is written above.
std::string_view rawValue(SpaceSaverKind kind);
/// The kind of exactly this name.
std::optional<SpaceSaverKind> spaceSaverKindFromRawValue(std::string_view text);

/// The headings under which findings are listed.
enum class SpaceSaverGroup : std::uint8_t { developer, system, backups, files };

/// The heading for findings of a kind.
SpaceSaverGroup group(SpaceSaverKind kind);

namespace SpaceSaverActions {
/// Show or run this command line.
struct RunCommand {
    std::string commandLine;
    bool operator==(const RunCommand&) const = default;
};
/// Move the paths to the Trash.
struct Trash {
    bool operator==(const Trash&) const = default;
};
/// Reveal the location, so that the user removes items by hand or in the tool they belong to.
struct OpenLocation {
    bool operator==(const OpenLocation&) const = default;
};
struct EmptyTrash {
    bool operator==(const EmptyTrash&) const = default;
};
/// Free the local copies of cloud files.
struct Evict {
    bool operator==(const Evict&) const = default;
};
} // namespace SpaceSaverActions

/// What clearing a finding means.
using SpaceSaverAction =
    std::variant<SpaceSaverActions::RunCommand, SpaceSaverActions::Trash, SpaceSaverActions::OpenLocation,
                 SpaceSaverActions::EmptyTrash, SpaceSaverActions::Evict>;

/// Sizes in bytes.
struct SpaceSaverFinding {
    /// Stays the same from one probe to the next; unique among the findings of a probe.
    std::string id;
    SpaceSaverKind kind = SpaceSaverKind::largeFiles;
    /// A short name.
    std::string title;
    /// One line under the title.
    std::string subtitle;
    /// What the data is and what removing it costs.
    std::string explanation;
    /// The items that the action acts on. Of more than 100,000, or of paths that take more than 64 MiB of
    /// memory, the first; the sums and counts are those of all.
    std::vector<std::filesystem::path> paths;
    /// How many items there are beside those in `paths`.
    std::int64_t furtherPathCount = 0;
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    /// What removal would free.
    std::int64_t reclaimableSize = 0;
    /// The number of items behind the finding: files of a folder rule, otherwise the things that the
    /// subtitle counts.
    std::int64_t itemCount = 0;
    CleanupSafety safety = CleanupSafety::reviewNeeded;
    SpaceSaverAction action = SpaceSaverActions::OpenLocation{};
    /// For colour and grouping.
    FileCategory category = FileCategory::other;
    /// Whether the sizes were measured. When not, they are a lower bound, often 0: something is there that
    /// could not be read, or the system does not tell its size.
    bool sizeIsKnown = true;

    bool operator==(const SpaceSaverFinding&) const = default;
};

/// The order in which findings are listed: what frees most comes first, those of unknown size come last.
/// Equal ones by apparent size, then in the order of the kinds, then by id.
std::vector<SpaceSaverFinding> sorted(std::vector<SpaceSaverFinding> findings);

} // namespace tarnwell
