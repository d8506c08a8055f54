#pragma once

// A document in JSON as a tree. Its accesses are spelled as those of RapidJSON's own tree, whose header newer
// compilers refuse.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tarnwell::test {

/// An access to what is not there, or of another type, throws std::exception, which fails the test.
class JSONValue {
public:
    using Array = std::vector<JSONValue>;
    using Object = std::vector<std::pair<std::string, JSONValue>>; // in the order of the text

    /// Nothing for what is no JSON or no UTF-8.
    static std::optional<JSONValue> read(const std::string& text);

    JSONValue() = default; // null
    template <class Content>
    void set(Content content) {
        content_.template emplace<Content>(std::move(content));
    }

    bool IsNull() const { return std::holds_alternative<std::monostate>(content_); }
    bool IsString() const { return std::holds_alternative<std::string>(content_); }
    bool IsArray() const { return std::holds_alternative<Array>(content_); }
    bool IsObject() const { return std::holds_alternative<Object>(content_); }

    bool GetBool() const { return std::get<bool>(content_); }
    std::int64_t GetInt64() const { return std::get<std::int64_t>(content_); }
    /// Of a number with or without a fraction.
    double GetDouble() const;
    const char* GetString() const { return std::get<std::string>(content_).c_str(); }
    std::size_t GetStringLength() const { return std::get<std::string>(content_).size(); }
    const Array& GetArray() const { return std::get<Array>(content_); }
    const Object& GetObject() const { return std::get<Object>(content_); }
    Array& GetArray() { return std::get<Array>(content_); }
    Object& GetObject() { return std::get<Object>(content_); }

    std::size_t Size() const { return GetArray().size(); }
    std::size_t MemberCount() const { return GetObject().size(); }
    bool HasMember(std::string_view key) const;
    const JSONValue& operator[](std::size_t index) const { return GetArray().at(index); }
    const JSONValue& operator[](std::string_view key) const;
    bool operator==(std::string_view text) const { return IsString() && GetString() == text; }

private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, Object> content_;
};

} // namespace tarnwell::test
