#pragma once

// Inputs of targets that take values rather than bytes are texts: seeds are written, and findings read, in an
// editor. Every text is an input; what is missing or makes no sense reads as 0 or as empty.

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarnwell::fuzz {

/// Takes a text apart, from its beginning to its end. The text must outlive this.
class TextInput {
public:
    TextInput(const std::uint8_t* data, std::size_t size)
        : text_(reinterpret_cast<const char*>(data), size) {}
    explicit TextInput(std::string_view text) : text_(text) {}

    bool isAtEnd() const { return text_.empty(); }

    /// What stands before the next `separator`, which is taken too, or all that is left.
    std::string_view take(char separator) {
        const std::size_t length = text_.find(separator);
        const std::string_view part = text_.substr(0, length);
        text_.remove_prefix(length == text_.npos ? text_.size() : length + 1);
        return part;
    }

    std::int64_t takeInteger(char separator = ' ') { return read<std::int64_t>(take(separator)); }
    /// "inf" and "nan" are numbers.
    double takeNumber(char separator = ' ') { return read<double>(take(separator)); }

private:
    template <class Value>
    static Value read(std::string_view word) {
        Value value = 0;
        std::from_chars(word.data(), word.data() + word.size(), value);
        return value;
    }

    std::string_view text_;
};

} // namespace tarnwell::fuzz
