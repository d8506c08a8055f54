#include "TarnwellCore/Platform/DefaultsDocument.hpp"

#include "TarnwellCore/Platform/JSONNumber.hpp"
#include "TarnwellCore/Platform/LenientJSON.hpp"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::string_view dataMember = "base64";
constexpr std::string_view dateMember = "secondsSince1970";

constexpr std::string_view base64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t index = 0; index < bytes.size(); index += 3) {
        std::uint32_t group = 0;
        for (std::size_t place = index; place < index + 3; ++place)
            group = group << 8 | (place < bytes.size() ? static_cast<unsigned char>(bytes[place]) : 0u);
        for (std::size_t digit = 0; digit < 4; ++digit)
            text += index + digit > bytes.size() ? '=' : base64Alphabet[group >> (18 - 6 * digit) & 63];
    }
    return text;
}

std::optional<std::string> bytesFromBase64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    for (int padding = 0; padding < 2 && text.ends_with('='); ++padding)
        text.remove_suffix(1);
    std::string bytes;
    std::uint32_t group = 0;
    unsigned bits = 0;
    for (const char character : text) {
        const std::size_t digit = base64Alphabet.find(character);
        if (digit == std::string_view::npos)
            return std::nullopt;
        group = group << 6 | static_cast<std::uint32_t>(digit);
        bits += 6;
        if (bits < 8)
            continue;
        bits -= 8;
        bytes += static_cast<char>(group >> bits);
        group &= (1U << bits) - 1;
    }
    return bytes;
}

// --- Writing values -------------------------------------------------------------------------------------

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void writeText(Writer& writer, std::string_view text) {
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

struct ValueWriter {
    Writer& writer;

    void operator()(bool value) const { writer.Bool(value); }
    void operator()(std::int64_t value) const { writer.Int64(value); }
    void operator()(double value) const { writer.Double(value); }
    void operator()(const std::string& value) const {
        if (isUTF8(value))
            writeText(writer, value);
        else
            (*this)(DataValue{value});
    }
    void operator()(const std::vector<std::string>& value) const {
        writer.StartArray();
        for (const std::string& each : value)
            (*this)(each);
        writer.EndArray();
    }
    void operator()(const DataValue& value) const {
        writer.StartObject();
        writeText(writer, dataMember);
        writeText(writer, base64(value.bytes));
        writer.EndObject();
    }
    void operator()(Date value) const {
        writer.StartObject();
        writeText(writer, dateMember);
        writer.Double(value.time_since_epoch().count());
        writer.EndObject();
    }
};

std::string jsonText(const UserDefaultsValue& value) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    std::visit(ValueWriter{writer}, value);
    return {buffer.GetString(), buffer.GetSize()};
}

// --- Reading values -------------------------------------------------------------------------------------

struct Token {
    enum class Kind { other, scalar, key, beginObject, endObject, beginArray, endArray };
    Kind kind;
    /// Of a scalar (a truth value, a number, a text) and of a key.
    UserDefaultsValue value = false;

    bool isText() const { return kind == Kind::scalar && std::holds_alternative<std::string>(value); }
    const std::string& text() const { return std::get<std::string>(value); }
};

/// The value in {"name": value} when that is all the tokens are.
const Token* onlyMember(std::span<const Token> tokens, std::string_view name) {
    const bool isOne = tokens.size() == 4 && tokens[0].kind == Token::Kind::beginObject &&
                       tokens[1].kind == Token::Kind::key && tokens[1].text() == name &&
                       tokens[2].kind == Token::Kind::scalar;
    return isOne ? &tokens[2] : nullptr;
}

std::optional<DataValue> decodedData(std::span<const Token> tokens) {
    const Token* text = onlyMember(tokens, dataMember);
    if (text == nullptr || !text->isText())
        return std::nullopt;
    std::optional<std::string> bytes = bytesFromBase64(text->text());
    return bytes ? std::optional(DataValue{std::move(*bytes)}) : std::nullopt;
}

