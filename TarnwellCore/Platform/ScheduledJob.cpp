#include "TarnwellCore/Platform/ScheduledJob.hpp"

#include "TarnwellCore/Platform/LenientJSON.hpp"

#include <algorithm>
#include <stdexcept>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// Throws where no system could be told of this job.
void require(const ScheduledJob& job) {
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-_";
    const auto fail = [](const char* reason) { throw std::invalid_argument(reason); };
    if (job.name.empty() || job.name.starts_with('.') || job.name.find_first_not_of(plain) != job.name.npos)
        fail("A scheduled job needs a plain name.");
    if (job.command.empty() || !job.command.front().starts_with('/'))
        fail("A scheduled job needs the absolute path of a program.");
    if (job.description.find_first_of(std::string_view("\0\n\r", 3)) != std::string::npos)
        fail("The description of a scheduled job must be one line.");
    for (const std::string& word : job.command)
        if (word.find('\0') != std::string::npos)
            fail("A word of a scheduled job must not hold a zero byte.");
}

// --- Property lists ---------------------------------------------------------------------------------------

std::string xmlText(std::string_view text) {
    // Two characters of Unicode are none of XML.
    const bool isText =
        isUTF8(text) && text.find("\xEF\xBF\xBE") == text.npos && text.find("\xEF\xBF\xBF") == text.npos;
    if (!isText)
        throw std::invalid_argument("A property list cannot hold a path that is no text.");
    std::string escaped;
    for (const char byte : text)
        switch (byte) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '\r': // a bare one would be read as a line feed
            escaped += "&#13;";
            break;
        default:
            if (static_cast<unsigned char>(byte) < 0x20 && byte != '\t' && byte != '\n')
                throw std::invalid_argument("A property list cannot hold the control characters of a path.");
            escaped += byte;
        }
    return escaped;
}

// --- Units of systemd -------------------------------------------------------------------------------------

/// A word of a command line, as systemd reads it: quoted, "%" and "$" doubled, what is no plain ASCII as
/// \xHH.
std::string quotedWord(std::string_view word) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string quoted = "\"";
    for (const char byte : word) {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '"' || byte == '\\')
            quoted.append({'\\', byte});
        else if (byte == '%' || byte == '$')
            quoted.append({byte, byte});
        else if (value < 0x20 || value >= 0x7F)
            quoted.append("\\x").append({digits[value >> 4], digits[value & 15]});
        else
            quoted += byte;
    }
    return quoted + '"';
}

/// Whether systemd takes this path for a program: it knows no quotes, backslashes and control characters
/// there, and makes nothing of "$".
bool isPlainProgram(std::string_view path) {
    return std::ranges::none_of(path, [](unsigned char byte) {
        return byte < 0x20 || byte == 0x7F || byte == '"' || byte == '\'' || byte == '\\' || byte == '$';
    });
}

std::string describedUnit(const ScheduledJob& job) {
    std::string description;
    for (const char byte : job.description)
        description.append(byte == '%' ? 2 : 1, byte);
    // A line that ends in a backslash would go on in the next.
    while (description.ends_with('\\'))
        description.pop_back();
    return "[Unit]\nDescription=" + description + "\n";
}

} // namespace

std::string LaunchAgent::propertyList(const ScheduledJob& job) {
    require(job);
    std::string text = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>Label</key>
	<string>)" + job.name +
                       R"(</string>
	<key>LowPriorityIO</key>
	<true/>
	<key>ProcessType</key>
	<string>Background</string>
	<key>ProgramArguments</key>
	<array>
)";
    for (const std::string& word : job.command)
        text += "\t\t<string>" + xmlText(word) + "</string>\n";
    // Intervals that pass while the machine sleeps come to one start when it wakes.
    return text + R"(	</array>
	<key>RunAtLoad</key>
	<true/>
	<key>StartInterval</key>
	<integer>3600</integer>
</dict>
</plist>
)";
}

ScheduledJobPlan LaunchAgent::plan(const ScheduledJob& job, const fs::path& home, unsigned userID) {
    const fs::path file = home / "Library/LaunchAgents" / (job.name + ".plist");
    const std::string session = "gui/" + std::to_string(userID);
    const std::string tool = "/bin/launchctl";
    ScheduledJobPlan plan;
    plan.files.push_back({file, propertyList(job)});
    plan.deactivation.push_back({tool, "bootout", session + "/" + job.name});
    plan.activation.push_back({tool, "bootstrap", session, file.string()});
    return plan;
}

std::string SystemdUser::serviceUnit(const ScheduledJob& job) {
    require(job);
    std::string text = describedUnit(job) + R"(
[Service]
Type=oneshot
Nice=19
CPUSchedulingPolicy=batch
IOSchedulingClass=idle
ExecStart=)";
    if (!isPlainProgram(job.command.front()))
        text += "/bin/sh -c " + quotedWord("exec \"$0\" \"$@\"") + " ";
    for (std::size_t index = 0; index < job.command.size(); ++index)
        text += (index > 0 ? " " : "") + quotedWord(job.command[index]);
    return text + "\n";
}

std::string SystemdUser::timerUnit(const ScheduledJob& job) {
    require(job);
    return describedUnit(job) + R"(
[Timer]
OnCalendar=hourly
RandomizedDelaySec=300
Persistent=true

[Install]
WantedBy=timers.target
)";
}

ScheduledJobPlan SystemdUser::plan(const ScheduledJob& job, const fs::path& configuration) {
    const fs::path folder = configuration / "systemd/user";
    const std::string timer = job.name + ".timer";
    const std::string tool = "/usr/bin/systemctl";
    ScheduledJobPlan plan;
    plan.files.push_back({folder / (job.name + ".service"), serviceUnit(job)});
    plan.files.push_back({folder / timer, timerUnit(job)});
    plan.activation.push_back({tool, "--user", "daemon-reload"});
    plan.activation.push_back({tool, "--user", "enable", "--now", timer});
    plan.deactivation.push_back({tool, "--user", "disable", "--now", timer});
    plan.cleaning.push_back({tool, "--user", "daemon-reload"});
    return plan;
}

} // namespace tarnwell
