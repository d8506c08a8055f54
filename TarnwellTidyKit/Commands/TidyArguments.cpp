#include "TarnwellTidyKit/Commands/TidyArguments.hpp"

#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <memory>
#include <utility>

namespace tarnwell {

namespace {

std::string inQuotes(std::string_view word) {
    return "'" + harmless(word) + "'";
}

std::string suggestion(std::string_view nearest) {
    return nearest.empty() ? std::string() : " Did you mean " + std::string(nearest) + "?";
}

[[noreturn]] void failUnknown(const TidyCommandSpec& command, const std::string& word) {
    const std::string name = word.substr(0, word.find('='));
    std::vector<std::string_view> names;
    forEachOption(command, [&](const TidyOptionSpec& option) { names.push_back(option.name); });
    std::string message = std::string(command.name) + " has no option " + inQuotes(name) + ".";
    const std::string_view nearest = nearestWord(name, names);
    message += suggestion(nearest);
    if (nearest.empty())
        message += " A name that begins with a hyphen is written ./" + harmless(name) + ".";
    throw TidyUsageError(message);
}

[[noreturn]] void failWithoutValue(const TidyOptionSpec& option) {
    throw TidyUsageError(std::string(option.name) + " needs a value: " + std::string(option.name) + " " +
                         std::string(option.value) + ".");
}

void expectChoice(const TidyOptionSpec& option, const std::string& value) {
    bool isKnown = option.choices.empty();
    std::string all;
    std::vector<std::string_view> words;
    forEachWord(option.choices, [&](std::string_view choice) {
        isKnown = isKnown || choice == value;
        all += (all.empty() ? "" : ", ") + std::string(choice);
        words.push_back(choice);
    });
    if (!isKnown)
        throw TidyUsageError(std::string(option.name) + " is one of " + all + ", not " + inQuotes(value) +
                             "." + suggestion(nearestWord(value, words)));
}

/// Letters to insert, remove, replace or swap with their neighbour to make one word the other.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last;
    std::vector<std::size_t> current(b.size() + 1);
    for (std::size_t column = 0; column <= b.size(); ++column)
        current[column] = column;
    for (std::size_t row = 1; row <= a.size(); ++row) {
        beforeLast = std::exchange(last, current);
        current[0] = row;
        for (std::size_t column = 1; column <= b.size(); ++column) {
            const bool isSame = a[row - 1] == b[column - 1];
            current[column] =
                std::min({last[column] + 1, current[column - 1] + 1, last[column - 1] + (isSame ? 0 : 1)});
            if (row > 1 && column > 1 && a[row - 1] == b[column - 2] && a[row - 2] == b[column - 1])
                current[column] = std::min(current[column], beforeLast[column - 2] + 1);
        }
    }
    return current[b.size()];
}

} // namespace

std::string_view nearestWord(std::string_view typed, std::span<const std::string_view> words) {
    constexpr std::size_t longestWord = 40;
    if (typed.size() > longestWord)
        return {};
    std::string_view nearest;
    std::size_t least = std::max<std::size_t>(typed.size(), 4) / 3 + 1;
    for (const std::string_view word : words) {
        // The beginning of a long word is as good as the word with a letter missing.
        const bool isBeginning = typed.size() >= 2 && !typed.ends_with('-') && word.starts_with(typed);
        const std::size_t steps = isBeginning ? 1 : distance(typed, word);
        if (steps < least) {
            least = steps;
            nearest = word;
        }
    }
    return nearest;
}

std::string_view nearestOf(std::string_view typed, std::string_view words) {
    std::vector<std::string_view> all;
    forEachWord(words, [&](std::string_view word) { all.push_back(word); });
    return nearestWord(typed, all);
}

void failUnknownVerb(const TidyCommandSpec& command, const std::string& typed) {
    throw TidyUsageError(std::string(command.name) + " takes " + std::string(command.operands) + ", not " +
                         inQuotes(typed) + "." + suggestion(nearestOf(typed, command.words)));
}

TidyCommandLine TidyCommandLine::split(std::span<const std::string> words) {
    TidyCommandLine line;
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string& word = words[index];
        const bool isOption = word.size() > 1 && word.front() == '-' && word != "--";
        if (line.command || word == "--" || (!isOption && word != "-")) {
            if (!line.command && word != "--") {
                line.command = word;
                continue;
            }
            line.rest.insert(line.rest.end(), words.begin() + static_cast<std::ptrdiff_t>(index),
                             words.end());
            break;
        }
        line.rest.push_back(word);
        const auto takesNext = [&](const TidyOptionSpec& option) {
            return option.name == word && !option.isFlag();
        };
        if ((std::ranges::any_of(tidyOutputOptions(), takesNext) ||
             std::ranges::any_of(tidyScanOptions(), takesNext)) &&
            index + 1 < words.size())
            line.rest.push_back(words[++index]);
    }
    return line;
}

