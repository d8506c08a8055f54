#include "TarnwellCore/Platform/CharacterWidth.hpp"

#include <wchar.h>
#include <xlocale.h>

namespace tarnwell {

namespace {

constexpr bool isInWideBlock(char32_t character) {
    return (character >= 0x1F300 && character <= 0x1F64F) || (character >= 0x1F900 && character <= 0x1FAFF) ||
           (character >= 0x20000 && character <= 0x3FFFD);
}

} // namespace

int characterWidth(char32_t character) noexcept {
    static const locale_t unicode = ::newlocale(LC_CTYPE_MASK, "UTF-8", nullptr);
    const int width = unicode == nullptr ? -1 : ::wcwidth_l(static_cast<wchar_t>(character), unicode);
    if (width >= 0)
        return width;
    return isInWideBlock(character) ? 2 : 1;
}

} // namespace tarnwell
