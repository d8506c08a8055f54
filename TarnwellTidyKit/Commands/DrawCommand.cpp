#include "TarnwellTidyKit/Commands/DrawCommand.hpp"

#include "TarnwellCore/Platform/WholeFile.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Pictures/Picture.hpp"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using Format = DrawRequest::Format;

constexpr TidyOptionSpec options[] = {
    {.name = "--as",
     .value = "KIND",
     .help = "treemap, sunburst, icicle or bars (treemap)",
     .choices = "treemap|sunburst|icicle|bars"},
    {.name = "--output",
     .value = "FILE",
     .help = "Write this file; - for standard output (FOLDER-KIND.html)",
     .completes = TidyCompletes::paths},
    {.name = "--format",
     .value = "FORMAT",
     .help = "html or svg (as the file's name ends; html)",
     .choices = "html|svg"},
    {.name = "--levels", .value = "N", .help = "Show N levels of folders in one another (3)"},
    {.name = "--top", .value = "N", .help = "Show N bars beside the one for the rest (20)"},
    {.name = "--open", .value = "", .help = "Open the picture when it is written"},
    {.name = "--dry-run", .value = "", .help = "Say what would be written, and write nothing"},
};

std::string_view rawValue(Format format) {
    return format == Format::svg ? "svg" : "html";
}

bool endsLike(std::string_view name, std::string_view ending) {
    return name.size() > ending.size() &&
           std::ranges::equal(name.substr(name.size() - ending.size()), ending,
                              [](char letter, char lower) { return (letter | 0x20) == lower; });
}

/// A file name of what the folder is called.
std::string defaultName(const fs::path& folder, const DrawRequest& request) {
    constexpr std::size_t longest = 180; // bytes; file systems know 255, a temporary name beside it takes 42
    std::string name = folder.filename().native();
    if (name.empty())
        name = "disk";
    if (name.front() == '.' || name.front() == '-')
        name.insert(0, "folder");
    std::size_t end = std::min(longest, name.size());
    while (end < name.size() && (name[end] & 0xC0) == 0x80) // not within a character
        --end;
    return name.substr(0, end) + "-" + std::string(rawValue(request.kind)) + "." +
           std::string(rawValue(request.format));
}

/// Whether a file is one of these pictures, which may be replaced without being named.
bool isPicture(const fs::path& file) {
    const WholeFile whole = WholeFile::read(file);
    return whole.outcome == WholeFile::Outcome::read &&
           std::string_view(whole.text).substr(0, 1'000).contains(pictureMark);
}

/// Where the picture goes. Throws when something is in the way.
fs::path target(const DrawRequest& request) {
    const fs::path file = request.file
                              ? typedPath(*request.file)
                              : fs::path(DiskScanner::normalize(".")) /
                                    defaultName(DiskScanner::normalize(typedPath(request.folder)), request);
    std::error_code error;
    const fs::file_status status = fs::symlink_status(file, error);
    const std::string& name = file.native();
    if (status.type() == fs::file_type::not_found) {
        if (!fs::is_directory(file.parent_path(), error))
            throw std::runtime_error(file.parent_path().native() + " is no folder that " +
                                     file.filename().native() + " could be written in.");
        return file;
    }
    // A device or a pipe is for whoever reads it; a file that takes its name would be gone with it.
    if (status.type() != fs::file_type::regular && status.type() != fs::file_type::symlink)
        throw std::runtime_error(name + " is no file that a picture could replace.");
    if (!request.file && (status.type() == fs::file_type::symlink || !isPicture(file)))
        throw std::runtime_error(name + " is there already and is no picture of this program. --output " +
                                 "names another file, or this one to replace it.");
    return file;
}

std::string documentOf(const ScanResult& scan, const DrawRequest& request, const fs::path& file,
                       SizeMode mode) {
    return tidyDocument([&](JSONWriter& json) {
        json.key("file");
        json.string(file.native());
        json.key("format");
        json.string(rawValue(request.format));
        writeUnreadable(json, scan.stats);
        json.key("isWritten");
        json.boolean(!request.dryRun);
        json.key("kind");
        json.string(rawValue(request.kind));
        json.key("path");
        json.string(scan.root->path());
        json.key("sizeMode");
        json.string(rawValue(mode));
    });
}

std::string pictureOf(const ScanResult& scan, const DrawRequest& request, SizeMode mode) {
    const PictureRequest picture{.folder = scan.root.get(),
                                 .kind = request.kind,
                                 .sizeMode = mode,
                                 .levels = request.levels,
                                 .barCount = static_cast<std::size_t>(request.top)};
    return request.format == Format::svg ? drawSVG(picture) : drawHTML(picture);
}

} // namespace

