#include "TarnwellCore/Platform/LetterCase.hpp"

#import <Foundation/Foundation.h>

namespace tarnwell {

std::string lowerCased(std::string_view text) {
    @autoreleasepool {
        NSString* string = [[NSString alloc] initWithBytes:text.data()
                                                    length:text.size()
                                                  encoding:NSUTF8StringEncoding];
        NSData* lower = [string.lowercaseString dataUsingEncoding:NSUTF8StringEncoding];
        return lower != nil ? std::string(static_cast<const char*>(lower.bytes), lower.length)
                            : std::string(text);
    }
}

} // namespace tarnwell
