// The argument parser. Input: one argument a line.
// Exercises: TarnwellCLIKit/CLIParser.cpp

#include "TarnwellCLIKit/CLIParser.hpp"

#include <algorithm>
#include <string>
#include <variant>
#include <vector>

#include "Fuzz/Require.hpp"
#include "Fuzz/TextInput.hpp"

namespace tarnwell::fuzz {

namespace {

using Words = std::vector<std::string>;

/// The arguments that ask for a command in the plainest way.
struct ArgumentsOf {
    Words operator()(const CLIScanRequest& request) const {
        Words words{"scan", request.path, "--depth", std::to_string(request.depth),
                    "--size-mode=" + std::string(rawValue(request.sizeMode))};
        if (request.top)
            words.push_back("--top=" + std::to_string(*request.top));
        if (request.format != CLITextFormat::human)
            words.emplace_back(request.format == CLITextFormat::json ? "--json" : "--csv");
        return words;
    }
    Words operator()(const CLISnapshotSave& save) const {
        return withJSON({"snapshot", "save", save.path}, save.json);
    }
    Words operator()(const CLISnapshotList& list) const { return withJSON({"snapshot", "list"}, list.json); }
    Words operator()(const CLISnapshotDiff& diff) const {
        return withJSON({"snapshot", "diff", diff.before, diff.after}, diff.json);
    }
    Words operator()(const CLIHelp&) const { return {"--help"}; }

    static Words withJSON(Words words, bool json) {
        if (json)
            words.emplace_back("--json");
        return words;
    }
};

/// Whether a path was given as one, and could have been.
void requirePath(const std::string& path, const Words& arguments) {
    require(std::ranges::find(arguments, path) != arguments.end(), "a path is one of the arguments");
    require(!path.starts_with('-'), "a path is no flag");
}

void requireGoodCommand(const CLICommand& command, const Words& arguments) {
    if (const auto* scan = std::get_if<CLIScanRequest>(&command)) {
        requirePath(scan->path, arguments);
        require(!scan->path.empty() && scan->depth >= 0 && scan->top.value_or(0) >= 0, "a scan makes sense");
    } else if (const auto* save = std::get_if<CLISnapshotSave>(&command)) {
        requirePath(save->path, arguments);
        require(!save->path.empty(), "a snapshot is of something");
    } else if (const auto* diff = std::get_if<CLISnapshotDiff>(&command)) {
        requirePath(diff->before, arguments);
        requirePath(diff->after, arguments);
    }
    require(CLIParser::parse(std::visit(ArgumentsOf(), command)) == command,
            "a command asked for plainly is the same command");
    // All of the arguments were read, so one more is read as well.
    Words more = arguments;
    more.emplace_back("-h");
    require(CLIParser::parse(more) == CLICommand(CLIHelp()), "a last \"-h\" gives help");
    more.back() = "--no-such-flag";
    require(std::holds_alternative<CLIHelp>(command) || !CLIParser::parse(more), "a last flag is looked at");
}

/// The message without the frame that every message has.
std::string specificText(const std::string& message) {
    const std::string begin = "tarnwell: ";
    const std::string end = "\nSee `tarnwell --help` for usage.\n";
    require(message.starts_with(begin) && message.ends_with(end) &&
                message.size() > begin.size() + end.size(),
            "an error has the frame of every error");
    return message.substr(begin.size(), message.size() - begin.size() - end.size());
}

void requireKnownError(const std::string& message, const Words& arguments) {
    static const Words texts = {"no command given",
                                "scan requires a path",
                                "--size-mode needs apparent, allocated, or reclaimable",
                                "--top needs a non-negative integer",
                                "--depth needs a non-negative integer",
                                "pass either --json or --csv",
                                "snapshot requires save, diff, or list",
                                "snapshot save requires a path",
                                "snapshot save accepts --json",
                                "snapshot list accepts --json",
                                "snapshot diff accepts --json",
                                "snapshot diff requires <before> and <after>"};
    const std::string text = specificText(message);
    bool isKnown = std::ranges::find(texts, text) != texts.end();
    for (const std::string& argument : arguments)
        for (const char* what :
             {"unknown command '", "unexpected argument '", "unknown flag '", "unknown snapshot command '"})
            isKnown = isKnown || text == what + argument + "'";
    require(isKnown, "an error is one of those there are");
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    fuzz::TextInput input(data, size);
    fuzz::Words arguments;
    while (!input.isAtEnd())
        arguments.emplace_back(input.take('\n'));
    const CLIParser::Result result = CLIParser::parse(arguments);
    if (result)
        fuzz::requireGoodCommand(*result, arguments);
    else
        fuzz::requireKnownError(result.error().message, arguments);
    return 0;
}
