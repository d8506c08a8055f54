#include "TarnwellCLIKit/CLIRunner.hpp"

#include "TarnwellCLIKit/CLIParser.hpp"
#include "TarnwellCLIKit/CLIRender.hpp"
#include "TarnwellCLIKit/CLIUsage.hpp"
#include "TarnwellCLIKit/SnapshotCommands.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

namespace tarnwell::CLIRunner {

namespace {

constexpr std::int32_t runtimeFailure = 1;
constexpr std::int32_t usageError = 2;

CLIResult success(std::string text) {
    return {.exitCode = 0, .standardOutput = std::move(text), .standardError = {}};
}

CLIResult failure(std::int32_t exitCode, std::string message) {
    if (!message.ends_with('\n'))
        message += '\n';
    return {.exitCode = exitCode, .standardOutput = {}, .standardError = std::move(message)};
}

/// The same for a message that may quote anything. The lines that it ends with are its own.
CLIResult failure(std::int32_t exitCode, std::string_view message, NameStyle style) {
    if (style == NameStyle::verbatim)
        return failure(exitCode, std::string(message));
    std::string_view end = message.ends_with('\n') ? "\n" : "";
    if (message.ends_with(CLIParser::messageEnd))
        end = CLIParser::messageEnd;
    message.remove_suffix(end.size());
    return failure(exitCode, harmless(message).append(end));
}

void render(const CLIListedScan& scan, CLITextFormat format, const TextSink& output, NameStyle style) {
    switch (format) {
    case CLITextFormat::human:
        return CLIRender::human(scan, output, style);
    case CLITextFormat::json:
        return CLIRender::json(scan, output, style);
    case CLITextFormat::csv:
        return CLIRender::csv(scan, output, style);
    }
}

std::string rendered(const CLIListedScan& scan, CLITextFormat format, NameStyle style) {
    switch (format) {
    case CLITextFormat::human:
        break;
    case CLITextFormat::json:
        return CLIRender::json(scan, style);
    case CLITextFormat::csv:
        return CLIRender::csv(scan, style);
    }
    return CLIRender::human(scan, style);
}

/// One overload a command.
struct Dispatch {
    const CLIServices& services;
    const TextSink& output;
    CLIStyles styles;

    CLIResult operator()(const CLIScanRequest& request) const {
        const ScanResult result = services.scan(expandTilde(request.path)).get();
        if (!result.root)
            return failure(runtimeFailure, "The scan gave no tree.");
        const CLIListedScan scan =
            CLIRender::listedScan(*result.root, request.sizeMode, request.depth, request.top);
        if (!output)
            return success(rendered(scan, request.format, styles.output));
        render(scan, request.format, output, styles.output);
        return success({});
    }
    CLIResult operator()(const CLISnapshotSave& request) const {
        return saveSnapshot(request.path, request.json, services, styles);
    }
    CLIResult operator()(const CLISnapshotList& request) const {
        return listSnapshots(request.json, services, styles);
    }
    CLIResult operator()(const CLISnapshotDiff& request) const {
        return diffSnapshots(request.before, request.after, request.json, services, styles);
    }
    CLIResult operator()(const CLIHelp&) const { return success(std::string(CLIUsage::text())); }
};

} // namespace

CLIResult run(std::span<const std::string> arguments, const CLIServices& services, const TextSink& output,
              CLIStyles styles) noexcept {
    try {
        auto command = CLIParser::parse(arguments);
        if (!command)
            return failure(usageError, command.error().message, styles.error);
        return std::visit(Dispatch{services, output, styles}, *command);
    } catch (const std::bad_alloc&) {
        return failure(runtimeFailure, "There is not enough memory.");
    } catch (const std::length_error&) {
        return failure(runtimeFailure, "There is not enough memory.");
    } catch (const std::exception& error) {
        return failure(runtimeFailure, error.what(), styles.error);
    } catch (...) {
        return failure(runtimeFailure, "An unknown error occurred.");
    }
}

} // namespace tarnwell::CLIRunner
