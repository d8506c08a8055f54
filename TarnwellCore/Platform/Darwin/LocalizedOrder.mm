#include "TarnwellCore/Platform/LocalizedOrder.hpp"

#import <Foundation/Foundation.h>

namespace tarnwell {

namespace {

NSString* _Nullable textOf(std::string_view bytes) {
    return [[NSString alloc] initWithBytes:bytes.data() length:bytes.size() encoding:NSUTF8StringEncoding];
}

} // namespace

int compareInLocalizedOrder(std::string_view left, std::string_view right) {
    @autoreleasepool {
        NSString* leftText = textOf(left);
        NSString* rightText = textOf(right);
        if (leftText == nil || rightText == nil)
            return left.compare(right);
        return static_cast<int>([leftText localizedStandardCompare:rightText]);
    }
}

} // namespace tarnwell
