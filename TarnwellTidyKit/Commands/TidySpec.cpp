#include "TarnwellTidyKit/Commands/TidySpec.hpp"

namespace tarnwell {

namespace {

constexpr TidyOptionSpec outputOptions[] = {
    {.name = "--json", .value = "", .help = "Print a JSON document"},
    {.name = "--color",
     .value = "WHEN",
     .help = "Use colours: auto, always, never",
     .choices = "auto|always|never"},
    {.name = "--help", .value = "", .help = "Print this help"},
};

constexpr TidyOptionSpec scanOptions[] = {
    {.name = "--size-mode",
     .value = "MODE",
     .help = "Which size counts: apparent, allocated, reclaimable",
     .choices = "apparent|allocated|reclaimable"},
    {.name = "--exclude",
     .value = "PATH",
     .help = "Leave out this folder or file; may be repeated",
     .completes = TidyCompletes::paths},
    {.name = "--exclude-name", .value = "NAME", .help = "Leave out everything of this name; may be repeated"},
    {.name = "--cross", .value = "", .help = "Enter other file systems"},
    {.name = "--no-hidden", .value = "", .help = "Leave out what is hidden"},
    {.name = "--threads", .value = "N", .help = "Read with this many threads"},
};

constexpr TidyOptionSpec actOptions[] = {
    {.name = "--yes", .value = "", .help = "Do not ask first"},
    {.name = "--dry-run", .value = "", .help = "Say what would be done, and do nothing"},
};

} // namespace

std::span<const TidyOptionSpec> tidyOutputOptions() {
    return outputOptions;
}
std::span<const TidyOptionSpec> tidyScanOptions() {
    return scanOptions;
}
std::span<const TidyOptionSpec> tidyActOptions() {
    return actOptions;
}

} // namespace tarnwell