TidyArguments TidyArguments::read(const TidyCommandSpec& command, std::span<const std::string> words) {
    struct Slot {
        const TidyOptionSpec* spec;
        CLI::Option* option;
        std::vector<std::string> values;
    };
    TidyArguments arguments;
    arguments.command_ = &command;
    CLI::App app;
    app.set_help_flag();
    app.set_config();
    app.allow_extras();
    std::vector<std::unique_ptr<Slot>> slots;
    forEachOption(command, [&](const TidyOptionSpec& spec) {
        Slot& slot = *slots.emplace_back(std::make_unique<Slot>(Slot{&spec, nullptr, {}}));
        const std::string name = spec.name == "--help" ? "-h,--help" : std::string(spec.name);
        if (spec.isFlag())
            slot.option = app.add_flag(name)->disable_flag_override()->multi_option_policy(
                CLI::MultiOptionPolicy::TakeLast);
        else // each use takes one word, also one that begins with a bracket or a hyphen
            slot.option = app.add_option(name, slot.values)->allow_extra_args(false);
    });
    std::vector<std::string> reversed(words.rbegin(), words.rend());
    try {
        app.parse(std::move(reversed));
    } catch (const CLI::Error& error) {
        // Extra words are let through, so what is left is a flag with a value, or an option without one.
        for (const std::string& word : words) {
            const auto equals = word.find('=');
            for (const auto& slot : slots)
                if (equals != std::string::npos && slot->spec->isFlag() &&
                    slot->spec->name == word.substr(0, equals))
                    throw TidyUsageError(std::string(slot->spec->name) + " takes no value.");
        }
        const std::string last = words.empty() ? std::string() : words.back();
        for (const auto& slot : slots)
            if (!slot->spec->isFlag() && last.substr(0, last.find('=')) == slot->spec->name)
                failWithoutValue(*slot->spec);
        throw TidyUsageError(harmless(error.what()));
    }
    for (const auto& slot : slots) {
        if (slot->option->count() == 0)
            continue;
        for (const std::string& value : slot->values) {
            if (value.empty()) // as of a variable that is not set
                failWithoutValue(*slot->spec);
            expectChoice(*slot->spec, value);
        }
        arguments.values_.emplace(slot->spec->name, std::move(slot->values));
    }
    bool onlyOperands = false;
    for (std::string& word : app.remaining()) {
        if (!onlyOperands && word == "--")
            onlyOperands = true;
        else if (!onlyOperands && word.size() > 1 && word.front() == '-')
            failUnknown(command, word);
        else
            arguments.operands_.push_back(std::move(word));
    }
    return arguments;
}

void TidyArguments::expectOperands(std::size_t least, std::size_t most) const {
    const std::string name(command_->name);
    if (operands_.size() < least)
        throw TidyUsageError(name + " needs " + std::string(command_->operands) + ".");
    if (operands_.size() > most)
        throw TidyUsageError(most == 0 ? name + " takes no " + inQuotes(operands_[most]) + "."
                                       : name + " takes " + std::string(command_->operands) + "; " +
                                             inQuotes(operands_[most]) + " is too much.");
    for (const std::string& operand : operands_)
        if (operand.empty())
            throw TidyUsageError("An empty word is no " + std::string(command_->operands) + ".");
}

const std::string& TidyArguments::onlyOperand() const {
    expectOperands(1, 1);
    return operands_.front();
}

std::optional<std::string> TidyArguments::value(std::string_view option) const {
    const auto found = values_.find(option);
    if (found == values_.end() || found->second.empty())
        return std::nullopt;
    return found->second.back();
}

std::vector<std::string> TidyArguments::values(std::string_view option) const {
    const auto found = values_.find(option);
    return found == values_.end() ? std::vector<std::string>() : found->second;
}

std::optional<std::int64_t> TidyArguments::count(std::string_view option, std::int64_t least) const {
    const auto text = value(option);
    if (!text)
        return std::nullopt;
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
    if (error != std::errc() || end != text->data() + text->size() || number < least)
        throw TidyUsageError(std::string(option) + " takes a whole number from " + std::to_string(least) +
                             " up, not " + inQuotes(*text) + ".");
    return number;
}

std::optional<double> TidyArguments::number(std::string_view option, double least) const {
    const auto text = value(option);
    if (!text)
        return std::nullopt;
    const auto number = numberFromText(*text);
    if (!number || *number < least)
        throw TidyUsageError(std::string(option) + " takes a number from " + decimalText(least) +
                             " up, not " + inQuotes(*text) + ".");
    return number;
}

std::optional<std::int64_t> TidyArguments::size(std::string_view option) const {
    const auto text = value(option);
    if (!text)
        return std::nullopt;
    const auto bytes = sizeFromText(*text);
    if (!bytes)
        throw TidyUsageError(std::string(option) + " takes a size such as 500MB, 1.5GiB or 4096, not " +
                             inQuotes(*text) + ".");
    return bytes;
}

TidyOutputChoices TidyArguments::output() const {
    TidyOutputChoices choices;
    choices.json = has("--json");
    const std::string color = value("--color").value_or("auto");
    choices.color = color == "always"  ? TidyColor::always
                    : color == "never" ? TidyColor::never
                                       : TidyColor::automatic;
    return choices;
}

TidyScanChoices TidyArguments::scan() const {
    constexpr std::int64_t mostThreads = 256;
    TidyScanChoices choices;
    if (const auto mode = value("--size-mode"))
        choices.sizeMode = sizeModeFromRawValue(*mode);
    choices.excludedPaths = values("--exclude");
    choices.excludedNames = values("--exclude-name");
    choices.crossFileSystems = has("--cross");
    choices.leaveOutHidden = has("--no-hidden");
    if (const auto threads = count("--threads", 1)) {
        if (*threads > mostThreads)
            throw TidyUsageError("--threads takes at most " + std::to_string(mostThreads) + ".");
        choices.threads = static_cast<std::int32_t>(*threads);
    }
    return choices;
}

TidyActChoices TidyArguments::act() const {
    return {.yes = has("--yes"), .dryRun = has("--dry-run")};
}

} // namespace tarnwell
