#include "TarnwellTidyKit/Commands/FreesCommand.hpp"

#include "TarnwellCore/Analysis/FreedSpace.hpp"
#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

constexpr TidyOptionSpec options[] = {
    {.name = "--within",
     .value = "FOLDER",
     .help = "Look through this folder for what shares with them",
     .completes = TidyCompletes::folders},
};

/// The folder that all of them lie in.
fs::path commonFolder(const std::vector<fs::path>& paths) {
    fs::path folder = paths.front().parent_path();
    while (!std::ranges::all_of(paths, [&](const fs::path& path) { return liesIn(path, folder); }))
        folder = folder.parent_path();
    return folder;
}

std::string_view nameOf(FreedSpaceReason reason) {
    switch (reason) {
    case FreedSpaceReason::linksElsewhere:
        return "linksElsewhere";
    case FreedSpaceReason::linksOutside:
        return "linksOutside";
    case FreedSpaceReason::sharedElsewhere:
        return "sharedElsewhere";
    case FreedSpaceReason::sharersUnknown:
        return "sharersUnknown";
    case FreedSpaceReason::storedOtherwise:
        return "storedOtherwise";
    case FreedSpaceReason::placeholder:
        return "placeholder";
    case FreedSpaceReason::onlySums:
        return "onlySums";
    case FreedSpaceReason::unseen:
        return "unseen";
    }
    return "unseen";
}

std::string textOf(const FreedBytes& freed, const TidyStyle& style) {
    std::string text = "At least  " + style.painted(sizeText(freed.atLeast), TidyRole::strong) + "\n";
    if (freed.atMost != freed.atLeast)
        text += "At most   " + style.painted(sizeText(freed.atMost), TidyRole::strong) + "\n";
    for (const FreedBytes::Reason& reason : freed.reasons) {
        const bool isUnseen = reason.kind == FreedSpaceReason::unseen;
        text += "  " + std::string(isUnseen ? "" : sizeText(reason.bytes) + " in ") +
                countedText(reason.count, isUnseen ? "entry" : "file", isUnseen ? "entries" : "files") +
                ": " + std::string(tarnwell::text(reason.kind)) + "\n";
        for (const FileNode* node : reason.elsewhere)
            text += "    " +
                    fitted(node->path(), style.columns > 4 ? style.columns - 4 : SIZE_MAX, Cut::start) + "\n";
    }
    return text;
}

void write(JSONWriter& json, const FreedBytes& freed, const ScanStats& stats) {
    json.key("atLeast");
    json.integer(freed.atLeast);
    json.key("atMost");
    json.integer(freed.atMost);
    writeUnreadable(json, stats);
    json.key("reasons");
    json.beginArray();
    for (const FreedBytes::Reason& reason : freed.reasons) {
        json.beginObject();
        json.key("bytes");
        json.integer(reason.bytes);
        json.key("count");
        json.integer(reason.count);
        json.key("elsewhere");
        json.beginArray();
        for (const FileNode* node : reason.elsewhere)
            json.string(node->path());
        json.endArray();
        json.key("kind");
        json.string(nameOf(reason.kind));
        json.key("text");
        json.string(text(reason.kind));
        json.endObject();
    }
    json.endArray();
}

} // namespace

const TidyCommandSpec FreesRequest::spec = {
    .name = "frees",
    .group = "Look",
    .operands = "PATH...",
    .summary = "What goes free when these go together, and why not more",
    .details =
        "Of hard links nothing goes free until the last one goes, and of blocks that clones share until "
        "every "
        "file that uses them goes. Looks through the folder that holds all paths, or with --within a larger "
        "one: the more it sees, the more it can promise. Deletes nothing.",
    .completes = TidyCompletes::paths,
    .shared = static_cast<unsigned>(TidyShared::scan),
    .options = options,
};

FreesRequest FreesRequest::read(const TidyArguments& arguments) {
    arguments.expectOperands(1, SIZE_MAX);
    return {.paths = arguments.operands(),
            .within = arguments.value("--within"),
            .scan = arguments.scan(),
            .output = arguments.output()};
}

TidyResult run(const FreesRequest& request, TidyContext& context) {
    std::vector<fs::path> paths;
    for (const std::string& typed : request.paths)
        paths.push_back(typedPath(typed));
    const std::string folder = request.within ? *request.within : commonFolder(paths).native();
    ScanResult scan = context.scan(folder, request.scan);
    std::vector<const FileNode*> nodes;
    for (const fs::path& path : paths) {
        const FileNode* node = scan.root->node(path.native());
        if (node == nullptr)
            throw std::runtime_error(path.native() + " is not in " + scan.root->path() + ".");
        nodes.push_back(node);
    }
    const FreedBytes freed = FreedSpace(scan).of(nodes);
    TidyResult result;
    if (request.output.json) {
        result.standardOutput = tidyDocument([&](JSONWriter& json) { write(json, freed, scan.stats); });
    } else {
        const TidyStyle style = context.style(request.output);
        result.standardOutput = textOf(freed, style);
        result.standardError = context.unreadableText(scan, style);
    }
    context.keep(std::move(scan));
    return result;
}

} // namespace tarnwell
