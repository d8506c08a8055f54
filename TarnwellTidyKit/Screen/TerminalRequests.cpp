#include "TarnwellTidyKit/Screen/TerminalRequests.hpp"

#include <langinfo.h>

#include <clocale>
#include <cstdint>
#include <cstdlib>

namespace tarnwell::TerminalRequests {

bool areUnderstoodBy(std::string_view type) {
    for (const std::string_view old :
         {"linux", "vt", "ansi", "cons", "dumb", "cygwin", "sun", "wy", "tvi", "hp"})
        if (type.starts_with(old) && !type.starts_with("vte"))
            return false;
    return !type.empty();
}

bool drawsAllColours(std::string_view type) {
    const char* variable = std::getenv("COLORTERM");
    const std::string_view value = variable == nullptr ? "" : variable;
    // The variable is passed on by terminals within others, of which one draws 256 colours only.
    const bool isWithinScreen = std::getenv("STY") != nullptr && type.starts_with("screen");
    return (value == "truecolor" || value == "24bit") && !isWithinScreen;
}

std::string copy(std::string_view text) {
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string sequence = "\x1B]52;c;";
    for (std::size_t at = 0; at < text.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t index = 0; index < 3; ++index)
            group =
                group << 8 | (at + index < text.size() ? static_cast<unsigned char>(text[at + index]) : 0U);
        for (std::size_t index = 0; index < 4; ++index)
            sequence += at + index > text.size() ? '=' : letters[group >> (18 - 6 * index) & 63];
    }
    return sequence + "\x1B\\";
}

bool chooseCharacters() {
    if (std::setlocale(LC_CTYPE, "") == nullptr) {
        for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
            const char* value = std::getenv(name);
            if (value == nullptr || *value == '\0')
                continue;
            const std::string_view text(value);
            if (text.ends_with("UTF-8") || text.ends_with("utf8"))
                std::setlocale(LC_CTYPE, "C.UTF-8");
            break;
        }
    }
    return std::string_view(::nl_langinfo(CODESET)) == "UTF-8";
}

} // namespace tarnwell::TerminalRequests
