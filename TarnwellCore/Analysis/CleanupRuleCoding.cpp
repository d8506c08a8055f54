#include "TarnwellCore/Analysis/CleanupRuleCoding.hpp"

#include "TarnwellCore/Platform/JSONNumber.hpp"
#include "TarnwellCore/Platform/LenientJSON.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace tarnwell {

namespace {

constexpr std::array<std::string_view, 9> fieldNames{
    "id",         "name",        "isEnabled",     "locationPrefix",       "categories",
    "extensions", "minimumSize", "olderThanDays", "lastOpenedBeforeDays",
};

using Scalar = std::variant<std::monostate, bool, std::int64_t, double, std::string_view>;

/// A whole number, also when it was written as 1e8 or 30.0.
std::optional<std::int64_t> wholeNumber(const Scalar& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value))
        return *integer;
    const auto* number = std::get_if<double>(&value);
    // 2^63 is the first double beyond the range; its negative is in it.
    constexpr double limit = 9223372036854775808.0;
    if (number == nullptr || !(*number >= -limit && *number < limit))
        return std::nullopt;
    const auto whole = static_cast<std::int64_t>(*number);
    return static_cast<double>(whole) == *number ? std::optional(whole) : std::nullopt;
}

/// Takes the parser's events and makes rules of them. What it does not know it passes over, however deep.
class RuleReader : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, RuleReader> {
public:
    /// Rules lie in an array, or the document is one rule. The stream is over what the parser can read of the
    /// text (LenientJSON.hpp); both must last for as long as it parses.
    RuleReader(bool isList, std::string_view text, const rapidjson::MemoryStream& stream)
        : text_(text), stream_(stream), elementDepth_(isList ? 1 : 0) {}

    std::vector<CleanupRule> rules;
    /// What is wrong with the last element that was no rule.
    std::string error;

    bool Null() { return scalar(std::monostate()); }
    bool Bool(bool value) { return scalar(value); }
    bool RawNumber(const char*, rapidjson::SizeType length, bool) {
        const std::string_view text = text_.substr(stream_.Tell() - length, length);
        std::int64_t integer = 0;
        const auto [end, fault] = std::from_chars(text.data(), text.data() + length, integer);
        if (fault == std::errc() && end == text.data() + length)
            return scalar(integer);
        constexpr double beyondAll = std::numeric_limits<double>::infinity();
        return scalar(doubleFromJSONNumber(text).value_or(beyondAll));
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        return scalar(std::string_view(text, length));
    }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        if (isInRule_ && depth_ == elementDepth_ + 1)
            field_ = std::ranges::find(fieldNames, std::string_view(text, length)) - fieldNames.begin();
        return true;
    }

    bool StartArray() {
        open(true);
        return true;
    }
    bool EndArray(rapidjson::SizeType) {
        --depth_;
        return true;
    }
    bool StartObject() {
        open(false);
        return true;
    }
    bool EndObject(rapidjson::SizeType) {
        if (--depth_ == elementDepth_ && isInRule_)
            finishRule();
        return true;
    }

