#pragma once

// Looking at a text eight bytes at a time: most names hold nothing that a document has to quote, and this is
// the quickest way to find out.

#include <cstdint>
#include <cstring>
#include <string_view>

namespace tarnwell::WordScan {

constexpr std::uint64_t everyByte(unsigned char byte) {
    return byte * std::uint64_t{0x0101010101010101};
}

/// The highest bit of some byte is set exactly if a byte of the word is below `bound`, which is at most 0x80,
/// or equal to `byte`. Which byte's bit is set says nothing.
constexpr std::uint64_t anyBelow(std::uint64_t word, unsigned char bound) {
    return (word - everyByte(bound)) & ~word & everyByte(0x80);
}
constexpr std::uint64_t anyEqual(std::uint64_t word, unsigned char byte) {
    return anyBelow(word ^ everyByte(byte), 1);
}
constexpr std::uint64_t anyAbove7F(std::uint64_t word) {
    return word & everyByte(0x80);
}

/// Whether `test`, a combination of the tests above, gives a bit for any of the bytes. It gets every byte at
/// least once, and nothing else but copies of them.
template <class Test>
bool any(std::string_view bytes, Test test) {
    const char* const begin = bytes.data();
    const std::size_t size = bytes.size();
    std::uint64_t word = 0;
    if (size >= 8) {
        for (std::size_t position = 0; position + 8 < size; position += 8) {
            std::memcpy(&word, begin + position, 8);
            if (test(word) != 0)
                return true;
        }
        std::memcpy(&word, begin + size - 8, 8);
        return test(word) != 0;
    }
    if (size >= 4) {
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        std::memcpy(&first, begin, 4);
        std::memcpy(&last, begin + size - 4, 4);
        return test(first | (std::uint64_t{last} << 32)) != 0;
    }
    for (const char character : bytes)
        if (test(everyByte(static_cast<unsigned char>(character))) != 0)
            return true;
    return false;
}

} // namespace tarnwell::WordScan
