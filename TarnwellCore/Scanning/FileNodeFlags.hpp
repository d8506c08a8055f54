#pragma once

// Marks of a scanned item.

#include <cstdint>

namespace tarnwell {

/// A set of marks over 16 bits; stored as its bare raw value.
class FileNodeFlags {
public:
    constexpr FileNodeFlags() = default;
    constexpr explicit FileNodeFlags(std::uint16_t rawValue) : bits_(rawValue) {}

    constexpr std::uint16_t rawValue() const { return bits_; }
    constexpr bool contains(FileNodeFlags other) const { return (bits_ & other.bits_) == other.bits_; }
    constexpr bool intersects(FileNodeFlags other) const { return (bits_ & other.bits_) != 0; }
    constexpr bool isEmpty() const { return bits_ == 0; }
    constexpr void insert(FileNodeFlags other) { bits_ = static_cast<std::uint16_t>(bits_ | other.bits_); }
    constexpr void remove(FileNodeFlags other) { bits_ = static_cast<std::uint16_t>(bits_ & ~other.bits_); }

    friend constexpr FileNodeFlags operator|(FileNodeFlags a, FileNodeFlags b) {
        a.insert(b);
        return a;
    }
    constexpr bool operator==(const FileNodeFlags&) const = default;

    static const FileNodeFlags symlink;           ///< a symbolic link, never followed
    static const FileNodeFlags package;           ///< a folder that the platform shows as one item
    static const FileNodeFlags hidden;            ///< a name with a leading "." or the hidden bit
    static const FileNodeFlags hardlinkDuplicate; ///< a further link to a file that is counted elsewhere
    static const FileNodeFlags mountPoint;        ///< a folder on another device than its parent
    static const FileNodeFlags inaccessible;      ///< could not be read; such a file is not counted
    static const FileNodeFlags excluded;          ///< matched an exclusion; a leaf, not descended
    static const FileNodeFlags special;           ///< neither regular file, folder nor link
    static const FileNodeFlags collapsed;         ///< a folder whose sums were given, not added up
    static const FileNodeFlags dataless;          ///< a cloud placeholder without contents on disk

private:
    std::uint16_t bits_ = 0;
};

inline constexpr FileNodeFlags FileNodeFlags::symlink{1};
inline constexpr FileNodeFlags FileNodeFlags::package{2};
inline constexpr FileNodeFlags FileNodeFlags::hidden{4};
inline constexpr FileNodeFlags FileNodeFlags::hardlinkDuplicate{8};
inline constexpr FileNodeFlags FileNodeFlags::mountPoint{16};
inline constexpr FileNodeFlags FileNodeFlags::inaccessible{32};
inline constexpr FileNodeFlags FileNodeFlags::excluded{64};
inline constexpr FileNodeFlags FileNodeFlags::special{128};
inline constexpr FileNodeFlags FileNodeFlags::collapsed{256};
inline constexpr FileNodeFlags FileNodeFlags::dataless{512};

} // namespace tarnwell
