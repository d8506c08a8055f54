#pragma once

// Which file-name extensions the desktop's type database has a pattern for. A disk holds tens of thousands of
// extensions that nobody registered (versions, hashes, backups), and for each of them the database tries all
// its patterns with wildcards, under a lock that all threads share; this table says no in a fraction of the
// time, without a lock.

#include <bitset>
#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace tarnwell {

/// Not changed once it is read: safe from any thread.
class TypePatterns {
public:
    /// The patterns of the database's folders ("/usr/share/mime"), from the list that shared-mime-info
    /// writes, `globs2`: lines of "weight:type:pattern", flags may follow. A folder that is not there has
    /// none; where one has a database but no such list of it, nothing can be ruled out any more.
    static TypePatterns read(std::span<const std::filesystem::path> folders);

    /// Whether some pattern may match a file name that ends in a dot and this extension, in whatever letter
    /// case. True may be wrong, false never is.
    bool mayKnow(std::string_view extension) const;

private:
    bool readFolder(const std::filesystem::path& folder);
    void add(std::string_view pattern);
    void addExtension(std::string extension);

    /// Some ten for each extension that a database has.
    static constexpr std::size_t markCount = std::size_t{1} << 14;
    static std::size_t markOf(std::string_view extension);

    bool isComplete_ = true;
    /// Whether `extensions_` may hold one: two kilobytes, while the set lies scattered in memory.
    std::bitset<markCount> marks_;
    std::unordered_set<std::string> extensions_; // of "*.extension", by far the most; in lower case
    std::vector<std::string> suffixes_;          // of "*suffix"; in lower case
    std::vector<std::string> patterns_;          // with other wildcards
};

} // namespace tarnwell
