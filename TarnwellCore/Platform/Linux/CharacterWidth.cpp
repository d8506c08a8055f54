#include "TarnwellCore/Platform/CharacterWidth.hpp"

#include <unicode/uchar.h>

namespace tarnwell {

int characterWidth(char32_t character) noexcept {
    const auto code = static_cast<UChar32>(character);
    // The vowels and final consonants of Hangul syllables that are written in parts.
    if ((character >= 0x1160 && character <= 0x11FF) || (character >= 0xD7B0 && character <= 0xD7FB))
        return 0;
    switch (u_charType(code)) {
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
        return 0;
    case U_FORMAT_CHAR:
        // All but the signs of Arabic that enclose numbers, and the like.
        return u_hasBinaryProperty(code, UCHAR_DEFAULT_IGNORABLE_CODE_POINT) ? 0 : 1;
    default:
        break;
    }
    const auto width = u_getIntPropertyValue(code, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

} // namespace tarnwell
