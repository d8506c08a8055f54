#pragma once

// Regular expressions by the system's library, with a bound on what one text may cost.
//
// The library of both systems is ICU's. What its dialect shares with ECMAScript is nearly all that people
// type: classes, groups with and without names, alternatives, greedy and lazy repetition, looking ahead, back
// references, \d \w \s \b \uXXXX \xXX. Where they differ:
// - \d, \w, \b and case are those of all scripts, as in ECMAScript with the flags u and v, not of ASCII;
// - in a class, "[" opens a class within the class and "&&" and "--" are operators: write \[ \& \-;
// - "$" also matches before a line feed at the end; "." also leaves out U+0085, line tabulation, form feed;
// - "{" that begins no repetition is an error: write \{ ; "[^]" and "[]" are errors;
// - looking behind needs something of bounded length;
// - there are more: possessive and atomic groups, (?i), \p{…} without a flag, \Q…\E, \A, \z, \h, \R, \X.
// std::regex, which is ECMAScript to the letter, recurses once for each character of the text.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tarnwell {

/// `what()` is for the user: what is wrong with an expression.
class RegularExpressionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One compiled expression. Confined to one thread at a time.
class RegularExpression {
public:
    enum class Answer : std::uint8_t {
        matches,
        doesNotMatch,
        undecided, ///< the text would have cost more than a text may: it was given up
    };

    /// Some millions of steps, a few hundredths of a second; a name that is no trap takes some hundred.
    static constexpr int mostStepsPerText = 1'000'000;
    /// Bytes that an expression may have.
    static constexpr std::size_t longestPattern = 10'000;

    /// `pattern` is valid UTF-8. Throws RegularExpressionError.
    RegularExpression(std::string_view pattern, bool ignoresCase);
    ~RegularExpression();
    RegularExpression(RegularExpression&&) noexcept;
    RegularExpression& operator=(RegularExpression&&) noexcept;

    /// Whether the expression matches anywhere in the text, which is valid UTF-8. Takes no more of the stack
    /// for a longer text.
    Answer search(std::string_view text);

private:
    struct Compiled;
    std::unique_ptr<Compiled> compiled_;
};

} // namespace tarnwell
