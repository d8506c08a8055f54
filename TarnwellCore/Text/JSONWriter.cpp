#include "TarnwellCore/Text/JSONWriter.hpp"

#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <rapidjson/prettywriter.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

namespace tarnwell {

namespace {

/// RapidJSON's output stream over a std::string.
struct StringStream {
    using Ch = char;
    std::string& text;
    void Put(char character) { text.push_back(character); }
    void Flush() {}
};

void PutReserve(StringStream&, std::size_t) {}
void PutUnsafe(StringStream& stream, char character) {
    stream.Put(character);
}
/// Indentation in one piece: it is most of a deeply nested document.
void PutN(StringStream& stream, char character, std::size_t count) {
    stream.text.append(count, character);
}

/// RapidJSON keeps the nesting and writes what stands between values; the values themselves are appended
/// whole instead of byte by byte, which makes long documents twice as fast.
class Writer : public rapidjson::PrettyWriter<StringStream> {
public:
    explicit Writer(StringStream& stream) : PrettyWriter(stream) { SetIndent(' ', 2); }

    /// The text after which a value of this type belongs.
    std::string& beginValue(rapidjson::Type type) {
        PrettyPrefix(type);
        return os_->text;
    }
};

constexpr std::uint64_t everyByte(std::uint64_t byte) {
    return byte * 0x0101010101010101u;
}

/// Whether any of eight bytes is a control character, a quote, a backslash or not ASCII.
constexpr bool needsAttention(std::uint64_t word) {
    const std::uint64_t quote = word ^ everyByte('"');
    const std::uint64_t backslash = word ^ everyByte('\\');
    const std::uint64_t control = (word - everyByte(0x20)) & ~word;
    return ((control | ((quote - everyByte(1)) & ~quote) | ((backslash - everyByte(1)) & ~backslash) | word) &
            everyByte(0x80)) != 0;
}

/// Whether the bytes stand in a JSON string as they are. Never mistakes others for such; most names are such.
bool isPlain(std::string_view bytes) {
    const char* next = bytes.data();
    std::size_t remaining = bytes.size();
    std::uint64_t word = 0;
    for (; remaining >= 8; next += 8, remaining -= 8) {
        std::memcpy(&word, next, 8);
        if (needsAttention(word))
            return false;
    }
    word = everyByte('a');
    std::memcpy(&word, next, remaining);
    return !needsAttention(word);
}

/// What stands behind the backslash for a byte that may not stand in a JSON string: a letter, or "u" for
/// the long form; 0 for the others.
constexpr std::array<char, 256> escapes = [] {
    std::array<char, 256> table{};
    for (std::size_t control = 0; control < 0x20; ++control)
        table[control] = 'u';
    table['\b'] = 'b';
    table['\f'] = 'f';
    table['\n'] = 'n';
    table['\r'] = 'r';
    table['\t'] = 't';
    table['"'] = '"';
    table['\\'] = '\\';
    return table;
}();

char escapeOf(char character) {
    return escapes[static_cast<unsigned char>(character)];
}

} // namespace

struct JSONWriter::Implementation {
    StringStream stream;
    Writer writer;

    explicit Implementation(std::string& text) : stream{text}, writer(stream) {}
};

JSONWriter::JSONWriter(std::string& text) : implementation_(std::make_unique<Implementation>(text)) {}
JSONWriter::~JSONWriter() = default;

void JSONWriter::beginObject() {
    implementation_->writer.StartObject();
}
void JSONWriter::endObject() {
    implementation_->writer.EndObject();
}
void JSONWriter::beginArray() {
    implementation_->writer.StartArray();
}
void JSONWriter::endArray() {
    implementation_->writer.EndArray();
}
void JSONWriter::key(std::string_view name) {
    string(name);
}
void JSONWriter::string(std::string_view bytes) {
    std::string& text = implementation_->writer.beginValue(rapidjson::kStringType);
    text += '"';
    appendEscaped(text, bytes);
    text += '"';
}
void JSONWriter::escapedString(std::string_view escaped) {
    std::string& text = implementation_->writer.beginValue(rapidjson::kStringType);
    text += '"';
    text += escaped;
    text += '"';
}
void JSONWriter::integer(std::int64_t value) {
    char digits[24];
    const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    implementation_->writer.beginValue(rapidjson::kNumberType).append(static_cast<const char*>(digits), end);
}
void JSONWriter::number(double value) {
    if (std::isfinite(value))
        appendDecimalText(implementation_->writer.beginValue(rapidjson::kNumberType), value);
    else
        implementation_->writer.Null();
}
void JSONWriter::boolean(bool value) {
    implementation_->writer.Bool(value);
}

void JSONWriter::appendEscaped(std::string& text, std::string_view bytes) {
    if (isPlain(bytes)) [[likely]] {
        text += bytes;
        return;
    }
    if (!isValidUTF8(bytes)) {
        appendEscaped(text, repairedUTF8(bytes));
        return;
    }
    for (const char character : bytes) {
        const char escape = escapeOf(character);
        if (escape == 0) {
            text += character;
            continue;
        }
        text += '\\';
        text += escape;
        if (escape == 'u') {
            constexpr const char* hexadecimal = "0123456789ABCDEF";
            text += "00";
            text += hexadecimal[character >> 4];
            text += hexadecimal[character & 0xF];
        }
    }
}

std::size_t JSONWriter::escapedLength(std::string_view bytes) {
    if (isPlain(bytes)) [[likely]]
        return bytes.size();
    if (!isValidUTF8(bytes))
        return escapedLength(repairedUTF8(bytes));
    std::size_t length = bytes.size();
    for (const char character : bytes) {
        const char escape = escapeOf(character);
        length += escape == 0 ? 0 : escape == 'u' ? 5 : 1;
    }
    return length;
}

} // namespace tarnwell
