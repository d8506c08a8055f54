#include "TarnwellCore/Text/JSONWriter.hpp"

#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <rapidjson/prettywriter.h>

#include <cmath>

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

} // namespace

struct JSONWriter::Implementation {
    StringStream stream;
    rapidjson::PrettyWriter<StringStream> writer;

    explicit Implementation(std::string& text) : stream{text}, writer(stream) { writer.SetIndent(' ', 2); }
};

namespace {
rapidjson::SizeType length(std::string_view text) {
    return static_cast<rapidjson::SizeType>(text.size());
}
} // namespace

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
    if (isValidUTF8(bytes)) [[likely]] {
        implementation_->writer.String(bytes.data(), length(bytes));
        return;
    }
    const std::string repaired = repairedUTF8(bytes);
    implementation_->writer.String(repaired.data(), length(repaired));
}
void JSONWriter::integer(std::int64_t value) {
    implementation_->writer.Int64(value);
}
void JSONWriter::number(double value) {
    if (!std::isfinite(value)) {
        implementation_->writer.Null();
        return;
    }
    const std::string text = decimalText(value);
    implementation_->writer.RawValue(text.data(), text.size(), rapidjson::kNumberType);
}
void JSONWriter::boolean(bool value) {
    implementation_->writer.Bool(value);
}

} // namespace tarnwell
