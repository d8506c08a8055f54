#include "TarnwellCore/Platform/DateText.hpp"

#include "TarnwellCore/Platform/UnfairLock.hpp"

#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/reldatefmt.h>
#include <unicode/unistr.h>

#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string_view>

namespace tarnwell {

namespace {

/// The locale of dates. ICU's own default is that of messages.
icu::Locale dateLocale() {
    for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || *value == '\0')
            continue;
        const std::string_view name = value;
        if (name == "C" || name == "POSIX" || name.starts_with("C."))
            break;
        return icu::Locale::createCanonical(value);
    }
    return icu::Locale("en", "US", "POSIX");
}

UDate milliseconds(Date date) {
    return date.time_since_epoch().count() * 1000;
}

std::string utf8(const icu::UnicodeString& text) {
    std::string bytes;
    return text.toUTF8String(bytes);
}

/// What a formatter is made once for; null where ICU has no data.
struct MediumDate {
    UnfairLock lock;
    std::unique_ptr<icu::DateFormat> formatter; // guarded by lock

    MediumDate()
        : formatter(icu::DateFormat::createDateTimeInstance(icu::DateFormat::kMedium, icu::DateFormat::kShort,
                                                            dateLocale())) {}
};

struct RelativeDate {
    UnfairLock lock;
    std::unique_ptr<icu::Calendar> calendar;                   // guarded by lock
    std::unique_ptr<icu::RelativeDateTimeFormatter> formatter; // guarded by lock

    RelativeDate() {
        const icu::Locale locale = dateLocale();
        UErrorCode status = U_ZERO_ERROR;
        calendar.reset(icu::Calendar::createInstance(locale, status));
        formatter = std::make_unique<icu::RelativeDateTimeFormatter>(locale, status);
        if (U_FAILURE(status) != 0)
            formatter.reset();
    }
};

/// The words for the largest unit of which at least a whole one lies between the dates; empty when ICU
/// cannot tell.
std::string relativeText(Date date, Date reference) {
    static RelativeDate shared;
    const std::lock_guard guard(shared.lock);
    if (!shared.formatter)
        return {};
    static constexpr struct {
        UCalendarDateFields field;
        URelativeDateTimeUnit unit;
    } units[] = {
        {UCAL_YEAR, UDAT_REL_UNIT_YEAR},         {UCAL_MONTH, UDAT_REL_UNIT_MONTH},
        {UCAL_WEEK_OF_YEAR, UDAT_REL_UNIT_WEEK}, {UCAL_DATE, UDAT_REL_UNIT_DAY},
        {UCAL_HOUR_OF_DAY, UDAT_REL_UNIT_HOUR},  {UCAL_MINUTE, UDAT_REL_UNIT_MINUTE},
        {UCAL_SECOND, UDAT_REL_UNIT_SECOND},
    };
    UErrorCode status = U_ZERO_ERROR;
    shared.calendar->setTime(milliseconds(reference), status);
    std::int32_t count = 0;
    URelativeDateTimeUnit unit = UDAT_REL_UNIT_SECOND;
    for (const auto& each : units) {
        unit = each.unit;
        // Moves the calendar on by what it counted.
        count = shared.calendar->fieldDifference(milliseconds(date), each.field, status);
        if (count != 0)
            break;
    }
    icu::UnicodeString text;
    shared.formatter->format(count, unit, text, status);
    return U_FAILURE(status) != 0 ? std::string() : utf8(text);
}

} // namespace

std::string localizedRelativeDate(Date date, Date reference) {
    std::string text = relativeText(date, reference);
    return text.empty() ? localizedMediumDate(date) : text;
}

std::string localizedMediumDate(Date date) {
    static MediumDate shared;
    const std::lock_guard guard(shared.lock);
    icu::UnicodeString text;
    if (shared.formatter)
        shared.formatter->format(milliseconds(date), text);
    return utf8(text);
}

} // namespace tarnwell
