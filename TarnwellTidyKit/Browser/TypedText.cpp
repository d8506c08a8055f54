#include "TarnwellTidyKit/Browser/TypedText.hpp"

#include "TarnwellTidyKit/Commands/FindCommand.hpp"
#include "TarnwellTidyKit/Commands/RulesCommand.hpp"

namespace tarnwell {

namespace {

std::string inQuotes(std::string_view word) {
    if (!word.empty() && word.find_first_of(" \"'\\") == std::string_view::npos)
        return std::string(word);
    std::string text = "\"";
    for (const char character : word) {
        if (character == '"' || character == '\\')
            text += '\\';
        text += character;
    }
    return text + '"';
}

} // namespace

std::vector<std::string> typedWords(std::string_view text) {
    std::vector<std::string> words;
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
            continue;
        }
        if (character == '\\' && quote != '\'' && place + 1 < text.size())
            character = text[++place];
        words.back() += character;
    }
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
    for (const std::string& word : typedWords(text)) {
        if (options.empty() && !word.starts_with("--"))
            name += (name.empty() ? "" : " ") + word;
        else
            options.push_back(word);
    }
    if (name.empty())
        throw TidyUsageError("Begin with the rule's name.");
    words.push_back(name);
    words.insert(words.end(), options.begin(), options.end());
    return *RulesRequest::read(TidyArguments::read(RulesRequest::spec, words)).rule;
}

std::string ruleText(const CleanupRule& rule) {
    std::string text = rule.name.starts_with('-') ? inQuotes(rule.name) : rule.name;
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
