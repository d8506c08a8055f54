#pragma once

// Looks for space that can be given back: the catalogue's folders under the user's home, patterns in a
// finished scan, the Trash, local backup snapshots and what the user's cleanup rules match.
//
// A probe changes nothing on disk. It may be copied and used from several threads at once; its functions
// block while they measure, all but `run`.

#include "TarnwellCore/Analysis/CleanupRule.hpp"
#include "TarnwellCore/Analysis/CommandResult.hpp"
#include "TarnwellCore/Analysis/RuleEvaluator.hpp"
#include "TarnwellCore/Analysis/SpaceSaverCatalogue.hpp"
#include "TarnwellCore/Analysis/SpaceSaverFinding.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Scanning/ScanOptions.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Finds the node at a full path in a scanned tree; null when the tree does not hold it.
using TreeLookup = std::function<const FileNode*(const std::filesystem::path&)>;

/// A lookup in this tree, which it keeps alive.
TreeLookup treeLookup(std::shared_ptr<const FileNode> root);

struct SpaceSaverProbe {
    using DirectoryRule = SpaceSaverCatalogue::DirectoryRule;

    /// Everything that is looked for by a relative path lies in here.
    std::filesystem::path home;
    /// A finding whose apparent `size` is known and below this is left out. Apparent bytes, because that
    /// is what every other threshold of the system compares. A place that is there but empty is no finding.
    std::int64_t minimumSize;

    explicit SpaceSaverProbe(std::filesystem::path homeFolder, std::int64_t minimum = 1'000'000)
        : home(std::move(homeFolder)), minimumSize(minimum) {}

    // --- Effects: replaceable, with live defaults ------------------------------------------------------

    /// The Trash folders of the user with this home; those that do not exist are passed over.
    std::function<std::vector<std::filesystem::path>(const std::filesystem::path& home)> trashFolders =
        liveTrashFolders;
    /// Runs a tool given by its absolute path; `timeout` in seconds. Nothing when it cannot be started.
    std::function<std::optional<CommandResult>(const std::string& executable,
                                               const std::vector<std::string>& arguments, double timeout)>
        runTool = liveRunTool;

    // --- Everything at once ----------------------------------------------------------------------------

    struct Request {
        /// A finished scan. Without one, what is found in a scanned tree is left out: node_modules, large
        /// files and cleanup rules.
        std::optional<ScanResult> scanResult = {};
        bool includeSnapshots = true;
        DiskScanner scanner = {};
        /// Answers from any thread what is already measured; the tree of `scanResult` when empty.
        TreeLookup treeLookup = {};
        /// Bytes from which a file is large, and from which one that was left alone for a year is.
        std::int64_t largeFileThreshold = 1'000'000'000;
        std::int64_t oldThreshold = 500'000'000;
        /// Receives the findings of each step as soon as they are there, every finding once, in the order
        /// of the steps; called from the probe's thread.
        std::function<void(const std::vector<SpaceSaverFinding>&)> onPartial = {};
        /// The user's cleanup rules; those switched off are not evaluated.
        std::vector<CleanupRule> rules = {};
        /// What ages are counted back from.
        Date now = currentDate();
    };

    /// Evaluates every folder rule and all that follows below. Measures with the options of the scan.
    /// The result is in the order of `sorted`. The future throws ScanError (cancelled) once `token` is
    /// cancelled, and what `onPartial` throws. Dropping the future waits for the probe's end.
    std::future<std::vector<SpaceSaverFinding>> run(Request request, CancellationToken token = {}) const;

    // --- The catalogue's folders -----------------------------------------------------------------------

    static const std::vector<DirectoryRule>& directoryRules() {
        return SpaceSaverCatalogue::directoryRules();
    }

    /// Measures one rule's paths, or takes them from the tree where `lookup` knows them. A path that is
    /// missing or a symbolic link contributes nothing; of paths inside one another the outer one counts.
    /// When something is there but cannot be read, the finding's size is not known and it is kept whatever
    /// its size. Nothing when there is nothing to clear. Throws ScanError (cancelled).
    std::optional<SpaceSaverFinding> evaluate(const DirectoryRule& rule, const DiskScanner& scanner,
                                              const ScanOptions& options, const TreeLookup& lookup,
                                              const CancellationToken& token = {}) const;

    // --- What a finished scan shows --------------------------------------------------------------------

    /// One finding for all outermost node_modules folders of projects. Those that belong to installed
    /// software are left out: inside packages, system folders, the Library, hidden folders of the home,
    /// and a "lib" without a package.json.
    std::vector<SpaceSaverFinding> nodeModulesFindings(const FileNode& in) const;

    /// Files of at least `largeThreshold` bytes, and files of at least `oldThreshold` bytes that were not
    /// modified for more than `oldDays` days; a file of the second finding is not in the first. Each holds
    /// at most `limit` items, largest first. A package counts as one file; applications, system folders,
    /// the Trash, node_modules and the catalogue's folders are left out, and so are cloud placeholders.
    std::vector<SpaceSaverFinding> largeFileFindings(const FileNode& in, std::int64_t largeThreshold,
                                                     std::int64_t oldThreshold, std::int64_t oldDays,
                                                     std::size_t limit, Date now) const;

    /// A finding for each match.
    std::vector<SpaceSaverFinding> cleanupRuleFindings(const std::vector<RuleMatch>& matches) const;

    // --- What lies in the home folder ------------------------------------------------------------------

    /// Older installers of an application of which there is a newer one, and the other downloads of at
    /// least 100 MB or not modified for more than 90 days before `now`.
    std::vector<SpaceSaverFinding> downloadsFindings(const DiskScanner& scanner, const ScanOptions& options,
                                                     const TreeLookup& lookup, Date now = currentDate(),
                                                     const CancellationToken& token = {}) const;

    /// The caches that applications keep outside of Library/Caches: in their containers, beside their
    /// settings, in ".cache". Folders of the catalogue are left out.
    std::optional<SpaceSaverFinding> applicationCachesFinding(const DiskScanner& scanner,
                                                              const ScanOptions& options,
                                                              const TreeLookup& lookup,
                                                              const CancellationToken& token = {}) const;

    // --- The system ------------------------------------------------------------------------------------

    std::optional<SpaceSaverFinding> trashFinding(const DiskScanner& scanner,
                                                  const CancellationToken& token = {}) const;

    /// Local Time Machine snapshots of the startup disk, whose size the system does not tell. Nothing
    /// where the tool is missing or fails.
    std::optional<SpaceSaverFinding> snapshotFinding() const;

    static std::vector<std::filesystem::path> liveTrashFolders(const std::filesystem::path& home);
    static std::optional<CommandResult>
    liveRunTool(const std::string& executable, const std::vector<std::string>& arguments, double timeout);

private:
    bool isWorthReporting(const SpaceSaverFinding& finding) const;
    std::vector<SpaceSaverFinding> runSteps(const Request& request, const CancellationToken& token) const;
};

} // namespace tarnwell
