#include "TarnwellTidyKit/Commands/TidyRunner.hpp"

#include "TarnwellCore/Scanning/ScanError.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Version.hpp"
#include "TarnwellTidyKit/Commands/TidyCommand.hpp"
#include "TarnwellTidyKit/Commands/TidyHelpText.hpp"

#include <exception>
#include <new>
#include <stdexcept>
#include <utility>
#include <variant>

namespace tarnwell::TidyRunner {

namespace {

TidyResult failure(std::int32_t exitCode, std::string_view message) {
    return {.exitCode = exitCode, .standardError = "tarnwell-tidy: " + std::string(message) + "\n"};
}

TidyResult usageFailure(std::string_view message) {
    if (message.empty()) // nothing was asked for
        return {.exitCode = TidyResult::usageError, .standardError = tidyHelp()};
    TidyResult result = failure(TidyResult::usageError, message);
    result.standardError += "See `tarnwell-tidy --help` for what there is.\n";
    return result;
}

/// Every command has a `run`; these are what the program says of itself.
struct Dispatch {
    TidyContext& context;
    const TidyBrowser& browser;

    TidyResult operator()(const TidyHelp& help) const {
        return {.standardOutput = help.command == nullptr ? tidyHelp() : tidyHelp(*help.command)};
    }
    TidyResult operator()(const TidyVersion&) const {
        return {.standardOutput = "tarnwell-tidy " TARNWELL_VERSION "\n"};
    }
    TidyResult operator()(const TidyWords& request) const {
        return {.standardOutput = tidyCompletions(request.words)};
    }
    TidyResult operator()(const BrowseRequest& request) const {
        return tarnwell::run(request, context, browser);
    }
    template <class Request>
    TidyResult operator()(const Request& request) const {
        return tarnwell::run(request, context);
    }
};

/// Whether --json was given. A terminal obeys some characters of names, which a document may have as they
/// are.
bool printsDocument(const TidyCommand& command) {
    return std::visit(
        [](const auto& request) {
            if constexpr (requires { request.output.json; })
                return request.output.json;
            else
                return false;
        },
        command);
}

TidyResult runUnguarded(std::span<const std::string> arguments, const TidyServices& services,
                        const TidySurroundings& surroundings, const TidyBrowser& browser) {
    TidyCommand command;
    try {
        command = readTidyCommand(arguments);
    } catch (const TidyUsageError& error) {
        return usageFailure(error.what());
    }
    TidySurroundings harmlessSurroundings;
    const bool isDocument = printsDocument(command);
    if (isDocument) {
        harmlessSurroundings = surroundings;
        if (surroundings.output)
            harmlessSurroundings.output = [&](std::string_view piece) {
                surroundings.output(harmlessJSON(piece));
            };
    }
    TidyContext context(services, isDocument ? harmlessSurroundings : surroundings);
    try {
        TidyResult result = std::visit(Dispatch{context, browser}, command);
        if (isDocument)
            result.standardOutput = harmlessJSON(result.standardOutput);
        return result;
    } catch (const TidyUsageError& error) {
        return usageFailure(error.what());
    } catch (const TidyInterrupted&) {
        return {.exitCode = TidyResult::interrupted};
    } catch (const ScanError& error) {
        if (error.kind() == ScanError::Kind::cancelled)
            return {.exitCode = TidyResult::interrupted};
        return failure(TidyResult::failed, harmless(error.what()));
    }
}

} // namespace

TidyResult run(std::span<const std::string> arguments, const TidyServices& services,
               const TidySurroundings& surroundings, const TidyBrowser& browser) noexcept {
    try {
        return runUnguarded(arguments, services, surroundings, browser);
    } catch (const std::bad_alloc&) {
        return failure(TidyResult::failed, "There is not enough memory.");
    } catch (const std::length_error&) {
        return failure(TidyResult::failed, "There is not enough memory.");
    } catch (const std::exception& error) {
        return failure(TidyResult::failed, harmless(error.what()));
    } catch (...) {
        return failure(TidyResult::failed, "An unknown error occurred.");
    }
}

} // namespace tarnwell::TidyRunner
