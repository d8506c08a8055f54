#include "TarnwellCore/Platform/LetterCase.hpp"

#include <unicode/ucasemap.h>
#include <unicode/uchar.h>
#include <unicode/uloc.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <cstring>

namespace tarnwell {

namespace {

/// Turkish and Azerbaijani have an i without a dot; its capital is everybody else's I.
std::uint32_t foldingOptions() {
    static const std::uint32_t options = [] {
        char language[ULOC_LANG_CAPACITY] = {};
        UErrorCode status = U_ZERO_ERROR;
        uloc_getLanguage(uloc_getDefault(), language, sizeof language, &status);
        const bool isTurkic = std::strcmp(language, "tr") == 0 || std::strcmp(language, "az") == 0;
        return isTurkic ? std::uint32_t{U_FOLD_CASE_EXCLUDE_SPECIAL_I} : std::uint32_t{U_FOLD_CASE_DEFAULT};
    }();
    return options;
}

using Instance = const UNormalizer2* (*)(UErrorCode*);

std::u16string normalized(const std::u16string& text, Instance instance) {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2* form = instance(&status);
    // No character takes more than four times its units in either form.
    std::u16string result(text.size() * 4, u'\0');
    const std::int32_t length =
        unorm2_normalize(form, text.data(), static_cast<std::int32_t>(text.size()), result.data(),
                         static_cast<std::int32_t>(result.size()), &status);
    if (U_FAILURE(status))
        return text;
    result.resize(static_cast<std::size_t>(length));
    return result;
}

} // namespace

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

std::string caseFolded(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    std::u16string wide(text.size(), u'\0');
    std::int32_t length = 0;
    u_strFromUTF8(wide.data(), static_cast<std::int32_t>(wide.size()), &length, text.data(),
                  static_cast<std::int32_t>(text.size()), &status);
    if (U_FAILURE(status))
        return std::string(text);
    wide.resize(static_cast<std::size_t>(length));
    // Taken apart first: case is a matter of the letter below its marks.
    wide = normalized(wide, unorm2_getNFDInstance);
    std::u16string folded(wide.size() * 3, u'\0');
    length = u_strFoldCase(folded.data(), static_cast<std::int32_t>(folded.size()), wide.data(),
                           static_cast<std::int32_t>(wide.size()), foldingOptions(), &status);
    if (U_FAILURE(status))
        return std::string(text);
    folded.resize(static_cast<std::size_t>(length));
    folded = normalized(folded, unorm2_getNFCInstance);
    std::string result(folded.size() * 3, '\0');
    u_strToUTF8(result.data(), static_cast<std::int32_t>(result.size()), &length, folded.data(),
                static_cast<std::int32_t>(folded.size()), &status);
    if (U_FAILURE(status))
        return std::string(text);
    result.resize(static_cast<std::size_t>(length));
    return result;
}

char32_t caseFoldedAlone(char32_t character) {
    // Nothing combines with such a character from behind, so a row of them is composed as it stands.
    const auto standsAlone = [](UChar32 each) {
        return u_getCombiningClass(each) == 0 &&
               u_getIntPropertyValue(each, UCHAR_NFC_QUICK_CHECK) == UNORM_YES;
    };
    const auto code = static_cast<UChar32>(character);
    if (!standsAlone(code))
        return 0;
    UChar32 folded = u_foldCase(code, foldingOptions());
    UChar source[2];
    std::int32_t sourceLength = 0;
    U16_APPEND_UNSAFE(source, sourceLength, code);
    UChar target[8];
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length = u_strFoldCase(target, 8, source, sourceLength, foldingOptions(), &status);
    if (U_FAILURE(status) || length != U16_LENGTH(folded))
        return 0; // one letter that becomes several
    return standsAlone(folded) ? static_cast<char32_t>(folded) : 0;
}

} // namespace tarnwell
