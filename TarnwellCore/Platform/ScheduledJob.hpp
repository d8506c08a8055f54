#pragma once

// A program that the system starts now and then for the user: by launchd on macOS, by a systemd user timer on
// Linux. What has to lie where, and which tools have to be told, is plain data, so that it can be shown,
// tested and read anywhere; ScheduleInstaller (in Snapshots) puts it there and takes it away.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// What is to be started. Every hour: whether anything is due then is for the program to tell, so that
/// nothing is missed while the machine sleeps or is off.
struct ScheduledJob {
    /// ASCII letters, digits, ".", "-" and "_", such as "com.tarnwell.snapshot-schedule".
    std::string name;
    /// For people, one line.
    std::string description;
    /// The program by its absolute path, then its arguments. Any bytes but NUL.
    std::vector<std::string> command;
};

/// What makes the system start a job.
struct ScheduledJobPlan {
    struct File {
        std::filesystem::path path;
        std::string contents;

        bool operator==(const File&) const = default;
    };
    /// A tool by its absolute path, and its arguments.
    using Command = std::vector<std::string>;

    std::vector<File> files;
    /// Run once the files are there, in this order; the last decides whether the job is active.
    std::vector<Command> activation;
    /// Run before the files are taken away. They fail where the job is not active, which does not matter.
    std::vector<Command> deactivation;
    /// Run after that.
    std::vector<Command> cleaning;
};

/// The plan of the system that this runs on. Throws std::invalid_argument for a job that the system has no
/// way to write down: a name of other characters, a program that is not absolute, NUL, and on macOS what is
/// no text.
ScheduledJobPlan planForThisSystem(const ScheduledJob& job);

// The two plans themselves, and their texts; they can be made anywhere.

namespace LaunchAgent {

/// A property list in XML.
std::string propertyList(const ScheduledJob& job);
/// In "Library/LaunchAgents" of the home, for the login session of this user.
ScheduledJobPlan plan(const ScheduledJob& job, const std::filesystem::path& home, unsigned userID);

} // namespace LaunchAgent

namespace SystemdUser {

std::string serviceUnit(const ScheduledJob& job);
std::string timerUnit(const ScheduledJob& job);
/// In "systemd/user" of the user's folder for configuration (`$XDG_CONFIG_HOME`, or "~/.config").
ScheduledJobPlan plan(const ScheduledJob& job, const std::filesystem::path& configuration);

} // namespace SystemdUser

} // namespace tarnwell
