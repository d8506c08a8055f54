#include "TarnwellCore/Platform/UserDefaults.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <Foundation/Foundation.h>

#include <limits>
#include <type_traits>

namespace tarnwell {

namespace {

NSData* _Nonnull dataFromBytes(std::string_view bytes) {
    return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

/// A text that is not UTF-8 has no string: it is kept as data.
id _Nonnull objectFromText(std::string_view text) {
    NSString* string = stringFromUTF8(text);
    return string != nil ? string : dataFromBytes(text);
}

id _Nonnull objectFromValue(const UserDefaultsValue& value) {
    return std::visit(
        [](const auto& content) -> id {
            using Content = std::decay_t<decltype(content)>;
            if constexpr (std::is_same_v<Content, bool>) {
                return content ? @YES : @NO;
            } else if constexpr (std::is_same_v<Content, std::int64_t> || std::is_same_v<Content, double>) {
                return @(content);
            } else if constexpr (std::is_same_v<Content, std::string>) {
                return objectFromText(content);
            } else if constexpr (std::is_same_v<Content, DataValue>) {
                return dataFromBytes(content.bytes);
            } else if constexpr (std::is_same_v<Content, Date>) {
                return [NSDate dateWithTimeIntervalSinceReferenceDate:referenceSeconds(content)];
            } else {
                NSMutableArray* array = [NSMutableArray arrayWithCapacity:content.size()];
                for (const std::string& each : content)
                    [array addObject:objectFromText(each)];
                return array;
            }
        },
        value);
}

std::string bytesOf(NSData* _Nonnull data) {
    return {static_cast<const char*>(data.bytes), data.length};
}

/// The bytes of a string, or of data that stands for one.
std::optional<std::string> textFromObject(id _Nonnull object) {
    if ([object isKindOfClass:NSData.class])
        return bytesOf(object);
    if (![object isKindOfClass:NSString.class])
        return std::nullopt;
    NSData* data = [static_cast<NSString*>(object) dataUsingEncoding:NSUTF8StringEncoding
                                                allowLossyConversion:YES];
    return data != nil ? std::optional(bytesOf(data)) : std::nullopt;
}

UserDefaultsValue valueFromNumber(NSNumber* _Nonnull number) {
    if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID())
        return number.boolValue == YES;
    if (CFNumberIsFloatType((__bridge CFNumberRef)number))
        return number.doubleValue;
    const bool isBeyondSigned =
        [number compare:@(std::numeric_limits<std::int64_t>::max())] == NSOrderedDescending;
    if (isBeyondSigned)
        return number.doubleValue;
    return std::int64_t{number.longLongValue};
}

std::optional<UserDefaultsValue> valueFromObject(id _Nonnull object) {
    if ([object isKindOfClass:NSNumber.class])
        return valueFromNumber(object);
    if ([object isKindOfClass:NSDate.class])
        return dateFromReferenceSeconds(static_cast<NSDate*>(object).timeIntervalSinceReferenceDate);
    if ([object isKindOfClass:NSData.class])
        return DataValue{bytesOf(object)};
    if ([object isKindOfClass:NSArray.class]) {
        std::vector<std::string> texts;
        for (id element in static_cast<NSArray*>(object)) {
            std::optional<std::string> text = textFromObject(element);
            if (!text)
                return std::nullopt;
            texts.push_back(std::move(*text));
        }
        return texts;
    }
    if (std::optional<std::string> text = textFromObject(object))
        return std::move(*text);
    return std::nullopt;
}

/// The system's own store; it is safe from any thread and writes on its own, some time after a change.
class SystemDefaults final : public UserDefaults {
public:
    /// `application` is the name under which the system keeps what is stored here.
    SystemDefaults(NSUserDefaults* _Nonnull defaults, NSString* _Nonnull application)
        : defaults_(defaults), application_(application) {}

    void registerDefaults(const Values& values) override {
        UserDefaults::registerDefaults(values);
        @autoreleasepool {
            NSMutableDictionary<NSString*, id>* dictionary = [NSMutableDictionary dictionary];
            for (const auto& [key, value] : values)
                if (NSString* name = stringFromUTF8(key))
                    dictionary[name] = objectFromValue(value);
            [defaults_ registerDefaults:dictionary];
        }
    }

    /// A program without a run loop that ends at once would otherwise take its last changes with it.
    bool synchronize() override {
        @autoreleasepool {
            return CFPreferencesAppSynchronize((__bridge CFStringRef)application_) != 0;
        }
    }

protected:
    std::optional<UserDefaultsValue> storedValue(std::string_view key) const override {
        @autoreleasepool {
            NSString* name = stringFromUTF8(key);
            id object = name != nil ? [defaults_ objectForKey:name] : nil;
            return object != nil ? valueFromObject(object) : std::nullopt;
        }
    }

    void store(Changes changes) override {
        @autoreleasepool {
            for (const auto& [key, value] : changes) {
                NSString* name = stringFromUTF8(key);
                if (name == nil)
                    continue;
                if (value)
                    [defaults_ setObject:objectFromValue(*value) forKey:name];
                else
                    [defaults_ removeObjectForKey:name];
            }
        }
    }

private:
    NSUserDefaults* _Nonnull const defaults_;
    NSString* _Nonnull const application_;
};

} // namespace

std::shared_ptr<UserDefaults> UserDefaults::standard() {
    @autoreleasepool {
        static const std::shared_ptr<UserDefaults> defaults = std::make_shared<SystemDefaults>(
            NSUserDefaults.standardUserDefaults, (__bridge NSString*)kCFPreferencesCurrentApplication);
        return defaults;
    }
}

std::shared_ptr<UserDefaults> UserDefaults::suite(const std::string& name) {
    @autoreleasepool {
        NSString* text = stringFromUTF8(name);
        // The program's own name and that of the global domain name no suite, nor do bytes that are no text.
        NSUserDefaults* defaults = text != nil ? [[NSUserDefaults alloc] initWithSuiteName:text] : nil;
        return defaults != nil ? std::make_shared<SystemDefaults>(defaults, text) : standard();
    }
}

} // namespace tarnwell
