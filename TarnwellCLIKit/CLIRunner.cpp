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

void render(const CLIListedScan& scan, CLITextFormat format, const TextSink& output) {
    switch (format) {
    case CLITextFormat::human:
        return CLIRender::human(scan, output);
    case CLITextFormat::json:
        return CLIRender::json(scan, output);
    case CLITextFormat::csv:
        return CLIRender::csv(scan, output);
    }
}

std::string rendered(const CLIListedScan& scan, CLITextFormat format) {
    switch (format) {
    case CLITextFormat::human:
        break;
    case CLITextFormat::json:
        return CLIRender::json(scan);
    case CLITextFormat::csv:
        return CLIRender::csv(scan);
    }
    return CLIRender::human(scan);
}

/// One overload a command.
struct Dispatch {
    const CLIServices& services;
    const TextSink& output;

    CLIResult operator()(const CLIScanRequest& request) const {
        const ScanResult result = services.scan(expandTilde(request.path)).get();
        if (!result.root)
            return failure(runtimeFailure, "The scan gave no tree.");
        const CLIListedScan scan =
            CLIRender::listedScan(*result.root, request.sizeMode, request.depth, request.top);
        if (!output)
            return success(rendered(scan, request.format));
        render(scan, request.format, output);
        return success({});
    }
    CLIResult operator()(const CLISnapshotSave& request) const {
        return saveSnapshot(request.path, request.json, services);
    }
    CLIResult operator()(const CLISnapshotList& request) const {
        return listSnapshots(request.json, services);
    }
    CLIResult operator()(const CLISnapshotDiff& request) const {
        return diffSnapshots(request.before, request.after, request.json, services);
    }
    CLIResult operator()(const CLIHelp&) const { return success(std::string(CLIUsage::text())); }
};

} // namespace

CLIResult run(std::span<const std::string> arguments, const CLIServices& services,
              const TextSink& output) noexcept {
    try {
        auto command = CLIParser::parse(arguments);
        if (!command)
            return failure(usageError, std::move(command.error().message));
        return std::visit(Dispatch{services, output}, *command);
    } catch (const std::bad_alloc&) {
        return failure(runtimeFailure, "There is not enough memory.");
    } catch (const std::length_error&) {
        return failure(runtimeFailure, "There is not enough memory.");
    } catch (const std::exception& error) {
        return failure(runtimeFailure, error.what());
    } catch (...) {
        return failure(runtimeFailure, "An unknown error occurred.");
    }
}

} // namespace tarnwell::CLIRunner
