#include "TarnwellCore/Platform/RegularExpression.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <Foundation/Foundation.h>

namespace tarnwell {

namespace {

// The progress block is called once for so many steps.
constexpr int stepsPerCall = 10'000;

} // namespace

struct RegularExpression::Compiled {
    NSRegularExpression* expression = nil;
};

RegularExpression::RegularExpression(std::string_view pattern, bool ignoresCase)
    : compiled_(std::make_unique<Compiled>()) {
    @autoreleasepool {
        const std::string start = "The regular expression cannot be used: ";
        if (pattern.size() > longestPattern)
            throw RegularExpressionError(start + "it is too long.");
        NSString* const text = stringFromUTF8(pattern);
        NSError* error = nil;
        compiled_->expression = [NSRegularExpression
            regularExpressionWithPattern:text != nil ? text : @""
                                 options:ignoresCase ? NSRegularExpressionCaseInsensitive
                                                     : static_cast<NSRegularExpressionOptions>(0)
                                   error:&error];
        if (compiled_->expression == nil)
            throw RegularExpressionError(start + descriptionOf(error));
    }
}

RegularExpression::~RegularExpression() = default;
RegularExpression::RegularExpression(RegularExpression&&) noexcept = default;
RegularExpression& RegularExpression::operator=(RegularExpression&&) noexcept = default;

RegularExpression::Answer RegularExpression::search(std::string_view text) {
    @autoreleasepool {
        NSString* const whole = stringFromUTF8(text);
        if (whole == nil)
            return Answer::undecided;
        __block Answer answer = Answer::doesNotMatch;
        __block int calls = 0;
        // Foundation gives up by itself when its places to look back to take too much memory.
        [compiled_->expression enumerateMatchesInString:whole
                                                options:NSMatchingReportProgress | NSMatchingReportCompletion
                                                  range:NSMakeRange(0, whole.length)
                                             usingBlock:^(NSTextCheckingResult* _Nullable result,
                                                          NSMatchingFlags flags, BOOL* _Nonnull stop) {
                                               if (result != nil)
                                                   answer = Answer::matches;
                                               else if ((flags & NSMatchingInternalError) != 0 ||
                                                        ((flags & NSMatchingProgress) != 0 &&
                                                         ++calls >= mostStepsPerText / stepsPerCall))
                                                   answer = Answer::undecided;
                                               *stop = answer != Answer::doesNotMatch;
                                             }];
        return answer;
    }
}

} // namespace tarnwell
