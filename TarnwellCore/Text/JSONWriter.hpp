#pragma once

// Writes JSON documents: pretty-printed, two blanks a level, in one string. The caller writes the keys of an
// object in ascending order; the writer holds no tree, so a document may be as long as memory allows and
// nested as deep as it likes.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarnwell {

/// Appends to a string that the caller owns. Confined to one thread.
class JSONWriter {
public:
    explicit JSONWriter(std::string& text) : text_(text) {}
    /// Goes on where another one has stopped: inside of so many open objects and arrays, in the innermost of
    /// which nothing stands yet or something does.
    JSONWriter(std::string& text, std::size_t depth, bool isEmpty)
        : text_(text), depth_(depth), isEmpty_(isEmpty) {}
    JSONWriter(const JSONWriter&) = delete;
    JSONWriter& operator=(const JSONWriter&) = delete;

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();

    /// The next value's key.
    void key(std::string_view name);
    /// The same for one that stands as it is, which then is not looked through.
    void escapedKey(std::string_view escaped);

    /// Bytes that are not UTF-8 become U+FFFD.
    void string(std::string_view bytes);
    /// A string that was put together from what `appendEscaped` made.
    void escapedString(std::string_view escaped);
    void integer(std::int64_t value);
    /// The shortest text that reads back to the same double; null for what is not finite.
    void number(double value);
    void boolean(bool value);
    void null();

    /// Appends the bytes as they stand between the quotes of a JSON string.
    static void appendEscaped(std::string& text, std::string_view bytes);
    /// The number of bytes that `appendEscaped` appends.
    static std::size_t escapedLength(std::string_view bytes);

private:
    /// Appends what stands before the next element, then `count` bytes that `fill` writes.
    template <class Fill>
    void write(std::size_t count, Fill fill);
    void write(std::string_view value);
    void begin(char bracket);
    void end(char bracket);

    std::string& text_;
    /// Open objects and arrays.
    std::size_t depth_ = 0;
    /// Whether nothing stands in the innermost one yet.
    bool isEmpty_ = true;
    /// Whether a key waits for its value.
    bool followsKey_ = false;
};

} // namespace tarnwell