const TidyCommandSpec DrawRequest::spec = {
    .name = "draw",
    .group = "Look",
    .operands = "FOLDER",
    .summary = "A picture of a folder, for a browser",
    .details =
        "Writes a page or an image that needs nothing else: what is pointed at says what it is, a click on a "
        "folder goes into it (200 folders can be entered, those drawn first), colours are categories, light "
        "and dark follow the reader's wish, and there is "
        "no script in it. A file that --output names is replaced; the one that is written without it, named "
        "after the folder in the working folder, only if it is such a picture. It is written whole or not at "
        "all, and only its owner may read it.",
    .completes = TidyCompletes::folders,
    .shared = static_cast<unsigned>(TidyShared::scan),
    .options = options,
};

DrawRequest DrawRequest::read(const TidyArguments& arguments) {
    DrawRequest request{
        .folder = arguments.onlyOperand(), .scan = arguments.scan(), .output = arguments.output()};
    request.kind = pictureKindFromRawValue(arguments.value("--as").value_or("")).value_or(request.kind);
    request.file = arguments.value("--output");
    request.levels = arguments.count("--levels", 1).value_or(request.levels);
    request.top = arguments.count("--top", 1).value_or(request.top);
    request.open = arguments.has("--open");
    request.dryRun = arguments.has("--dry-run");
    if (request.file && request.file->empty())
        throw TidyUsageError("--output needs the name of a file.");
    if (const auto format = arguments.value("--format"))
        request.format = *format == "svg" ? Format::svg : Format::html;
    else if (request.file && endsLike(*request.file, ".svg"))
        request.format = Format::svg;
    else if (request.file && *request.file != "-" && !endsLike(*request.file, ".html") &&
             !endsLike(*request.file, ".htm"))
        throw TidyUsageError(
            "What kind of file '" + harmless(*request.file) +
            "' shall be, its name does not say: it ends in .html or .svg, or --format does.");
    if (request.file == "-" && (request.open || request.output.json || request.dryRun))
        throw TidyUsageError("--output - writes the picture alone, without --open, --json and --dry-run.");
    return request;
}

TidyResult run(const DrawRequest& request, TidyContext& context) {
    const bool isPrinted = request.file == "-";
    const fs::path file = isPrinted ? fs::path() : target(request); // said before the folder is read
    ScanResult scan = context.scan(request.folder, request.scan);
    if (!scan.root->isDirectory())
        throw std::runtime_error(scan.root->path() + " is not a folder.");
    const SizeMode mode = context.sizeMode(request.scan);
    const TidyStyle style = context.style(request.output);
    TidyResult result;
    if (!request.output.json)
        result.standardError = context.unreadableText(scan, style);
    if (isPrinted) {
        result.standardOutput = pictureOf(scan, request, mode);
        context.keep(std::move(scan));
        return result;
    }
    if (!request.dryRun) {
        const std::string picture = pictureOf(scan, request, mode);
        context.act([&] { context.services.writeFile(file, picture); });
    }
    result.standardOutput = request.output.json
                                ? documentOf(scan, request, file, mode)
                                : harmless(file.native()) + (request.dryRun ? " would be written.\n" : "\n");
    if (request.open && !request.dryRun && !context.services.open(file)) {
        result.exitCode = TidyResult::failed;
        result.standardError += "tarnwell-tidy: " + harmless(file.native()) +
                                " is written, but there is no desktop here that could open it.\n";
    }
    context.keep(std::move(scan));
    return result;
}

} // namespace tarnwell
