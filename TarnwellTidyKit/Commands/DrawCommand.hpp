#pragma once

// draw FOLDER: a picture of a folder as a file.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"
#include "TarnwellTidyKit/Pictures/PictureRequest.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace tarnwell {

struct DrawRequest {
    enum class Format : std::uint8_t { html, svg };

    std::string folder;
    PictureKind kind = PictureKind::treemap;
    Format format = Format::html;
    /// The file as typed; "-" for standard output. Nothing for one in the working folder, named after the
    /// folder and the kind.
    std::optional<std::string> file = {};
    std::int64_t levels = 3;
    std::int64_t top = 20;
    bool open = false;
    bool dryRun = false;
    TidyScanChoices scan;
    TidyOutputChoices output;

    bool operator==(const DrawRequest&) const = default;

    static const TidyCommandSpec spec;
    static DrawRequest read(const TidyArguments& arguments);
};

TidyResult run(const DrawRequest& request, TidyContext& context);

} // namespace tarnwell
