#pragma once

// Has the system run the schedule of snapshots, and no longer.

#include "TarnwellCore/Platform/ScheduledJob.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// What is done to the system, to be replaced in tests.
struct ScheduleInstaller {
    // --- Effects --------------------------------------------------------------------------------------

    /// Writes a file durably, with the folders above it; throws std::system_error.
    std::function<void(const ScheduledJobPlan::File& file)> write;
    /// Removes a file, when there is one; throws std::system_error.
    std::function<void(const std::filesystem::path& path)> remove;
    /// What a file holds; nothing where there is none, or it cannot be read.
    std::function<std::optional<std::string>(const std::filesystem::path& path)> contents;
    /// Runs a tool to its end. Why it failed, for the user; nothing when it did not.
    std::function<std::optional<std::string>(const ScheduledJobPlan::Command& command)> run;

    /// The system's own; a tool gets 30 seconds.
    static const ScheduleInstaller& live();

    // --- The work -------------------------------------------------------------------------------------

    enum class State : std::uint8_t {
        absent,    ///< none of the files is there
        different, ///< some are missing or say something else, for instance of a program at another place
        installed, ///< all are as planned
    };
    State state(const ScheduledJobPlan& plan) const;

    /// Puts the files in place and activates the job; installed already, it is installed anew. Where a tool
    /// fails (there may be no session to activate it in), the files stay, and the text says why nothing runs
    /// yet; to install once more is the way on. Throws std::system_error when a file cannot be written; then
    /// no new one stays.
    std::optional<std::string> install(const ScheduledJobPlan& plan) const;

    /// Deactivates the job and removes its files. Throws std::system_error when one cannot be removed; the
    /// others are.
    void uninstall(const ScheduledJobPlan& plan) const;
};

/// The job that runs `<program> <arguments>` for the schedule of snapshots. `program` is an absolute path.
ScheduledJob snapshotScheduleJob(const std::string& program, const std::vector<std::string>& arguments);

} // namespace tarnwell
