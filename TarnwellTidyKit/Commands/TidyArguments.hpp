#pragma once

// The words of a command line, taken apart by the table of a command; nothing is carried out.

#include "TarnwellTidyKit/Commands/TidyChoices.hpp"
#include "TarnwellTidyKit/Commands/TidySpec.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// A command line that is not understood. `what()` is the message for the user, without the program's name.
class TidyUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The arguments of one command. Readers throw TidyUsageError for a value that makes no sense.
class TidyArguments {
public:
    /// Takes the words behind the command's name apart. Throws TidyUsageError for an option that the command
    /// does not have (with a suggestion), for a missing or superfluous value, and for a value that is none of
    /// the option's choices. Words behind "--" are operands.
    static TidyArguments read(const TidyCommandSpec& command, std::span<const std::string> words);

    const TidyCommandSpec& command() const { return *command_; }
    const std::vector<std::string>& operands() const { return operands_; }
    /// Throws unless there are at least and at most so many operands, none of them empty.
    void expectOperands(std::size_t least, std::size_t most) const;
    /// The only operand.
    const std::string& onlyOperand() const;

    bool has(std::string_view option) const { return values_.contains(option); }
    /// The last one given.
    std::optional<std::string> value(std::string_view option) const;
    /// All that were given, in order.
    std::vector<std::string> values(std::string_view option) const;
    std::optional<std::int64_t> count(std::string_view option, std::int64_t least = 0) const;
    std::optional<double> number(std::string_view option, double least) const;
    /// Bytes.
    std::optional<std::int64_t> size(std::string_view option) const;

    TidyOutputChoices output() const;
    TidyScanChoices scan() const;
    TidyActChoices act() const;

private:
    const TidyCommandSpec* command_ = nullptr;
    std::vector<std::string> operands_;
    std::map<std::string, std::vector<std::string>, std::less<>> values_;
};

/// Where a command line names its command: options that all commands share may stand in front of it.
struct TidyCommandLine {
    /// Nothing when there is none.
    std::optional<std::string> command;
    /// All other words in their order.
    std::vector<std::string> rest;

    static TidyCommandLine split(std::span<const std::string> words);
};

/// The one of some words that was probably meant; empty when none is near.
std::string_view nearestWord(std::string_view typed, std::span<const std::string_view> words);
/// The same for words like "a|b".
std::string_view nearestOf(std::string_view typed, std::string_view words);
/// Throws TidyUsageError for a word that is none of the command's, with a suggestion.
[[noreturn]] void failUnknownVerb(const TidyCommandSpec& command, const std::string& typed);

} // namespace tarnwell
