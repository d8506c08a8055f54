#pragma once

// What the user asked for, once the arguments are understood. A new command is a file pair of its own, a line
// in this list and a row in the table of TidyCommand.cpp.

#include "TarnwellTidyKit/Commands/BrowseCommand.hpp"
#include "TarnwellTidyKit/Commands/ChangesCommand.hpp"
#include "TarnwellTidyKit/Commands/CleanCommand.hpp"
#include "TarnwellTidyKit/Commands/DrawCommand.hpp"
#include "TarnwellTidyKit/Commands/DuplicatesCommand.hpp"
#include "TarnwellTidyKit/Commands/EvictCommand.hpp"
#include "TarnwellTidyKit/Commands/FindCommand.hpp"
#include "TarnwellTidyKit/Commands/FindingsCommand.hpp"
#include "TarnwellTidyKit/Commands/FreesCommand.hpp"
#include "TarnwellTidyKit/Commands/HistoryCommand.hpp"
#include "TarnwellTidyKit/Commands/ReportCommand.hpp"
#include "TarnwellTidyKit/Commands/RulesCommand.hpp"
#include "TarnwellTidyKit/Commands/ScheduleCommand.hpp"
#include "TarnwellTidyKit/Commands/SettingsCommand.hpp"
#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TrashCommand.hpp"
#include "TarnwellTidyKit/Commands/UninstallCommand.hpp"
#include "TarnwellTidyKit/Commands/VolumesCommand.hpp"

#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace tarnwell {

/// Print the help: of a command, or of the whole program when `command` is null.
struct TidyHelp {
    const TidyCommandSpec* command = nullptr;

    bool operator==(const TidyHelp&) const = default;
};

/// Print what may stand in the place of the last of these words, for a shell that completes it.
struct TidyWords {
    std::vector<std::string> words;

    bool operator==(const TidyWords&) const = default;
};

struct TidyVersion {
    bool operator==(const TidyVersion&) const = default;
};

using TidyCommand = std::variant<TidyHelp, TidyVersion, TidyWords, BrowseRequest, ReportRequest, FindRequest,
                                 FreesRequest, DuplicatesRequest, FindingsRequest, ChangesRequest,
                                 VolumesRequest, CleanRequest, TrashRequest, EvictRequest, UninstallRequest,
                                 RulesRequest, SettingsRequest, DrawRequest, HistoryRequest, ScheduleRequest>;

/// What every command is called and takes, in the order of the help.
std::span<const TidyCommandSpec* const> tidyCommandSpecs();
/// Null for a name that no command has.
const TidyCommandSpec* tidyCommandSpec(std::string_view name);

/// Understands the arguments (without the program's name). Throws TidyUsageError; touches nothing.
TidyCommand readTidyCommand(std::span<const std::string> arguments);

} // namespace tarnwell
