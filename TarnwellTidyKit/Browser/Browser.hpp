#pragma once

// The browser on a screen: takes its events, changes the state, has jobs done, draws.

#include "TarnwellTidyKit/Commands/TidyChoices.hpp"
#include "TarnwellTidyKit/Commands/TidyServices.hpp"
#include "TarnwellTidyKit/Commands/TidySurroundings.hpp"
#include "TarnwellTidyKit/Screen/Screen.hpp"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace tarnwell {

class LiveTree;

using BrowserScan =
    std::function<ScanResult(const std::filesystem::path&, ScanOptions, DiskScanner::ProgressHandler,
                             CancellationToken, std::shared_ptr<LiveTree>)>;

struct BrowserSetup {
    /// A full path; empty to begin with the volumes.
    std::string folder = {};
    /// Forbids whatever changes something.
    bool isReadOnly = false;
    /// What is read, and which size counts at first.
    TidyScanChoices choices = {};
    /// Outlive the browser.
    const TidyServices* services = nullptr;
    const TidySurroundings* surroundings = nullptr;
    /// Runs a shell in a folder, while the terminal is its own: nothing, or why it could not be started. The
    /// user's shell when empty.
    std::function<std::string(const std::string& folder)> shell = {};
    /// Scans; by default the scanner itself, which lets others look at the tree meanwhile. A seam for what
    /// goes wrong.
    BrowserScan scan = {};
    /// Takes no event before all jobs are done: for scripts, which then see the same at every run.
    bool isPatient = false;
};

/// Returns when the user leaves, the terminal is gone or the program is asked to end, with the exit status:
/// 0, or 128 and the number of the signal that asked. The step at hand of what is being changed then is
/// brought to its end (a move whole; of a folder that is deleted for good, the entry), and the program counts
/// as interrupted if there was one.
int runBrowser(Screen& screen, const BrowserSetup& setup);

} // namespace tarnwell
