#include "TarnwellTidyKit/Browser/TypedText.hpp"

#include "TarnwellTidyKit/Commands/FindCommand.hpp"
#include "TarnwellTidyKit/Commands/RulesCommand.hpp"

namespace tarnwell {

namespace {

std::string quoted(std::string_view word) {
    std::string text = "\"";
    for (const char character : word) {
        if (character == '"' || character == '\\')
            text += '\\';
        text += character;
    }
    return text + '"';
}

std::string inQuotes(std::string_view word) {
    const bool isPlain = !word.empty() && word.find_first_of(" \"'\\") == std::string_view::npos;
    return isPlain ? std::string(word) : quoted(word);
}

/// A name as it is, where its words mean nothing else.
std::string nameText(std::string_view name) {
    const bool isPlain =
        name.find_first_of("\"'\\") == std::string_view::npos && name.find("--") == std::string_view::npos &&
        name.find("  ") == std::string_view::npos && !name.starts_with(' ') && !name.ends_with(' ');
    return isPlain ? std::string(name) : quoted(name);
}

struct Word {
    std::string text;
    bool isQuoted = false; // from its beginning
};

std::vector<Word> wordsOf(std::string_view text) {
    std::vector<Word> words;
    bool isInWord = false;
    char quote = 0;
    for (std::size_t place = 0; place < text.size(); ++place) {
        char character = text[place];
        if (quote == 0 && character == ' ') {
            isInWord = false;
            continue;
        }
        if (!isInWord)
            words.emplace_back();
        isInWord = true;
        if (character == quote && quote != 0) {
            quote = 0;
            continue;
        }
        if (quote == 0 && (character == '"' || character == '\'')) {
            quote = character;
            words.back().isQuoted = words.back().isQuoted || words.back().text.empty();
            continue;
        }
        if (character == '\\' && quote != '\'' && place + 1 < text.size())
            character = text[++place];
        words.back().text += character;
    }
    return words;
}

} // namespace

std::vector<std::string> typedWords(std::string_view text) {
    std::vector<std::string> words;
    for (Word& word : wordsOf(text))
        words.push_back(std::move(word.text));
    return words;
}

SearchConditions typedConditions(std::string_view text, SizeMode mode, Date now) {
    std::vector<std::string> words;
    bool isValue = false; // of the option before
    for (const std::string& word : typedWords(text)) {
        if (isValue || word.starts_with("--")) {
            isValue = !isValue && word.find('=') == std::string::npos;
            words.push_back(word);
        } else if (word.size() > 1 && (word.front() == '>' || word.front() == '<')) {
            words.insert(words.end(), {word.front() == '>' ? "--larger" : "--smaller", word.substr(1)});
        } else {
            const bool isPattern = word.find_first_of("*?") != std::string::npos;
            words.push_back((isPattern ? "--glob=" : "--name=") + word);
        }
    }
    words.emplace_back("."); // the folder, which is known
    return conditionsOf(FindRequest::read(TidyArguments::read(FindRequest::spec, words)), mode, now);
}

CleanupRule typedRule(std::string_view text) {
    std::vector<std::string> words{"add"};
    std::string name;
    std::vector<std::string> options;
    for (const Word& word : wordsOf(text)) {
        if (options.empty() && (word.isQuoted || !word.text.starts_with("--")))
            name += (name.empty() ? "" : " ") + word.text;
        else
            options.push_back(word.text);
    }
    if (name.empty())
        throw TidyUsageError("Begin with the rule's name.");
    if (!name.starts_with('-')) {
        words.push_back(name);
        words.insert(words.end(), options.begin(), options.end());
    } else {
        words.insert(words.end(), options.begin(), options.end());
        words.insert(words.end(), {"--", name});
    }
    return *RulesRequest::read(TidyArguments::read(RulesRequest::spec, words)).rule;
}

std::string ruleText(const CleanupRule& rule) {
    std::string text = nameText(rule.name);
    const auto add = [&](std::string_view option, const std::string& value) {
        text += " " + std::string(option) + " " + inQuotes(value);
    };
    if (rule.locationPrefix)
        add("--location", *rule.locationPrefix);
    for (const FileCategory category : rule.categories)
        add("--category", std::string(displayName(category)));
    for (const std::string& extension : rule.extensions)
        add("--extension", extension);
    if (rule.minimumSize)
        add("--larger", std::to_string(*rule.minimumSize));
    if (rule.olderThanDays)
        add("--older", std::to_string(*rule.olderThanDays) + "d");
    if (rule.lastOpenedBeforeDays)
        add("--unopened", std::to_string(*rule.lastOpenedBeforeDays) + "d");
    return text;
}

} // namespace tarnwell
