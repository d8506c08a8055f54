#include "TarnwellCore/Platform/PropertyList.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <Foundation/Foundation.h>

namespace tarnwell {

namespace {

std::vector<std::string> textsOf(id value) {
    std::vector<std::string> texts;
    if ([value isKindOfClass:NSString.class])
        texts.push_back(utf8FromString(value));
    else if ([value isKindOfClass:NSArray.class])
        for (id element in static_cast<NSArray*>(value))
            if ([element isKindOfClass:NSString.class])
                texts.push_back(utf8FromString(element));
    return texts;
}

} // namespace

std::optional<PropertyListTexts> PropertyListDetail::parse(std::string_view bytes) {
    @autoreleasepool {
        NSData* const data = [NSData dataWithBytes:bytes.data() length:bytes.size()];
        id const list = [NSPropertyListSerialization propertyListWithData:data
                                                                  options:NSPropertyListImmutable
                                                                   format:nil
                                                                    error:nil];
        if (![list isKindOfClass:NSDictionary.class])
            return std::nullopt;
        PropertyListTexts texts;
        NSDictionary* const dictionary = list;
        for (id key in dictionary)
            if ([key isKindOfClass:NSString.class])
                if (auto found = textsOf(dictionary[key]); !found.empty())
                    texts.insert_or_assign(utf8FromString(key), std::move(found));
        return texts;
    }
}

} // namespace tarnwell
