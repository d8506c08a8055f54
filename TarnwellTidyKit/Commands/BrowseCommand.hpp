#pragma once

// [FOLDER] without a command: the browser, on a terminal.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

#include <cstdint>
#include <functional>
#include <string>

namespace tarnwell {

struct BrowseRequest {
    /// As typed; empty to begin with the volumes.
    std::string folder;
    /// Forbids whatever changes something.
    bool isReadOnly = false;
    TidyColor color = TidyColor::automatic;
    TidyScanChoices scan = {};

    bool operator==(const BrowseRequest&) const = default;

    /// Has no name of its own; is not in the table of commands.
    static const TidyCommandSpec spec;
    static BrowseRequest read(const TidyArguments& arguments);
    /// Whether a first word that is no command's name stands for a folder: what has a slash in it or begins
    /// as paths do, and whatever is a folder here.
    static bool isFolder(const std::string& word);
};

/// Opens the browser in a folder, a full path or nothing, on the terminal; gives the exit code. Throws
/// std::exception when the terminal cannot be drawn on.
using TidyBrowser =
    std::function<std::int32_t(const BrowseRequest&, const std::string& folder, TidyContext&)>;

/// Fails where `browser` is empty, and for a folder that is none.
TidyResult run(const BrowseRequest& request, TidyContext& context, const TidyBrowser& browser);

} // namespace tarnwell
