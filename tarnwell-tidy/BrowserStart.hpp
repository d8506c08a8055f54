#pragma once

// The browser on the terminal that the program was started in.

#include "TarnwellTidyKit/Commands/BrowseCommand.hpp"

namespace tarnwell {

/// Empty unless there is a terminal to draw on and to type at.
TidyBrowser browserOnTerminal();

} // namespace tarnwell
