#pragma once

// From an application to everything that it has left, and all of it to the Trash as one set, which
// `TrashRestorer` puts back.
//
// An application is a bundle (also in a folder of bundles on a disk of another system), or what a user of a
// freedesktop.org desktop has put into the home: an AppImage or a folder in "~/.local/opt", with an entry in
// the menu. LeftoverPlaces.hpp says where leftovers are looked for, ApplicationIdentifier.hpp by what they
// are known. Contents of files are never looked at, and nothing is deleted.

#include "TarnwellCore/Actions/LeftoverPlaces.hpp"
#include "TarnwellCore/Actions/TrashService.hpp"
#include "TarnwellCore/Actions/UninstallPlan.hpp"
#include "TarnwellCore/Platform/RunningPrograms.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/DirectoryMeasurement.hpp"

#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// A value without mutable state: every operation works on a copy, so it may be used from any thread and may
/// go away while an operation runs. Operations report failures as data; futures throw nothing but for want of
/// memory. Dropping a future waits for its operation.
class Uninstaller {
public:
    /// For a user's home folder, with effects on the real machine.
    explicit Uninstaller(std::filesystem::path home);

    /// Where the machine's Library and Applications lie: "/" unless the home is on a disk of another machine.
    std::filesystem::path machineRoot = "/";
    BaseFolders baseFolders;

    // --- Effects: replaceable, with live defaults --------------------------------------------------------

    /// The programs that run from a file or a folder.
    std::function<std::vector<RunningProgram>(const std::filesystem::path&)> programsRunningFrom;
    /// Measures one item. Throws ScanError.
    std::function<DirectoryMeasurement(const std::filesystem::path&, const CancellationToken&)> measure;
    /// What moves the items, and notes it.
    TrashService trash;

    // -----------------------------------------------------------------------------------------------------

    const std::filesystem::path& home() const { return home_; }

    /// The applications in the folders where they are kept, the user's and the machine's, by path.
    std::future<std::vector<InstalledApplication>> installed() const;

    /// What uninstalling the application at this path would take away: of a bundle, an AppImage, a folder in
    /// "~/.local/opt", or the menu entry of one. Changes nothing. Once cancelled, leftovers and sizes are
    /// missing.
    std::future<UninstallPlan> plan(std::filesystem::path application, CancellationToken token = {}) const;

    /// Moves the items of a plan to the Trash as one set, in their order; one outcome each. The caller leaves
    /// out of the plan what is to stay. Nothing is moved of a plan that was refused, or when the application
    /// runs by now; when the application itself cannot be moved, the rest stays with it. An item that is not
    /// the one which was looked at any more stays. Once cancelled, so do those that are left.
    std::future<std::vector<TrashOutcome>> carryOut(UninstallPlan plan, CancellationToken token = {}) const;

private:
    std::filesystem::path home_;
};

/// The applications whose identifier or one of whose names this is, in any case of ASCII letters.
std::vector<InstalledApplication> applicationsCalled(std::string_view word,
                                                     const std::vector<InstalledApplication>& applications);

} // namespace tarnwell
