#include "TarnwellCore/Platform/LocalizedOrder.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <Foundation/Foundation.h>

namespace tarnwell {

int compareInLocalizedOrder(std::string_view left, std::string_view right) {
    @autoreleasepool {
        NSString* leftText = stringFromUTF8(left);
        NSString* rightText = stringFromUTF8(right);
        if (leftText == nil || rightText == nil)
            return left.compare(right);
        return static_cast<int>([leftText localizedStandardCompare:rightText]);
    }
}

} // namespace tarnwell
