#include "TarnwellCore/Platform/LetterCase.hpp"

#include <unicode/ucasemap.h>

#include <cstdint>

namespace tarnwell {

std::string lowerCased(std::string_view text) {
    // Never closed: names may be sorted on a thread that outlives static objects.
    static const UCaseMap* const rules = [] {
        UErrorCode status = U_ZERO_ERROR;
        return ucasemap_open("", 0, &status);
    }();
    if (rules == nullptr)
        return std::string(text);
    // No letter grows beyond three times its bytes in lower case.
    std::string lower(text.size() * 3, '\0');
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length =
        ucasemap_utf8ToLower(rules, lower.data(), static_cast<std::int32_t>(lower.size()), text.data(),
                             static_cast<std::int32_t>(text.size()), &status);
    if (U_FAILURE(status))
        return std::string(text);
    lower.resize(static_cast<std::size_t>(length));
    return lower;
}

} // namespace tarnwell
