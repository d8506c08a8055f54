#include "TarnwellCore/Platform/DateText.hpp"

#include "TarnwellCore/Platform/UnfairLock.hpp"

#import <Foundation/Foundation.h>

#include <mutex>

namespace tarnwell {

namespace {

NSDate* foundationDate(Date date) {
    return [NSDate dateWithTimeIntervalSinceReferenceDate:referenceSeconds(date)];
}

std::string utf8(NSString* text) {
    const char* bytes = text.UTF8String;
    return bytes == nullptr ? std::string() : std::string(bytes);
}

struct MediumDate {
    UnfairLock lock;
    NSDateFormatter* formatter = [[NSDateFormatter alloc] init]; // guarded by lock

    MediumDate() {
        formatter.dateStyle = NSDateFormatterMediumStyle;
        formatter.timeStyle = NSDateFormatterShortStyle;
    }
};

struct RelativeDate {
    UnfairLock lock;
    NSRelativeDateTimeFormatter* formatter = [[NSRelativeDateTimeFormatter alloc] init]; // guarded by lock

    RelativeDate() {
        formatter.unitsStyle = NSRelativeDateTimeFormatterUnitsStyleFull;
        formatter.dateTimeStyle = NSRelativeDateTimeFormatterStyleNamed;
    }
};

} // namespace

std::string localizedRelativeDate(Date date, Date reference) {
    @autoreleasepool {
        static RelativeDate shared;
        const std::lock_guard guard(shared.lock);
        return utf8([shared.formatter localizedStringForDate:foundationDate(date)
                                              relativeToDate:foundationDate(reference)]);
    }
}

std::string localizedMediumDate(Date date) {
    @autoreleasepool {
        static MediumDate shared;
        const std::lock_guard guard(shared.lock);
        return utf8([shared.formatter stringFromDate:foundationDate(date)]);
    }
}

} // namespace tarnwell
