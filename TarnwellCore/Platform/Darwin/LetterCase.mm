#include "TarnwellCore/Platform/LetterCase.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <Foundation/Foundation.h>

namespace tarnwell {

namespace {

NSString* folded(NSString* text) {
    return [[text.precomposedStringWithCanonicalMapping stringByFoldingWithOptions:NSCaseInsensitiveSearch
                                                                            locale:NSLocale.currentLocale]
        precomposedStringWithCanonicalMapping];
}

NSString* textOf(char32_t character) {
    const std::uint32_t code = CFSwapInt32HostToLittle(static_cast<std::uint32_t>(character));
    return [[NSString alloc] initWithBytes:&code length:4 encoding:NSUTF32LittleEndianStringEncoding];
}

/// Whether nothing combines with the character from behind: it is no mark and no later part of a syllable.
bool standsAlone(char32_t character) {
    const bool isLaterJamo = character >= 0x1160 && character <= 0x11FF;
    return !isLaterJamo && ![NSCharacterSet.nonBaseCharacterSet longCharacterIsMember:character];
}

} // namespace

std::string lowerCased(std::string_view text) {
    @autoreleasepool {
        NSData* lower = [stringFromUTF8(text).lowercaseString dataUsingEncoding:NSUTF8StringEncoding];
        return lower != nil ? std::string(static_cast<const char*>(lower.bytes), lower.length)
                            : std::string(text);
    }
}

std::string caseFolded(std::string_view text) {
    @autoreleasepool {
        NSString* const whole = stringFromUTF8(text);
        NSData* bytes = whole != nil ? [folded(whole) dataUsingEncoding:NSUTF8StringEncoding] : nil;
        return bytes != nil ? std::string(static_cast<const char*>(bytes.bytes), bytes.length)
                            : std::string(text);
    }
}

char32_t caseFoldedAlone(char32_t character) {
    @autoreleasepool {
        NSString* const text = textOf(character);
        if (text == nil || !standsAlone(character) ||
            ![text.precomposedStringWithCanonicalMapping isEqualToString:text])
            return 0;
        NSData* const codes = [folded(text) dataUsingEncoding:NSUTF32LittleEndianStringEncoding];
        if (codes.length != 4)
            return 0;
        std::uint32_t code = 0;
        [codes getBytes:&code length:4];
        const char32_t result = CFSwapInt32LittleToHost(code);
        return standsAlone(result) ? result : 0;
    }
}

} // namespace tarnwell
