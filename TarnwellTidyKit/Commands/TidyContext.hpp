#pragma once

// What a command works with: services, settings, surroundings, and what several commands do in the same way.

#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellTidyKit/Commands/TidyChoices.hpp"
#include "TarnwellTidyKit/Commands/TidyResult.hpp"
#include "TarnwellTidyKit/Commands/TidyServices.hpp"
#include "TarnwellTidyKit/Commands/TidySurroundings.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnwell {

class JSONWriter;

/// Lives as long as one command. Confined to the command's thread.
class TidyContext {
public:
    TidyContext(const TidyServices& theServices, const TidySurroundings& theSurroundings)
        : services(theServices), surroundings(theSurroundings) {}

    const TidyServices& services;
    const TidySurroundings& surroundings;

    /// Opened when first asked for.
    AppSettings& settings();
    TidyStyle style(const TidyOutputChoices& choices) const;
    const CancellationToken& token() const { return surroundings.interruption->token(); }

    // --- Looking --------------------------------------------------------------------------------------

    /// The settings' options, changed by what was chosen.
    ScanOptions scanOptions(const TidyScanChoices& choices);
    SizeMode sizeMode(const TidyScanChoices& choices);
    /// Scans a folder as it was typed, with a line that tells how far it is. Throws ScanError.
    ScanResult scan(const std::string& folder, const TidyScanChoices& choices);
    /// Leaves a result that is done with to whoever runs the command.
    void keep(ScanResult result) const { surroundings.finished->push_back(std::move(result)); }

    // --- Acting ---------------------------------------------------------------------------------------

    enum class Consent : std::uint8_t { given, refused, impossible };
    /// Whether to go on: --yes was given, or whoever sits at the terminal says so. `impossible` when there is
    /// nobody to ask.
    Consent consent(const TidyActChoices& choices, const std::string& question) const;
    /// The result of a command that did not get consent.
    static TidyResult withoutConsent(Consent consent);
    /// Runs one indivisible step. Throws TidyInterrupted when the program was interrupted before it.
    template <class Step>
    auto act(Step&& step) const {
        const TidyInterruption::Act guard(*surroundings.interruption);
        return std::forward<Step>(step)();
    }

    // --- Saying ---------------------------------------------------------------------------------------

    /// Where a text goes that may be far longer than what it is made of.
    TextOutput output() const;
    /// What is said to people about folders that could not be read; empty when all could.
    std::string unreadableText(const ScanResult& result, const TidyStyle& style) const;

private:
    std::unique_ptr<AppSettings> settings_;
};

/// The path in full: tilde, "." and ".." and links on the way resolved as the kernel would, the last
/// component not followed, whatever stands behind it.
std::filesystem::path typedPath(std::string_view typed);

/// Writes how many folders could not be read.
void writeUnreadable(JSONWriter& json, const ScanStats& stats);

/// A JSON document of version 1. Keys stand in ascending order: `first` writes those before "version", `last`
/// those behind it.
std::string tidyDocument(const std::function<void(JSONWriter&)>& first,
                         const std::function<void(JSONWriter&)>& last = {});
/// The same, handed on in pieces; `output.endPart()` may be called between two elements.
std::string tidyDocument(TextOutput& output, const std::function<void(JSONWriter&)>& first,
                         const std::function<void(JSONWriter&)>& last = {});

} // namespace tarnwell
