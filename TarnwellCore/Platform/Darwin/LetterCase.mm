#include "TarnwellCore/Platform/LetterCase.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <Foundation/Foundation.h>

namespace tarnwell {

std::string lowerCased(std::string_view text) {
    @autoreleasepool {
        NSData* lower = [stringFromUTF8(text).lowercaseString dataUsingEncoding:NSUTF8StringEncoding];
        return lower != nil ? std::string(static_cast<const char*>(lower.bytes), lower.length)
                            : std::string(text);
    }
}

} // namespace tarnwell
