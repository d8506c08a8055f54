#include "TarnwellCLIKit/CLIParser.hpp"

#include <charconv>
#include <utility>
#include <vector>

namespace tarnwell::CLIParser {

namespace {

/// Reads the arguments once, from left to right.
class ArgumentReader {
public:
    explicit ArgumentReader(Arguments arguments) : arguments_(arguments) {}

    bool isAtEnd() const { return position_ == arguments_.size(); }
    const std::string& next() { return arguments_[position_++]; }

    /// The value of `flag` when `argument` is that flag: what follows it, or what stands behind its "=".
    /// A flag at the end of the list has no value.
    struct Value {
        bool isFlag = false;
        std::optional<std::string_view> text = {};
    };
    Value valueOf(std::string_view flag, std::string_view argument) {
        if (argument == flag)
            return {true, isAtEnd() ? std::nullopt : std::optional<std::string_view>(next())};
        if (argument.starts_with(flag) && argument.substr(flag.size()).starts_with('='))
            return {true, argument.substr(flag.size() + 1)};
        return {};
    }

private:
    Arguments arguments_;
    std::size_t position_ = 0;
};

std::unexpected<CLIParseError> failure(std::string_view text) {
    std::string message = "tarnwell: ";
    message += text;
    message += messageEnd;
    return std::unexpected(CLIParseError{std::move(message)});
}

std::unexpected<CLIParseError> failure(std::string_view text, std::string_view argument) {
    std::string quoted(text);
    quoted += " '";
    quoted += argument;
    quoted += '\'';
    return failure(quoted);
}

bool isHelpFlag(std::string_view argument) {
    return argument == "--help" || argument == "-h";
}

bool isHelp(std::string_view argument) {
    return isHelpFlag(argument) || argument == "help";
}

Result parseScan(Arguments arguments) {
    CLIScanRequest request;
    std::optional<std::string> path;
    ArgumentReader reader(arguments);
    while (!reader.isAtEnd()) {
        const std::string& argument = reader.next();
        if (isHelpFlag(argument))
            return CLIHelp{};
        if (argument == "--json" || argument == "--csv") {
            const CLITextFormat format = argument == "--json" ? CLITextFormat::json : CLITextFormat::csv;
            if (request.format != CLITextFormat::human && request.format != format)
                return failure("pass either --json or --csv");
            request.format = format;
        } else if (const auto depth = reader.valueOf("--depth", argument); depth.isFlag) {
            const auto number = depth.text.and_then(nonNegative);
            if (!number)
                return failure("--depth needs a non-negative integer");
            request.depth = *number;
        } else if (const auto top = reader.valueOf("--top", argument); top.isFlag) {
            request.top = top.text.and_then(nonNegative);
            if (!request.top)
                return failure("--top needs a non-negative integer");
        } else if (const auto sizeMode = reader.valueOf("--size-mode", argument); sizeMode.isFlag) {
            const auto mode = sizeMode.text.and_then(sizeModeFromRawValue);
            if (!mode)
                return failure("--size-mode needs apparent, allocated, or reclaimable");
            request.sizeMode = *mode;
        } else if (argument.starts_with('-')) {
            return failure("unknown flag", argument);
        } else if (path) {
            return failure("unexpected argument", argument);
        } else {
            path = argument;
        }
    }
    if (!path || path->empty())
        return failure("scan requires a path");
    request.path = *std::move(path);
    return request;
}

/// What the three snapshot commands have in common.
struct SnapshotArguments {
    bool isHelp = false;
    bool json = false;
    std::vector<std::string> positionals = {};
};

std::expected<SnapshotArguments, CLIParseError>
readSnapshotArguments(Arguments arguments, std::string_view csvError, std::size_t maximumPositionals) {
    SnapshotArguments result;
    for (const std::string& argument : arguments) {
        if (isHelpFlag(argument)) {
            result.isHelp = true;
            return result;
        }
        if (argument == "--json")
            result.json = true;
        else if (argument == "--csv")
            return failure(csvError);
        else if (argument.starts_with('-'))
            return failure("unknown flag", argument);
        else if (result.positionals.size() == maximumPositionals)
            return failure("unexpected argument", argument);
        else
            result.positionals.push_back(argument);
    }
    return result;
}

Result parseSnapshotSave(Arguments arguments) {
    auto read = readSnapshotArguments(arguments, "snapshot save accepts --json", 1);
    if (!read)
        return std::unexpected(std::move(read.error()));
    if (read->isHelp)
        return CLIHelp{};
    if (read->positionals.empty() || read->positionals.front().empty())
        return failure("snapshot save requires a path");
    return CLISnapshotSave{std::move(read->positionals.front()), read->json};
}

Result parseSnapshotList(Arguments arguments) {
    auto read = readSnapshotArguments(arguments, "snapshot list accepts --json", 0);
    if (!read)
        return std::unexpected(std::move(read.error()));
    if (read->isHelp)
        return CLIHelp{};
    return CLISnapshotList{read->json};
}

Result parseSnapshotDiff(Arguments arguments) {
    auto read = readSnapshotArguments(arguments, "snapshot diff accepts --json", arguments.size());
    if (!read)
        return std::unexpected(std::move(read.error()));
    if (read->isHelp)
        return CLIHelp{};
    if (read->positionals.size() != 2)
        return failure("snapshot diff requires <before> and <after>");
    return CLISnapshotDiff{std::move(read->positionals[0]), std::move(read->positionals[1]), read->json};
}

Result parseSnapshot(Arguments arguments) {
    if (arguments.empty())
        return failure("snapshot requires save, diff, or list");
    const std::string& command = arguments.front();
    const Arguments rest = arguments.subspan(1);
    if (isHelp(command))
        return CLIHelp{};
    if (command == "save")
        return parseSnapshotSave(rest);
    if (command == "list")
        return parseSnapshotList(rest);
    if (command == "diff")
        return parseSnapshotDiff(rest);
    return failure("unknown snapshot command", command);
}

} // namespace

Result parse(Arguments arguments) {
    if (arguments.empty())
        return failure("no command given");
    const std::string& command = arguments.front();
    const Arguments rest = arguments.subspan(1);
    if (isHelp(command))
        return CLIHelp{};
    if (command == "scan")
        return parseScan(rest);
    if (command == "snapshot")
        return parseSnapshot(rest);
    return failure("unknown command", command);
}

std::optional<std::int64_t> nonNegative(std::string_view text) {
    // from_chars reads a "-" itself, but no "+".
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-'))
            return std::nullopt;
    }
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < 0)
        return std::nullopt;
    return value;
}

} // namespace tarnwell::CLIParser
