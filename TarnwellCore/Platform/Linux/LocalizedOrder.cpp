#include "TarnwellCore/Platform/LocalizedOrder.hpp"

#include <unicode/ucol.h>
#include <unicode/uloc.h>

#include <cstdint>
#include <cstring>

namespace tarnwell {

namespace {

/// Never closed: volumes may be sorted on a thread that outlives static objects.
const UCollator* makeCollator() {
    UErrorCode status = U_ZERO_ERROR;
    // The C locale stands for no wish, not for the order of character codes that ICU takes it for.
    const char* locale = uloc_getDefault();
    if (std::strstr(locale, "POSIX") != nullptr)
        locale = "";
    UCollator* collator = ucol_open(locale, &status);
    if (U_FAILURE(status))
        return nullptr;
    ucol_setAttribute(collator, UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
    return collator;
}

} // namespace

int compareInLocalizedOrder(std::string_view left, std::string_view right) {
    static const UCollator* const collator = makeCollator();
    if (collator == nullptr)
        return left.compare(right);
    UErrorCode status = U_ZERO_ERROR;
    return ucol_strcollUTF8(collator, left.data(), static_cast<std::int32_t>(left.size()), right.data(),
                            static_cast<std::int32_t>(right.size()), &status);
}

} // namespace tarnwell
