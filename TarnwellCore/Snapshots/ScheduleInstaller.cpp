#include "TarnwellCore/Snapshots/ScheduleInstaller.hpp"

#include "TarnwellCore/Platform/DurableFile.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/ToolRun.hpp"
#include "TarnwellCore/Platform/WholeFile.hpp"
#include "TarnwellCore/Text/Trim.hpp"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>

namespace tarnwell {

namespace {

void removeFile(const std::filesystem::path& path) {
    if (FileCalls::live().unlink(path.c_str()) == -1 && errno != ENOENT && errno != ENOTDIR)
        throw std::system_error(errno, std::generic_category(), "Could not remove " + path.string());
}

std::optional<std::string> runToEnd(const ScheduledJobPlan::Command& command) {
    const std::optional<ToolRun> run =
        runTool(command.front(), {command.begin() + 1, command.end()}, {.timeout = 30.0, .gracePeriod = 1.0});
    if (!run)
        return command.front() + " could not be started.";
    if (run->hasTimedOut)
        return command.front() + " gave no answer.";
    if (run->status == 0)
        return std::nullopt;
    const std::string message(trimmed(run->standardError));
    return command.front() + " failed" + (message.empty() ? "." : ": " + message);
}

} // namespace

const ScheduleInstaller& ScheduleInstaller::live() {
    static const ScheduleInstaller installer{
        .write =
            [](const ScheduledJobPlan::File& file) {
                createFoldersDurably(file.path.parent_path());
                replaceFileDurably(file.path, file.contents);
            },
        .remove = removeFile,
        .contents = [](const std::filesystem::path& path) -> std::optional<std::string> {
            WholeFile file = WholeFile::read(path);
            return file.outcome == WholeFile::Outcome::read ? std::optional(std::move(file.text))
                                                            : std::nullopt;
        },
        .run = runToEnd,
    };
    return installer;
}

ScheduleInstaller::State ScheduleInstaller::state(const ScheduledJobPlan& plan) const {
    std::size_t found = 0;
    std::size_t same = 0;
    for (const ScheduledJobPlan::File& file : plan.files) {
        const std::optional<std::string> text = contents(file.path);
        found += text ? 1U : 0U;
        same += text == file.contents ? 1U : 0U;
    }
    if (found == 0)
        return State::absent;
    return same == plan.files.size() ? State::installed : State::different;
}

std::optional<std::string> ScheduleInstaller::install(const ScheduledJobPlan& plan) const {
    std::vector<std::filesystem::path> made;
    try {
        for (const ScheduledJobPlan::File& file : plan.files) {
            const bool isNew = !contents(file.path);
            write(file);
            if (isNew)
                made.push_back(file.path);
        }
    } catch (const std::system_error&) {
        for (const std::filesystem::path& path : made)
            remove(path);
        throw;
    }
    // A job of an earlier installation would go on as it was.
    for (const ScheduledJobPlan::Command& command : plan.deactivation)
        run(command);
    for (const ScheduledJobPlan::Command& command : plan.activation)
        if (std::optional<std::string> failure = run(command))
            return failure;
    return std::nullopt;
}

void ScheduleInstaller::uninstall(const ScheduledJobPlan& plan) const {
    if (state(plan) == State::absent)
        return;
    for (const ScheduledJobPlan::Command& command : plan.deactivation)
        run(command);
    std::exception_ptr failure;
    for (const ScheduledJobPlan::File& file : plan.files)
        try {
            remove(file.path);
        } catch (const std::system_error&) {
            failure = std::current_exception();
        }
    for (const ScheduledJobPlan::Command& command : plan.cleaning)
        run(command);
    if (failure)
        std::rethrow_exception(failure);
}

ScheduledJob snapshotScheduleJob(const std::string& program, const std::vector<std::string>& arguments) {
    ScheduledJob job{.name = "com.tarnwell.snapshot-schedule",
                     .description = "Snapshots of how disk space is used, at the chosen cadence",
                     .command = {program}};
    job.command.insert(job.command.end(), arguments.begin(), arguments.end());
    return job;
}

} // namespace tarnwell
