#include "TarnwellTidyKit/Commands/BrowseCommand.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace tarnwell {

namespace fs = std::filesystem;

namespace {

constexpr TidyOptionSpec options[] = {
    {.name = "--read-only", .help = "Browse without being able to change anything"},
};

} // namespace

constexpr TidyCommandSpec BrowseRequest::spec = {
    .name = "tarnwell-tidy",
    .operands = "[FOLDER]",
    .summary = "Browse a folder, or the volumes, on the whole terminal",
    .completes = TidyCompletes::folders,
    .shared = static_cast<unsigned>(TidyShared::scan),
    .options = options,
};

BrowseRequest BrowseRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(0, 1);
    BrowseRequest request;
    if (!arguments.operands().empty())
        request.folder = arguments.operands().front();
    request.isReadOnly = arguments.has("--read-only");
    const TidyOutputChoices output = arguments.output();
    if (output.json)
        throw TidyUsageError("--json goes with a command, such as report.");
    request.color = output.color;
    request.scan = arguments.scan();
    return request;
}

bool BrowseRequest::isFolder(const std::string& word) {
    std::error_code ignored;
    return word.find('/') != std::string::npos || word.starts_with('~') || word.starts_with('.') ||
           fs::is_directory(word, ignored);
}

TidyResult run(const BrowseRequest& request, TidyContext& context, const TidyBrowser& browser) {
    if (!browser)
        throw TidyUsageError(request.folder.empty()
                                 ? ""
                                 : "Browsing takes a terminal. To print what is in that folder, "
                                   "type: tarnwell-tidy report " +
                                       harmless(request.folder));
    std::string folder;
    if (!request.folder.empty()) {
        folder = typedPath(request.folder).native();
        std::error_code ignored;
        if (!fs::exists(folder, ignored))
            throw std::runtime_error("There is nothing at " + folder + ".");
        if (!fs::is_directory(folder, ignored))
            throw std::runtime_error(folder + " is not a folder.");
    }
    return {.exitCode = browser(request, folder, context)};
}

} // namespace tarnwell
