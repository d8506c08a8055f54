#include "TarnwellCore/Platform/RegularExpression.hpp"

#include <unicode/uregex.h>
#include <unicode/ustring.h>

#include <limits>

namespace tarnwell {

namespace {

// Where the library looks back for another way it keeps the places on the heap, up to this many bytes.
constexpr std::int32_t mostStackBytes = 8'000'000;
// The call-back comes once for so many steps.
constexpr int stepsPerCall = 10'000;

std::string descriptionOf(UErrorCode status) {
    switch (status) {
    case U_REGEX_MISMATCHED_PAREN:
        return "a parenthesis is missing or one too many";
    case U_REGEX_MISSING_CLOSE_BRACKET:
        return "a bracket is not closed";
    case U_REGEX_BAD_ESCAPE_SEQUENCE:
        return "a backslash stands before what it cannot";
    case U_REGEX_BAD_INTERVAL:
    case U_REGEX_MAX_LT_MIN:
    case U_REGEX_NUMBER_TOO_BIG:
        return "the numbers of a repetition are not valid";
    case U_REGEX_INVALID_BACK_REF:
        return "it refers to a group that is not there";
    case U_REGEX_LOOK_BEHIND_LIMIT:
        return "what is looked behind for has no bounded length";
    case U_REGEX_INVALID_RANGE:
        return "a range runs backwards";
    case U_REGEX_PATTERN_TOO_BIG:
    case U_REGEX_INTERNAL_ERROR:
        return "it is too long or nested too deeply";
    default:
        return "it is not valid";
    }
}

std::u16string wideText(std::string_view text) {
    std::u16string wide(text.size(), u'\0');
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(wide.data(), static_cast<std::int32_t>(wide.size()), &length, text.data(),
                         static_cast<std::int32_t>(text.size()), 0xFFFD, nullptr, &status);
    wide.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
    return wide;
}

} // namespace

struct RegularExpression::Compiled {
    URegularExpression* expression = nullptr;
    int calls = 0;

    ~Compiled() { uregex_close(expression); }

    static UBool goesOn(const void* context, std::int32_t /*steps*/) {
        // The library hands back what it was given, which is not constant.
        auto* const self = const_cast<Compiled*>(static_cast<const Compiled*>(context));
        return ++self->calls < mostStepsPerText / stepsPerCall;
    }
};

RegularExpression::RegularExpression(std::string_view pattern, bool ignoresCase)
    : compiled_(std::make_unique<Compiled>()) {
    const std::string start = "The regular expression cannot be used: ";
    if (pattern.size() > longestPattern)
        throw RegularExpressionError(start + "it is too long.");
    const std::u16string wide = wideText(pattern);
    UErrorCode status = U_ZERO_ERROR;
    UParseError place{};
    compiled_->expression = uregex_open(wide.data(), static_cast<std::int32_t>(wide.size()),
                                        ignoresCase ? UREGEX_CASE_INSENSITIVE : 0, &place, &status);
    if (U_FAILURE(status)) {
        const bool hasPlace = place.offset > 0;
        throw RegularExpressionError(
            start + descriptionOf(status) +
            (hasPlace ? " (character " + std::to_string(place.offset) + ")." : std::string(".")));
    }
    uregex_setStackLimit(compiled_->expression, mostStackBytes, &status);
    uregex_setMatchCallback(compiled_->expression, Compiled::goesOn, compiled_.get(), &status);
    if (U_FAILURE(status))
        throw RegularExpressionError(start + descriptionOf(status) + ".");
}

RegularExpression::~RegularExpression() = default;
RegularExpression::RegularExpression(RegularExpression&&) noexcept = default;
RegularExpression& RegularExpression::operator=(RegularExpression&&) noexcept = default;

RegularExpression::Answer RegularExpression::search(std::string_view text) {
    if (text.size() > std::numeric_limits<std::int32_t>::max())
        return Answer::undecided;
    const std::u16string wide = wideText(text);
    compiled_->calls = 0;
    UErrorCode status = U_ZERO_ERROR;
    uregex_setText(compiled_->expression, wide.data(), static_cast<std::int32_t>(wide.size()), &status);
    const bool isFound = uregex_find(compiled_->expression, 0, &status) != 0;
    if (U_FAILURE(status))
        return Answer::undecided;
    return isFound ? Answer::matches : Answer::doesNotMatch;
}

} // namespace tarnwell
