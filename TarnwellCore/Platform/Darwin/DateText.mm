#include "TarnwellCore/Platform/DateText.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"
#include "TarnwellCore/Platform/UnfairLock.hpp"

#import <Foundation/Foundation.h>

#include <mutex>

namespace tarnwell {

namespace {

/// The date, or the end of the years that calendars can reckon with.
NSDate* foundationDate(Date date) {
    NSDate* exact = [NSDate dateWithTimeIntervalSinceReferenceDate:referenceSeconds(date)];
    return [[exact laterDate:NSDate.distantPast] earlierDate:NSDate.distantFuture];
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
        return utf8FromString([shared.formatter localizedStringForDate:foundationDate(date)
                                                        relativeToDate:foundationDate(reference)]);
    }
}

std::string localizedMediumDate(Date date) {
    @autoreleasepool {
        static MediumDate shared;
        const std::lock_guard guard(shared.lock);
        return utf8FromString([shared.formatter stringFromDate:foundationDate(date)]);
    }
}

} // namespace tarnwell