std::optional<std::vector<std::string>> decodedArray(std::span<const Token> tokens) {
    std::vector<std::string> texts;
    for (tokens = tokens.subspan(1); tokens.front().kind != Token::Kind::endArray;) {
        if (tokens.front().isText()) {
            texts.push_back(tokens.front().text());
            tokens = tokens.subspan(1);
        } else if (std::optional<DataValue> data =
                       decodedData(tokens.first(std::min<std::size_t>(4, tokens.size())))) {
            texts.push_back(std::move(data->bytes));
            tokens = tokens.subspan(4);
        } else {
            return std::nullopt;
        }
    }
    return texts;
}

std::optional<UserDefaultsValue> decoded(std::span<const Token> tokens) {
    if (tokens.front().kind == Token::Kind::scalar)
        return tokens.front().value;
    if (tokens.front().kind == Token::Kind::beginArray)
        return decodedArray(tokens);
    if (const Token* seconds = onlyMember(tokens, dateMember)) {
        if (const auto* number = std::get_if<double>(&seconds->value))
            return Date(Date::duration(*number));
        if (const auto* integer = std::get_if<std::int64_t>(&seconds->value))
            return Date(Date::duration(static_cast<double>(*integer)));
    }
    return decodedData(tokens);
}

std::string_view trimmed(std::string_view text, std::string_view characters) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
    return text;
}

} // namespace

struct DefaultsDocument::Member {
    std::string key;
    /// As they stand in the document, so that what this program does not know stays as it is.
    std::string keyJSON;
    std::string json;
    std::optional<UserDefaultsValue> value;
};

namespace {

/// Takes a JSON object apart into its members.
template <class Member>
class MemberReader : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, MemberReader<Member>> {
public:
    MemberReader(std::string_view text, std::vector<Member>& members)
        : text_(text),
          parsable_(parsableJSON(text)),
          stream_(parsable_.data(), parsable_.size()),
          members_(members) {}

    bool read() {
        constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag |
                                   rapidjson::kParseValidateEncodingFlag;
        rapidjson::Reader reader;
        return !reader.Parse<flags>(stream_, *this).IsError();
    }

    // What the parser calls; false ends the parsing.
    bool Null() { return add({Token::Kind::other}); }
    bool Bool(bool value) { return add({Token::Kind::scalar, value}); }
    /// A whole number that fits is an integer, one beyond the doubles no value.
    bool RawNumber(const char*, rapidjson::SizeType length, bool) {
        const std::string_view text = text_.substr(stream_.Tell() - length, length);
        std::int64_t integer = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + length, integer);
        if (error == std::errc() && end == text.data() + length)
            return add({Token::Kind::scalar, integer});
        const std::optional<double> number = doubleFromJSONNumber(text);
        return number ? add({Token::Kind::scalar, *number}) : add({Token::Kind::other});
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        return add({Token::Kind::scalar, std::string(text, length)});
    }
    bool StartObject() {
        // Only the outermost value may be without a member to belong to, and it must be an object.
        ++depth_;
        return depth_ == 1 || add({Token::Kind::beginObject});
    }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        if (depth_ > 1)
            return add({Token::Kind::key, std::string(text, length)});
        const std::string_view json =
            trimmed(text_.substr(valueEnd_, stream_.Tell() - valueEnd_), "{, \t\r\n");
        members_.push_back({std::string(text, length), std::string(json), {}, {}});
        valueBegin_ = stream_.Tell();
        return true;
    }
    bool EndObject(rapidjson::SizeType) { return --depth_ == 0 || add({Token::Kind::endObject}); }
    bool StartArray() {
        ++depth_;
        return add({Token::Kind::beginArray});
    }
    bool EndArray(rapidjson::SizeType) {
        --depth_;
        return add({Token::Kind::endArray});
    }

