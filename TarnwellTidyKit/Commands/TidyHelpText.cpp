#include "TarnwellTidyKit/Commands/TidyHelpText.hpp"

#include "TarnwellTidyKit/Commands/TidyCommand.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <algorithm>
#include <string_view>
#include <vector>

namespace tarnwell {

namespace {

constexpr std::size_t helpColumns = 80;

struct Line {
    std::string left;
    std::string right;
};

/// Two columns, the right one wrapped.
void addLines(std::string& text, const std::vector<Line>& lines, std::size_t indent) {
    std::size_t width = 0;
    for (const Line& line : lines)
        width = std::max(width, line.left.size());
    const std::size_t column = indent + width + 2;
    for (const Line& line : lines) {
        std::string right = wrappedText(line.right, helpColumns, column);
        right.erase(0, std::min(column, right.size() - 1));
        text += std::string(indent, ' ') + line.left + std::string(width - line.left.size() + 2, ' ') + right;
    }
}

/// The name with what it takes; of a command that takes one thing or another only that it takes more.
std::string shortUsageOf(const TidyCommandSpec& command) {
    std::string usage(command.name);
    if (command.operands.find(" | ") != std::string_view::npos)
        usage += " ...";
    else if (!command.operands.empty())
        usage += " " + std::string(command.operands);
    return usage;
}

/// A line for each thing that it takes.
std::string usageOf(const TidyCommandSpec& command) {
    std::string text;
    std::string_view rest = command.operands;
    do {
        const auto end = rest.find(" | ");
        const std::string operands(rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 3);
        text += (text.empty() ? "Usage: tarnwell-tidy " : "       tarnwell-tidy ") +
                std::string(command.name) + (operands.empty() ? "" : " " + operands) + " [OPTIONS]\n";
    } while (!rest.empty());
    return text;
}

void addOptions(std::string& text, std::string_view heading, std::span<const TidyOptionSpec> options) {
    if (options.empty())
        return;
    text += "\n" + std::string(heading) + "\n";
    std::vector<Line> lines;
    for (const TidyOptionSpec& option : options) {
        std::string left = (option.name == "--help" ? "-h, " : "") + std::string(option.name);
        if (!option.isFlag())
            left += " " + std::string(option.value);
        lines.push_back({left, std::string(option.help)});
    }
    addLines(text, lines, 2);
}

} // namespace

std::string tidyHelp() {
    std::string text = "tarnwell-tidy — find what takes the space on a disk, and give it back\n\n"
                       "Usage: tarnwell-tidy [FOLDER] [OPTIONS]   browse, on a terminal\n"
                       "       tarnwell-tidy COMMAND [OPTIONS]\n";
    std::vector<std::string_view> groups;
    for (const TidyCommandSpec* command : tidyCommandSpecs())
        if (std::ranges::find(groups, command->group) == groups.end())
            groups.push_back(command->group);
    for (const std::string_view group : groups) {
        text += "\n" + std::string(group) + "\n";
        std::vector<Line> lines;
        for (const TidyCommandSpec* command : tidyCommandSpecs())
            if (command->group == group)
                lines.push_back({shortUsageOf(*command), std::string(command->summary)});
        addLines(text, lines, 2);
    }
    addOptions(text, "Browsing", BrowseRequest::spec.options);
    addOptions(text, "Every command", tidyOutputOptions());
    addOptions(text, "What reads folders, browsing too", tidyScanOptions());
    addOptions(text, "What changes something", tidyActOptions());
    text += "\nSizes are written 4096, 500MB or 1.5GiB; ages 30d, 6w, 1y or 2024-05-01. A folder\n"
            "that is named like a command is written ./report.\n\n"
            "Exit codes: 0 all went well, 1 something failed, 2 the command was not understood.\n"
            "tarnwell-tidy COMMAND --help tells more about a command.\n";
    return text;
}

std::string tidyHelp(const TidyCommandSpec& command) {
    std::string text = "tarnwell-tidy " + std::string(command.name) + " — " + std::string(command.summary) +
                       "\n\n" + usageOf(command) + "\n" + wrappedText(command.details, helpColumns, 0);
    addOptions(text, "Options", command.options);
    if ((command.shared & static_cast<unsigned>(TidyShared::scan)) != 0)
        addOptions(text, "What is read (else as the settings have it)", tidyScanOptions());
    if ((command.shared & static_cast<unsigned>(TidyShared::act)) != 0)
        addOptions(text, "Before something changes", tidyActOptions());
    addOptions(text, "As everywhere", tidyOutputOptions());
    return text;
}

std::string tidyCompletions(std::span<const std::string> words) {
    std::string text;
    const std::string current = words.empty() ? std::string() : words.back();
    const auto offer = [&](std::string_view word, std::string_view meaning) {
        if (word.starts_with(current))
            text += std::string(word) + "\t" + std::string(meaning) + "\n";
    };
    const auto askFor = [&](TidyCompletes what) {
        if (what != TidyCompletes::nothing)
            text += what == TidyCompletes::folders ? ":folders\n" : ":paths\n";
    };
    const TidyCommandLine line =
        TidyCommandLine::split(words.empty() ? words : words.first(words.size() - 1));
    const TidyCommandSpec* command = line.command ? tidyCommandSpec(*line.command) : nullptr;
    const bool isHelp = line.command == "help";
    if (isHelp) {
        for (const TidyCommandSpec* each : tidyCommandSpecs())
            if (line.rest.empty())
                offer(each->name, each->summary);
        return text;
    }
    // Browsing: a folder and its options.
    const bool isBrowsing = command == nullptr;
    if (isBrowsing && line.command && !BrowseRequest::isFolder(*line.command))
        return text;
    if (isBrowsing)
        command = &BrowseRequest::spec;
    std::size_t operands = isBrowsing && line.command ? 1 : 0;
    const TidyOptionSpec* pending = nullptr;
    bool onlyOperands = false;
    for (const std::string& word : line.rest) {
        if (pending != nullptr) {
            pending = nullptr;
            continue;
        }
        if (onlyOperands || word.size() < 2 || word.front() != '-') {
            ++operands;
            continue;
        }
        onlyOperands = word == "--";
        forEachOption(*command, [&](const TidyOptionSpec& option) {
            if (option.name == word && !option.isFlag())
                pending = &option;
        });
    }
    if (pending != nullptr) {
        forEachWord(pending->choices, [&](std::string_view choice) { offer(choice, pending->help); });
        askFor(pending->completes);
        return text;
    }
    if (current.starts_with('-') && !onlyOperands) {
        forEachOption(*command, [&](const TidyOptionSpec& option) { offer(option.name, option.help); });
        return text;
    }
    if (operands == 0)
        forEachWord(command->words, [&](std::string_view word) { offer(word, command->summary); });
    if (isBrowsing && operands == 0 && !onlyOperands) {
        for (const TidyCommandSpec* each : tidyCommandSpecs())
            offer(each->name, each->summary);
        offer("help", "Tell more about a command");
    }
    const bool isBehind = command->completesBehind.empty() ||
                          std::ranges::find(line.rest, command->completesBehind) != line.rest.end();
    if (isBehind && (!isBrowsing || operands == 0))
        askFor(command->completes);
    return text;
}

} // namespace tarnwell
