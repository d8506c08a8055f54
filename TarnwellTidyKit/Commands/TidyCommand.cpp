#include "TarnwellTidyKit/Commands/TidyCommand.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"

#include <algorithm>
#include <array>
#include <vector>

namespace tarnwell {

namespace {

struct Row {
    const TidyCommandSpec* spec;
    TidyCommand (*read)(const TidyArguments&);
};

template <class Request>
constexpr Row row() {
    return {&Request::spec,
            [](const TidyArguments& arguments) -> TidyCommand { return Request::read(arguments); }};
}

constexpr std::array rows = {
    row<ReportRequest>(),    row<FindRequest>(),    row<FreesRequest>(),    row<DuplicatesRequest>(),
    row<FindingsRequest>(),  row<ChangesRequest>(), row<HistoryRequest>(),  row<VolumesRequest>(),
    row<DrawRequest>(),      row<CleanRequest>(),   row<TrashRequest>(),    row<EvictRequest>(),
    row<UninstallRequest>(), row<RulesRequest>(),   row<ScheduleRequest>(), row<SettingsRequest>(),
};

const Row* rowOf(std::string_view name) {
    const auto found = std::ranges::find_if(rows, [&](const Row& row) { return row.spec->name == name; });
    return found == rows.end() ? nullptr : &*found;
}

[[noreturn]] void failUnknownCommand(const std::string& name) {
    std::vector<std::string_view> names = {"help"};
    for (const Row& row : rows)
        names.push_back(row.spec->name);
    std::string message = "There is no command '" + harmless(name) + "'.";
    const std::string_view nearest = nearestWord(name, names);
    if (!nearest.empty())
        message += " Did you mean " + std::string(nearest) + "?";
    throw TidyUsageError(message);
}

} // namespace

std::span<const TidyCommandSpec* const> tidyCommandSpecs() {
    static const auto specs = [] {
        std::array<const TidyCommandSpec*, rows.size()> all{};
        std::ranges::transform(rows, all.begin(), &Row::spec);
        return all;
    }();
    return specs;
}

const TidyCommandSpec* tidyCommandSpec(std::string_view name) {
    const Row* found = rowOf(name);
    return found == nullptr ? nullptr : found->spec;
}

TidyCommand readTidyCommand(std::span<const std::string> arguments) {
    if (!arguments.empty() && arguments.front() == "complete-words")
        return TidyWords{{arguments.begin() + 1, arguments.end()}};
    const TidyCommandLine line = TidyCommandLine::split(arguments);
    const auto asks = [&](std::string_view word) {
        return std::ranges::find(line.rest, word) != line.rest.end();
    };
    if (!line.command) {
        if (asks("--help") || asks("-h"))
            return TidyHelp{};
        if (asks("--version"))
            return TidyVersion{};
        return BrowseRequest::read(TidyArguments::read(BrowseRequest::spec, line.rest));
    }
    if (*line.command == "help") {
        if (line.rest.empty())
            return TidyHelp{};
        const Row* found = rowOf(line.rest.front());
        if (found == nullptr)
            failUnknownCommand(line.rest.front());
        return TidyHelp{found->spec};
    }
    const Row* found = rowOf(*line.command);
    if (found == nullptr && BrowseRequest::isFolder(*line.command)) {
        std::vector<std::string> words = {*line.command};
        words.insert(words.end(), line.rest.begin(), line.rest.end());
        const TidyArguments read = TidyArguments::read(BrowseRequest::spec, words);
        if (read.has("--help"))
            return TidyHelp{};
        return BrowseRequest::read(read);
    }
    if (found == nullptr)
        failUnknownCommand(*line.command);
    const TidyArguments read = TidyArguments::read(*found->spec, line.rest);
    if (read.has("--help"))
        return TidyHelp{found->spec};
    return found->read(read);
}

} // namespace tarnwell
