#pragma once

// findings: where space piles up in a home folder, how much care each place asks for, and what can be done.

#include "TarnwellCore/Analysis/SpaceSaverFinding.hpp"
#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Where to look, and how thoroughly.
struct FindingsPlace {
    /// The user's own home when absent.
    std::optional<std::string> home = {};
    /// Without reading the whole home: leaves out what only a scan can find.
    bool isQuick = false;

    bool operator==(const FindingsPlace&) const = default;
};

struct FindingsRequest {
    FindingsPlace place;
    TidyScanChoices scan;
    TidyOutputChoices output;

    bool operator==(const FindingsRequest&) const = default;

    static const TidyCommandSpec spec;
    static FindingsRequest read(const TidyArguments& arguments);
};

TidyResult run(const FindingsRequest& request, TidyContext& context);

/// Options of every command that looks for findings.
inline constexpr TidyOptionSpec findingsHomeOption = {.name = "--home",
                                                      .value = "FOLDER",
                                                      .help = "Look in this home folder instead of your own",
                                                      .completes = TidyCompletes::folders};
inline constexpr TidyOptionSpec findingsQuickOption = {
    .name = "--quick", .value = "", .help = "Only known places: do not read the whole home"};

/// What a probe found, and the scan that it looked at where there was one.
struct FoundPlaces {
    std::filesystem::path home;
    std::vector<SpaceSaverFinding> findings;
    std::optional<ScanResult> scan;
};
FoundPlaces findPlaces(const FindingsPlace& place, const TidyScanChoices& choices, TidyContext& context);

/// The bytes that clearing the findings would free at least: of findings that share places one counts.
std::int64_t freeableBytes(std::span<const SpaceSaverFinding> findings);
/// "trash", "runCommand", "openLocation", "emptyTrash", "evict".
std::string_view actionName(const SpaceSaverAction& action);
/// "moves it to the Trash".
std::string actionText(const SpaceSaverAction& action);
TidyRole roleOf(CleanupSafety safety);

} // namespace tarnwell
