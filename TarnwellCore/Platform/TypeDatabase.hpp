#pragma once

// The platform's knowledge of file-name extensions.

#include <cstdint>
#include <string_view>
#include <vector>

namespace tarnwell {

/// What a type conforms to; a set, since types inherit from one another.
class TypeConformance {
public:
    enum Bit : std::uint16_t {
        movie = 1 << 0,
        video = 1 << 1,
        audio = 1 << 2,
        image = 1 << 3,
        font = 1 << 4,
        diskImage = 1 << 5,
        archive = 1 << 6,
        sourceCode = 1 << 7,
        script = 1 << 8,
        application = 1 << 9,
        database = 1 << 10,
        spreadsheet = 1 << 11,
        presentation = 1 << 12,
        text = 1 << 13,
        pdf = 1 << 14,
    };

    constexpr TypeConformance() = default;
    constexpr explicit TypeConformance(std::uint16_t bits) : bits_(bits) {}
    constexpr bool has(Bit bit) const { return (bits_ & bit) != 0; }
    constexpr void insert(Bit bit) { bits_ = static_cast<std::uint16_t>(bits_ | bit); }
    constexpr bool operator==(const TypeConformance&) const = default;

private:
    std::uint16_t bits_ = 0;
};

/// What files with this extension (without the dot, lower case) are: the conformances of each data type that
/// the platform gives to them with equal right, mostly one; none when it knows no such type. Slow, may read
/// the platform's files; safe from any thread.
std::vector<TypeConformance> typeConformances(std::string_view fileExtension);

/// False where `typeConformances` would find nothing, as far as the platform can tell that in no time and
/// without a lock. A disk holds tens of thousands of extensions that nobody registered: versions, hashes,
/// backups.
bool mayHaveType(std::string_view fileExtension);

} // namespace tarnwell