private:
    bool add(Token token) {
        if (members_.empty())
            return false;
        // The iterative parser tells of an end before it takes the bracket.
        const bool isEnd = token.kind == Token::Kind::endObject || token.kind == Token::Kind::endArray;
        valueEnd_ = stream_.Tell() + (isEnd ? 1 : 0);
        tokens_.push_back(std::move(token));
        if (depth_ > 1)
            return true;
        Member& member = members_.back();
        member.json = trimmed(text_.substr(valueBegin_, valueEnd_ - valueBegin_), ": \t\r\n");
        member.value = decoded(tokens_);
        tokens_.clear();
        return true;
    }

    const std::string_view text_;
    const std::string parsable_; // what is at one place in it is at the same place in the text
    rapidjson::MemoryStream stream_;
    std::vector<Member>& members_;
    /// Of the member that is being read.
    std::vector<Token> tokens_;
    std::size_t valueBegin_ = 0;
    std::size_t valueEnd_ = 0; // of the last one that was read
    int depth_ = 0;
};

} // namespace

DefaultsDocument::DefaultsDocument() = default;
DefaultsDocument::~DefaultsDocument() = default;
DefaultsDocument::DefaultsDocument(DefaultsDocument&&) noexcept = default;
DefaultsDocument& DefaultsDocument::operator=(DefaultsDocument&&) noexcept = default;

bool DefaultsDocument::canHold(std::string_view key) {
    return isUTF8(key);
}

std::optional<DefaultsDocument> DefaultsDocument::parse(std::string_view text) {
    DefaultsDocument document;
    // The parser would take a zero byte for the end of the text.
    if (text.find('\0') != std::string_view::npos || !MemberReader(text, document.members_).read())
        return std::nullopt;
    return document;
}

const DefaultsDocument::Member* DefaultsDocument::find(std::string_view key) const {
    const auto member = std::ranges::find(members_, key, &Member::key);
    return member != members_.end() ? &*member : nullptr;
}

UserDefaults::Values DefaultsDocument::values() const {
    UserDefaults::Values values;
    for (const Member& member : members_)
        if (member.value)
            values.emplace(member.key, *member.value);
    return values;
}

std::optional<UserDefaultsValue> DefaultsDocument::value(std::string_view key) const {
    const Member* member = find(key);
    return member != nullptr ? member->value : std::nullopt;
}

bool DefaultsDocument::hasMember(std::string_view key) const {
    return find(key) != nullptr;
}

void DefaultsDocument::set(std::string_view key, const UserDefaultsValue& value) {
    const auto member = std::ranges::find(members_, key, &Member::key);
    if (member != members_.end()) {
        member->json = jsonText(value);
        member->value = value;
    } else {
        members_.push_back({std::string(key), jsonText(std::string(key)), jsonText(value), value});
    }
}

void DefaultsDocument::remove(std::string_view key) {
    std::erase_if(members_, [&](const Member& member) { return member.key == key; });
}

std::string_view DefaultsDocument::json(std::string_view key) const {
    const Member* member = find(key);
    return member != nullptr ? std::string_view(member->json) : std::string_view();
}

void DefaultsDocument::setJSON(std::string_view key, std::string json) {
    const auto member = std::ranges::find(members_, key, &Member::key);
    if (member == members_.end()) {
        members_.push_back({std::string(key), jsonText(std::string(key)), std::move(json), std::nullopt});
    } else {
        member->json = std::move(json);
        member->value.reset();
    }
}

std::string DefaultsDocument::line() const {
    std::string line = "{";
    for (const Member& member : members_) {
        line += line.size() > 1 ? ", " : "";
        line.append(member.keyJSON).append(": ").append(member.json);
    }
    return line + "}";
}

std::string DefaultsDocument::text() const {
    std::string text = "{";
    for (const Member& member : members_) {
        text += text.size() > 1 ? ",\n  " : "\n  ";
        text += member.keyJSON;
        text += ": ";
        text += member.json;
    }
    text += members_.empty() ? "}\n" : "\n}\n";
    return text;
}

} // namespace tarnwell
