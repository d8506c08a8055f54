#include "TarnwellCore/Analysis/CleanupRuleCoding.hpp"

#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>

#include <charconv>
#include <limits>

namespace tarnwell {

namespace {

using rapidjson::Value;

/// Builds the document, but takes a number beyond the range of a double for infinity, so that it spoils the
/// rule it stands in and not the whole list.
struct DocumentHandler {
    rapidjson::Document& document;

    bool RawNumber(const char* digits, rapidjson::SizeType length, bool) {
        std::int64_t whole = 0;
        const auto [end, error] = std::from_chars(digits, digits + length, whole);
        if (error == std::errc() && end == digits + length)
            return document.Int64(whole);
        rapidjson::Document number;
        number.Parse<rapidjson::kParseFullPrecisionFlag>(digits, length);
        return document.Double(number.IsNumber() ? number.GetDouble()
                                                 : std::numeric_limits<double>::infinity());
    }

    bool Null() { return document.Null(); }
    bool Bool(bool value) { return document.Bool(value); }
    bool String(const char* text, rapidjson::SizeType length, bool copy) {
        return document.String(text, length, copy);
    }
    bool StartObject() { return document.StartObject(); }
    bool Key(const char* text, rapidjson::SizeType length, bool copy) {
        return document.Key(text, length, copy);
    }
    bool EndObject(rapidjson::SizeType count) { return document.EndObject(count); }
    bool StartArray() { return document.StartArray(); }
    bool EndArray(rapidjson::SizeType count) { return document.EndArray(count); }

    // Numbers arrive as text only.
    bool Int(int) { return false; }
    bool Uint(unsigned) { return false; }
    bool Int64(std::int64_t) { return false; }
    bool Uint64(std::uint64_t) { return false; }
    bool Double(double) { return false; }
};

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
    constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;
    rapidjson::MemoryStream stream(text.data(), text.size());
    rapidjson::Reader reader;
    auto fill = [&](rapidjson::Document& target) {
        DocumentHandler handler{target};
        return !reader.Parse<flags>(stream, handler).IsError();
    };
    document.Populate(fill);
    return !reader.HasParseError();
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