private:
    bool isElement() const { return depth_ == elementDepth_ && (depth_ == 0 || isTopAnArray_); }
    bool isFieldValue() const { return isInRule_ && depth_ == elementDepth_ + 1; }
    bool isFieldElement() const { return isInRule_ && depth_ == elementDepth_ + 2 && isListField(); }
    std::string_view field() const {
        return static_cast<std::size_t>(field_) < fieldNames.size()
                   ? fieldNames[static_cast<std::size_t>(field_)]
                   : std::string_view();
    }
    bool isListField() const { return field() == "categories" || field() == "extensions"; }

    void open(bool isArray) {
        if (depth_ == 0)
            isTopAnArray_ = isArray;
        if (isElement()) {
            isInRule_ = !isArray;
            rule_ = {};
            ruleError_ = {};
            if (isArray)
                error = "A cleanup rule must be a JSON object.";
        } else if (isFieldValue()) {
            // Of a key that is there twice the last value counts.
            if (isListField() && isArray)
                clearList();
            else if (!field().empty())
                reject();
        } else if (isFieldElement()) {
            reject();
        }
        ++depth_;
    }

    bool scalar(const Scalar& value) {
        if (isElement()) {
            isInRule_ = false;
            error = "A cleanup rule must be a JSON object.";
        } else if (isFieldValue()) {
            if (!std::holds_alternative<std::monostate>(value) && !setField(value))
                reject();
        } else if (isFieldElement()) {
            if (!appendToField(value))
                reject();
        }
        return true;
    }

    void clearList() {
        if (field() == "categories")
            rule_.categories.clear();
        else
            rule_.extensions.clear();
    }

    /// False when the value is not of the field's type.
    bool setField(const Scalar& value) {
        const std::string_view name = field();
        if (name.empty())
            return true;
        if (name == "isEnabled") {
            const auto* flag = std::get_if<bool>(&value);
            rule_.isEnabled = flag != nullptr && *flag;
            return flag != nullptr;
        }
        if (name == "id" || name == "name" || name == "locationPrefix") {
            const auto* text = std::get_if<std::string_view>(&value);
            if (text == nullptr)
                return false;
            if (name == "locationPrefix")
                rule_.locationPrefix = *text;
            else
                (name == "id" ? rule_.id : rule_.name) = *text;
            return true;
        }
        const auto number = wholeNumber(value);
        if (name == "minimumSize")
            rule_.minimumSize = number;
        else if (name == "olderThanDays")
            rule_.olderThanDays = number;
        else if (name == "lastOpenedBeforeDays")
            rule_.lastOpenedBeforeDays = number;
        else
            return false; // a list
        return number.has_value();
    }

    bool appendToField(const Scalar& value) {
        if (field() == "extensions") {
            const auto* text = std::get_if<std::string_view>(&value);
            if (text != nullptr)
                rule_.extensions.emplace_back(*text);
            return text != nullptr;
        }
        // A category that is unknown here is not dropped from the list: without it the rule would match
        // more than its author meant.
        const auto number = wholeNumber(value);
        const auto category = number ? fileCategoryFromRawValue(*number) : std::nullopt;
        if (category)
            rule_.categories.push_back(*category);
        return category.has_value();
    }

    void reject() {
        ruleError_ = "The field \"" + std::string(field()) + "\" of a cleanup rule has an unexpected value.";
    }

    void finishRule() {
        isInRule_ = false;
        if (ruleError_.empty() && (rule_.id.empty() || rule_.name.empty()))
            ruleError_ = "A cleanup rule needs an id and a name.";
        if (ruleError_.empty())
            rules.push_back(std::move(rule_));
        else
            error = std::move(ruleError_);
    }

    const std::string_view text_;
    const rapidjson::MemoryStream& stream_;
    const std::size_t elementDepth_; // open containers around an element
    std::size_t depth_ = 0;          // open containers
    bool isTopAnArray_ = false;
    bool isInRule_ = false;
    CleanupRule rule_;
    std::string ruleError_;
    std::ptrdiff_t field_ = 0; // index of the last key of the rule; one past the names for an unknown one
};

struct ReadRules {
    std::vector<CleanupRule> rules;
    /// What is wrong with the last element that was no rule.
    std::string error;
};

/// Reads the text without recursion over its depth; nothing when it is no JSON.
std::optional<ReadRules> read(std::string_view text, bool isList) {
    std::string repaired;
    if (!isValidUTF8(text))
        text = repaired = repairedUTF8(text);
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    // RapidJSON takes a zero byte for the end of its input.
    if (text.find('\0') != std::string_view::npos)
        return std::nullopt;

    const std::string parsable = parsableJSON(text);
    rapidjson::MemoryStream stream(parsable.data(), parsable.size());
    RuleReader handler(isList, text, stream);
    constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;
    if (rapidjson::Reader().Parse<flags>(stream, handler).IsError())
        return std::nullopt;
    return ReadRules{std::move(handler.rules), std::move(handler.error)};
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
    auto reader = read(json, false);
    if (!reader)
        throw DataCorruptionError("The cleanup rule is not valid JSON.");
    if (reader->rules.empty())
        throw DataCorruptionError(reader->error);
    return std::move(reader->rules.front());
}

std::vector<CleanupRule> CleanupRule::rules(std::string_view fromStoredJSON) {
    auto reader = read(fromStoredJSON, true);
    return reader ? std::move(reader->rules) : std::vector<CleanupRule>();
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
