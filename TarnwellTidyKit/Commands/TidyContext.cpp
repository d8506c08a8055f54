#include "TarnwellTidyKit/Commands/TidyContext.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/TidyProgress.hpp"

#include <algorithm>
#include <cstdint>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

AppSettings& TidyContext::settings() {
    if (!settings_)
        settings_ = std::make_unique<AppSettings>(services.settings());
    return *settings_;
}

TidyStyle TidyContext::style(const TidyOutputChoices& choices) const {
    const bool isWanted =
        choices.color == TidyColor::always ||
        (choices.color == TidyColor::automatic && surroundings.isTerminal && surroundings.hasColors);
    return {.hasColors = isWanted,
            .hasBars = surroundings.isTerminal || choices.color == TidyColor::always,
            .columns = surroundings.isTerminal ? surroundings.columns : 0};
}

ScanOptions TidyContext::scanOptions(const TidyScanChoices& choices) {
    ScanOptions options = settings().scanOptions();
    for (const std::string& path : choices.excludedPaths)
        options.excludedPaths.insert(DiskScanner::normalize(expandTilde(path)));
    options.excludedNames.insert(choices.excludedNames.begin(), choices.excludedNames.end());
    options.crossFilesystemBoundaries = options.crossFilesystemBoundaries || choices.crossFileSystems;
    options.excludeHidden = choices.leaveOutHidden;
    if (choices.threads)
        options.workerCount = *choices.threads;
    return options;
}

SizeMode TidyContext::sizeMode(const TidyScanChoices& choices) {
    return choices.sizeMode ? *choices.sizeMode : settings().sizeMode();
}

ScanResult TidyContext::scan(const std::string& folder, const TidyScanChoices& choices) {
    const TidyProgress progress(surroundings);
    return services.scan(expandTilde(folder), scanOptions(choices), progress.handler(), token()).get();
}

TidyContext::Consent TidyContext::consent(const TidyActChoices& choices, const std::string& question) const {
    if (choices.yes)
        return Consent::given;
    if (!surroundings.ask)
        return Consent::impossible;
    return surroundings.ask(question) ? Consent::given : Consent::refused;
}

TidyResult TidyContext::withoutConsent(Consent consent) {
    if (consent == Consent::impossible)
        return {.exitCode = TidyResult::usageError,
                .standardError =
                    "tarnwell-tidy: Nobody can be asked here, so nothing was done. --yes does it without "
                    "asking, --dry-run says what would be done.\n"};
    return {.exitCode = TidyResult::failed, .standardError = "Nothing was done.\n"};
}

TextOutput TidyContext::output() const {
    return surroundings.output ? TextOutput(surroundings.output) : TextOutput();
}

std::string TidyContext::unreadableText(const ScanResult& result, const TidyStyle& style) const {
    const ScanStats& stats = result.stats;
    if (stats.inaccessibleCount == 0 && stats.inaccessibleEntryCount == 0)
        return {};
    constexpr std::size_t shown = 5;
    std::string what;
    if (stats.inaccessibleCount > 0)
        what = countedText(stats.inaccessibleCount, "folder", "folders");
    if (stats.inaccessibleEntryCount > 0)
        what += (what.empty() ? "" : " and ") +
                countedText(stats.inaccessibleEntryCount, "other item", "other items");
    std::string text = style.painted("Could not be read: " + what + ".", TidyRole::warning) + "\n";
    const auto& paths = result.inaccessiblePaths;
    for (std::size_t index = 0; index < std::min(shown, paths.size()); ++index)
        text +=
            "  " + fitted(paths[index], style.columns > 4 ? style.columns - 4 : SIZE_MAX, Cut::start) + "\n";
    // The list may be shorter than the count: it has its bounds.
    const auto listed = static_cast<std::int64_t>(std::min(shown, paths.size()));
    if (stats.inaccessibleCount > listed)
        text += "  and " + groupedNumber(stats.inaccessibleCount - listed) + " more\n";
    const FullDiskAccessStatus access = services.diskAccess();
    if (access == FullDiskAccessStatus::denied)
        text += wrappedText(std::string(FullDiskAccess::explanation(access)) +
                                " It is given to the terminal in System Settings, under Privacy & Security.",
                            style.columns, 0);
    else
        text +=
            wrappedText("What belongs to other users can be read by the administrator: put sudo in front.",
                        style.columns, 0);
    return text;
}

fs::path typedPath(std::string_view typed) {
    const std::string expanded = expandTilde(typed);
    const fs::path path(PathUtil::withoutTrailingSlashes(expanded));
    const fs::path name = path.filename();
    if (name.empty() || name == "." || name == "..")
        return DiskScanner::normalize(path);
    return fs::path(DiskScanner::normalize(path.has_parent_path() ? path.parent_path() : ".")) / name;
}

void writeUnreadable(JSONWriter& json, const ScanStats& stats) {
    json.key("inaccessibleCount");
    json.integer(stats.inaccessibleCount);
}

std::string tidyDocument(const std::function<void(JSONWriter&)>& first,
                         const std::function<void(JSONWriter&)>& last) {
    TextOutput output;
    return tidyDocument(output, first, last);
}

std::string tidyDocument(TextOutput& output, const std::function<void(JSONWriter&)>& first,
                         const std::function<void(JSONWriter&)>& last) {
    JSONWriter writer(output.text());
    writer.beginObject();
    first(writer);
    writer.key("version");
    writer.integer(1);
    if (last)
        last(writer);
    writer.endObject();
    output.text() += '\n';
    return output.finish();
}

} // namespace tarnwell
