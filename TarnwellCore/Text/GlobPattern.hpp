#pragma once

// File-name patterns as shells have them, and plain parts of a text as the simplest of them.
//
// All places of the pattern at which a text may stand are bits of one set, which each character of the text
// moves on: a text takes time by its length times the pattern's in words of 64, whatever the pattern, and the
// set for a path is that of its folder moved on by one name.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace tarnwell {

/// `*` stands for any characters but "/", `**` for any at all, and "**/" also for nothing; `?` for one but
/// "/"; `[a-z]` for one of these, `[!a-z]` and `[^a-z]` for one of the others; a backslash takes the next
/// character as it is. A bracket without an end stands for itself, so every text is a pattern. A byte that is
/// not UTF-8 counts as a character. Immutable; safe from any thread.
class GlobPattern {
public:
    explicit GlobPattern(std::string_view pattern);
    /// Of texts that contain this one.
    static GlobPattern containing(std::string_view text);

    using Word = std::uint64_t;
    /// How many words the set of places takes.
    std::size_t wordCount() const { return wordCount_; }
    /// The set before any text; `places` has `wordCount()` words, here and below.
    void start(std::span<Word> places) const;
    /// Moves the set on by a text that ends between characters.
    void advance(std::span<Word> places, std::string_view text) const;
    /// Whether what the set was moved on by is matched, all of it.
    bool accepts(std::span<const Word> places) const;

    /// Whether the pattern matches all of the text.
    bool matches(std::string_view text) const;

private:
    struct Range {
        char32_t first;
        char32_t last;
    };
    struct Element {
        enum class Kind : std::uint8_t { character, any, set, star, deepStar };
        Kind kind;
        bool isNegated = false;
        char32_t character = 0;
        std::vector<Range> ranges = {};
    };

    /// What the words of a set hand on to the next one while places without a character are added.
    struct Closing {
        Word skipCarry = 0;
        Word starCarry = 0;

        Word close(Word entered, Word kept, Word skippable, Word stars);
    };

    GlobPattern() = default;
    void parse(std::string_view pattern);
    bool parseSet(std::string_view& rest);
    void addStar(bool isDeep);
    void prepare();
    static bool meets(const Element& element, char32_t character);
    void step(std::span<Word> places, const Word* consumed, const Word* kept) const;

    std::vector<Element> elements_;
    std::size_t wordCount_ = 0;
    // Sets of places, one after another, `wordCount_` words each.
    std::vector<Word> consumed_; ///< for each ASCII character, the elements that take it
    std::vector<Word> stars_;
    std::vector<Word> deepStars_;
    std::vector<Word> skippable_; ///< "**" with a "/" behind it
};

} // namespace tarnwell
