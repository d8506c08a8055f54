#include "TarnwellCore/Analysis/CleanupRuleCoding.hpp"

#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>

#include <algorithm>
#include <string>

namespace tarnwell {

namespace {

using rapidjson::Value;

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// The text with numbers cut down that no double can hold. They stay beyond every field's range, so they
/// spoil the rule they stand in, but not the list.
std::string withNumbersInRange(std::string_view text) {
    constexpr std::size_t maximumDigits = 40;
    constexpr int maximumExponent = 260;
    std::string result;
    bool isInString = false;
    for (std::size_t index = 0; index < text.size();) {
        const char byte = text[index];
        if (isInString && byte == '\\') {
            result += text.substr(index, 2);
            index += 2;
            continue;
        }
        if (byte == '"')
            isInString = !isInString;
        if (isInString || !isDigit(byte)) {
            result += byte;
            ++index;
            continue;
        }
        std::size_t end = index;
        int exponent = 0;
        for (; end < text.size() && isDigit(text[end]); ++end)
            exponent = std::min(exponent * 10 + (text[end] - '0'), 100'000);
        const std::string_view digits = text.substr(index, end - index);
        const std::string_view before = text.substr(0, index);
        if (before.ends_with('e') || before.ends_with('E') || before.ends_with("e+") ||
            before.ends_with("E+"))
            result += exponent > maximumExponent ? std::to_string(maximumExponent) : std::string(digits);
        else
            result += before.ends_with('.') ? digits : digits.substr(0, maximumDigits);
        index = end;
    }
    return result;
}

/// Reads the text without recursion over its depth; false when it is no JSON.
bool parse(std::string_view text, rapidjson::Document& document) {
    std::string repaired;
    if (!isValidUTF8(text))
        text = repaired = repairedUTF8(text);
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    // RapidJSON takes a zero byte for the end of its input.
    if (text.find('\0') != std::string_view::npos)
        return false;
    const auto read = [&](std::string_view json) {
        rapidjson::MemoryStream stream(json.data(), json.size());
        document.ParseStream<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(stream);
        return !document.HasParseError();
    };
    return read(text) ||
           (document.GetParseError() == rapidjson::kParseErrorNumberTooBig && read(withNumbersInRange(text)));
}

[[noreturn]] void rejectField(std::string_view field) {
    throw DataCorruptionError("The field \"" + std::string(field) +
                              "\" of a cleanup rule has an unexpected value.");
}

std::string_view textOf(const Value& value, std::string_view field) {
    if (!value.IsString())
        rejectField(field);
    return {value.GetString(), value.GetStringLength()};
}

/// A whole number, also when it is written as 1e8 or 30.0.
std::int64_t integerOf(const Value& value, std::string_view field) {
    if (value.IsInt64())
        return value.GetInt64();
    if (!value.IsDouble())
        rejectField(field);
    const double number = value.GetDouble();
    // 2^63 is the first double beyond the range; its negative is in it.
    constexpr double limit = 9223372036854775808.0;
    if (!(number >= -limit && number < limit))
        rejectField(field);
    const auto whole = static_cast<std::int64_t>(number);
    if (static_cast<double>(whole) != number)
        rejectField(field);
    return whole;
}

/// Calls `body` with each element.
template <class Body>
void forEachElement(const Value& value, std::string_view field, Body body) {
    if (!value.IsArray())
        rejectField(field);
    for (const Value& element : value.GetArray())
        body(element);
}

void readField(CleanupRule& rule, std::string_view field, const Value& value) {
    if (value.IsNull())
        return;
    if (field == "id") {
        rule.id = textOf(value, field);
    } else if (field == "name") {
        rule.name = textOf(value, field);
    } else if (field == "isEnabled") {
        if (!value.IsBool())
            rejectField(field);
        rule.isEnabled = value.GetBool();
    } else if (field == "locationPrefix") {
        rule.locationPrefix = textOf(value, field);
    } else if (field == "categories") {
        // A category that is unknown here is not dropped from the list: without it the rule would match
        // more than its author meant.
        forEachElement(value, field, [&](const Value& element) {
            const auto category = fileCategoryFromRawValue(integerOf(element, field));
            if (!category)
                rejectField(field);
            rule.categories.push_back(*category);
        });
    } else if (field == "extensions") {
        forEachElement(value, field,
                       [&](const Value& element) { rule.extensions.emplace_back(textOf(element, field)); });
    } else if (field == "minimumSize") {
        rule.minimumSize = integerOf(value, field);
    } else if (field == "olderThanDays") {
        rule.olderThanDays = integerOf(value, field);
    } else if (field == "lastOpenedBeforeDays") {
        rule.lastOpenedBeforeDays = integerOf(value, field);
    }
}

CleanupRule decode(const Value& value) {
    if (!value.IsObject())
        throw DataCorruptionError("A cleanup rule must be a JSON object.");
    // Of a key that is there twice the last value counts.
    CleanupRule rule;
    for (const auto& member : value.GetObject()) {
        const std::string_view field{member.name.GetString(), member.name.GetStringLength()};
        if (field == "categories")
            rule.categories.clear();
        else if (field == "extensions")
            rule.extensions.clear();
        readField(rule, field, member.value);
    }
    if (rule.id.empty() || rule.name.empty())
        throw DataCorruptionError("A cleanup rule needs an id and a name.");
    return rule;
}

void write(JSONWriter& writer, const CleanupRule& rule) {
    const auto integer = [&](std::string_view key, const std::optional<std::int64_t>& value) {
        if (value) {
            writer.key(key);
            writer.integer(*value);
        }
    };
    writer.beginObject();
    writer.key("categories");
    writer.beginArray();
    for (const FileCategory category : rule.categories)
        writer.integer(rawValue(category));
    writer.endArray();
    writer.key("extensions");
    writer.beginArray();
    for (const std::string& extension : rule.extensions)
        writer.string(extension);
    writer.endArray();
    writer.key("id");
    writer.string(rule.id);
    writer.key("isEnabled");
    writer.boolean(rule.isEnabled);
    integer("lastOpenedBeforeDays", rule.lastOpenedBeforeDays);
    if (rule.locationPrefix) {
        writer.key("locationPrefix");
        writer.string(*rule.locationPrefix);
    }
    integer("minimumSize", rule.minimumSize);
    writer.key("name");
    writer.string(rule.name);
    integer("olderThanDays", rule.olderThanDays);
    writer.endObject();
}

} // namespace

CleanupRule decodeCleanupRule(std::string_view json) {
    rapidjson::Document document;
    if (!parse(json, document))
        throw DataCorruptionError("The cleanup rule is not valid JSON.");
    return decode(document);
}

std::vector<CleanupRule> CleanupRule::rules(std::string_view fromStoredJSON) {
    std::vector<CleanupRule> rules;
    rapidjson::Document document;
    if (!parse(fromStoredJSON, document) || !document.IsArray())
        return rules;
    for (const Value& element : document.GetArray()) {
        try {
            rules.push_back(decode(element));
        } catch (const DataCorruptionError&) {
            continue; // what is no rule is left out
        }
    }
    return rules;
}

std::string CleanupRule::encodeStored(const std::vector<CleanupRule>& rules) {
    std::string text;
    JSONWriter writer(text);
    writer.beginArray();
    for (const CleanupRule& rule : rules)
        write(writer, rule);
    writer.endArray();
    return text;
}

} // namespace tarnwell
