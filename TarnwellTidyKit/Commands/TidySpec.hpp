#pragma once

// What a command is called, what it takes and what is said about it: the one table behind the parser, the
// help, the suggestions and the completions.

#include <cstdint>
#include <span>
#include <string_view>

namespace tarnwell {

/// What a shell may complete in a place.
enum class TidyCompletes : std::uint8_t { nothing, folders, paths };

struct TidyOptionSpec {
    /// With its hyphens.
    std::string_view name = {};
    /// What the help calls the value; empty for a flag.
    std::string_view value = {};
    std::string_view help = {};
    /// All values there are, separated by "|"; empty when any will do.
    std::string_view choices = {};
    TidyCompletes completes = TidyCompletes::nothing;

    bool isFlag() const { return value.empty(); }
};

/// Options that several commands share.
enum class TidyShared : std::uint8_t {
    scan = 1, ///< what a scan leaves out and which size counts
    act = 2,  ///< for what changes something: --yes, --dry-run
};
constexpr unsigned operator|(TidyShared a, TidyShared b) {
    return static_cast<unsigned>(a) | static_cast<unsigned>(b);
}

struct TidyCommandSpec {
    std::string_view name = {};
    /// The heading of the help under which it stands.
    std::string_view group = {};
    /// As the help writes them, such as "PATH...".
    std::string_view operands = {};
    /// One line, no full stop.
    std::string_view summary = {};
    /// Sentences that follow in the command's own help.
    std::string_view details = {};
    /// Words that may stand in the place of the first operand, separated by "|".
    std::string_view words = {};
    TidyCompletes completes = TidyCompletes::nothing;
    /// The word behind which alone that is so; empty for everywhere.
    std::string_view completesBehind = {};
    /// Bits of TidyShared.
    unsigned shared = 0;
    std::span<const TidyOptionSpec> options = {};
};

/// What every command takes.
std::span<const TidyOptionSpec> tidyOutputOptions();
std::span<const TidyOptionSpec> tidyScanOptions();
std::span<const TidyOptionSpec> tidyActOptions();

/// Calls `body(const TidyOptionSpec&)` for everything that a command takes, its own options first.
template <class Body>
void forEachOption(const TidyCommandSpec& command, Body&& body) {
    for (const TidyOptionSpec& option : command.options)
        body(option);
    if ((command.shared & static_cast<unsigned>(TidyShared::scan)) != 0)
        for (const TidyOptionSpec& option : tidyScanOptions())
            body(option);
    if ((command.shared & static_cast<unsigned>(TidyShared::act)) != 0)
        for (const TidyOptionSpec& option : tidyActOptions())
            body(option);
    for (const TidyOptionSpec& option : tidyOutputOptions())
        body(option);
}

/// Calls `body(std::string_view)` for each part of a text like "a|b".
template <class Body>
void forEachWord(std::string_view words, Body&& body) {
    while (!words.empty()) {
        const auto end = words.find('|');
        body(words.substr(0, end));
        words = end == std::string_view::npos ? std::string_view() : words.substr(end + 1);
    }
}

} // namespace tarnwell
