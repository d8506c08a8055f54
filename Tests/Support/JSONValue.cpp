#include "Tests/Support/JSONValue.hpp"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <stdexcept>

namespace tarnwell::test {

namespace {

class Builder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Builder> {
public:
    bool Null() {
        place();
        return true;
    }
    bool Bool(bool value) { return set(value); }
    bool Int(int value) { return Int64(value); }
    bool Uint(unsigned value) { return Int64(value); }
    bool Uint64(std::uint64_t value) {
        return std::in_range<std::int64_t>(value) && Int64(static_cast<std::int64_t>(value));
    }
    bool Int64(std::int64_t value) { return set(value); }
    bool Double(double value) { return set(value); }
    bool String(const char* text, rapidjson::SizeType length, bool) { return set(std::string(text, length)); }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        open_.back().GetObject().emplace_back(std::string(text, length), JSONValue());
        return true;
    }
    bool StartObject() {
        open_.emplace_back().set(JSONValue::Object());
        return true;
    }
    bool StartArray() {
        open_.emplace_back().set(JSONValue::Array());
        return true;
    }
    bool EndObject(rapidjson::SizeType) { return end(); }
    bool EndArray(rapidjson::SizeType) { return end(); }

    JSONValue& root() { return root_; }

private:
    template <class Content>
    bool set(Content content) {
        place().set(std::move(content));
        return true;
    }
    bool end() {
        JSONValue value = std::move(open_.back());
        open_.pop_back();
        place() = std::move(value);
        return true;
    }
    /// Where the next value goes.
    JSONValue& place() {
        if (open_.empty())
            return root_;
        return open_.back().IsArray() ? open_.back().GetArray().emplace_back()
                                      : open_.back().GetObject().back().second;
    }

    std::vector<JSONValue> open_; // arrays and objects that have not come to their end, the outermost first
    JSONValue root_;
};

} // namespace

std::optional<JSONValue> JSONValue::read(const std::string& text) {
    rapidjson::MemoryStream stream(text.data(), text.size());
    Builder builder;
    const bool isWhole =
        !rapidjson::Reader().Parse<rapidjson::kParseValidateEncodingFlag>(stream, builder).IsError();
    return isWhole ? std::optional(std::move(builder.root())) : std::nullopt;
}

double JSONValue::GetDouble() const {
    const auto* whole = std::get_if<std::int64_t>(&content_);
    return whole == nullptr ? std::get<double>(content_) : static_cast<double>(*whole);
}

bool JSONValue::HasMember(std::string_view key) const {
    return std::ranges::find(GetObject(), key, &Object::value_type::first) != GetObject().end();
}

const JSONValue& JSONValue::operator[](std::string_view key) const {
    const auto found = std::ranges::find(GetObject(), key, &Object::value_type::first);
    if (found == GetObject().end())
        throw std::out_of_range("no member " + std::string(key));
    return found->second;
}

} // namespace tarnwell::test
