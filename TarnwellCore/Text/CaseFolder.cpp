#include "TarnwellCore/Text/CaseFolder.hpp"

#include "TarnwellCore/Platform/LetterCase.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <cstdint>
#include <cstring>

namespace tarnwell {

namespace {

constexpr std::uint64_t eachByte = 0x0101010101010101u;
constexpr std::uint64_t upperBits = 0x80 * eachByte;

/// Eight ASCII bytes with their capitals made small. A byte's upper bit is set by the first sum from "A" on,
/// by the second beyond "Z"; between the two lies the bit that tells the cases apart, two places lower.
std::uint64_t lowerWord(std::uint64_t word) {
    const std::uint64_t fromA = word + (0x80 - 'A') * eachByte;
    const std::uint64_t beyondZ = word + (0x80 - 'Z' - 1) * eachByte;
    return word | ((fromA & ~beyondZ & upperBits) >> 2);
}

} // namespace

CaseFolder::CaseFolder() : pages_(0x1100) {
    for (char32_t letter = 'A'; letter <= 'Z'; ++letter)
        isPlain_ = isPlain_ && caseFoldedAlone(letter) == letter + ('a' - 'A');
}

char* CaseFolder::room(std::size_t length) {
    if (room_.size() < length)
        room_.resize(length * 2);
    return room_.data();
}

std::string_view CaseFolder::fold(std::string_view bytes) {
    char* const target = room(bytes.size() + 8);
    if (!isPlain_)
        return foldCharacters(bytes);
    std::uint64_t seen = 0;
    std::size_t index = 0;
    for (; index + 8 <= bytes.size(); index += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data() + index, 8);
        seen |= word;
        word = lowerWord(word);
        std::memcpy(target + index, &word, 8);
    }
    if (index < bytes.size()) {
        std::uint64_t word = 0;
        for (std::size_t at = index; at < bytes.size(); ++at)
            word |= std::uint64_t{static_cast<unsigned char>(bytes[at])} << 8 * (at - index);
        seen |= word;
        word = lowerWord(word);
        for (std::size_t at = index; at < bytes.size(); ++at)
            target[at] = static_cast<char>(word >> 8 * (at - index));
    }
    if ((seen & upperBits) != 0)
        return foldCharacters(bytes);
    return {target, bytes.size()};
}

/// Character by character, as long as each stands for itself.
std::string_view CaseFolder::foldCharacters(std::string_view bytes) {
    folded_.clear();
    for (std::string_view rest = bytes; !rest.empty();) {
        const char32_t character = takeCharacter(rest);
        const char32_t folded = character >= illFormedByte ? character : foldedAlone(character);
        if (folded == 0 && character != 0)
            return foldWhole(bytes);
        appendCharacter(folded_, folded);
    }
    return folded_;
}

/// The parts that are UTF-8, each as a whole.
std::string_view CaseFolder::foldWhole(std::string_view bytes) {
    folded_.clear();
    std::size_t begin = 0;
    for (std::string_view rest = bytes; !rest.empty();) {
        const std::size_t at = bytes.size() - rest.size();
        if (takeCharacter(rest) < illFormedByte)
            continue;
        folded_ += caseFolded(bytes.substr(begin, at - begin));
        folded_ += bytes[at];
        begin = at + 1;
    }
    folded_ += caseFolded(bytes.substr(begin));
    return folded_;
}

char32_t CaseFolder::foldedAlone(char32_t character) {
    std::unique_ptr<Page>& page = pages_[character >> 8];
    if (!page) {
        page = std::make_unique<Page>();
        const char32_t first = character & ~char32_t{0xFF};
        for (char32_t low = 0; low < 256; ++low)
            (*page)[low] = first >= 0xD800 && first < 0xE000 ? 0 : caseFoldedAlone(first + low);
    }
    return (*page)[character & 0xFF];
}

} // namespace tarnwell
