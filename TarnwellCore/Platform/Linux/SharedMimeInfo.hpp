#pragma once

// The desktop's database of file types, shared-mime-info, read from its text files: `globs2` (which patterns
// mean which type), `subclasses`, `aliases` and `generic-icons`. Their formats are those of freedesktop.org's
// "Shared MIME-info Database".
//
// The desktop's own library maps `mime.cache` instead, and follows the offsets in it. The user's data folder
// may hold such a file, too: one that is cut short, even while it is mapped, ends the process. Nothing here
// trusts a byte of what it reads, and nothing is mapped.

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarnwell {

/// Which types a file-name extension may mean. A disk holds tens of thousands of extensions that nobody
/// registered (versions, hashes, backups); `mayKnow` says no to those in next to no time. Not changed once it
/// is read: safe from any thread.
class TypePatterns {
public:
    /// The patterns of the database's folders ("/usr/share/mime"), the preferred one first. A folder without
    /// a list of patterns has none.
    static TypePatterns read(std::span<const std::filesystem::path> folders);

    /// Whether some pattern matches a file name that ends in a dot and this extension, in whatever letter
    /// case.
    bool mayKnow(std::string_view extension) const;

    /// The types of that name, each once: of the patterns that match those of the greatest weight, of these
    /// the longest, of these those of the preferred folder. Several when the database cannot tell them apart.
    std::vector<std::string_view> types(std::string_view extension) const;

private:
    /// "*." and an extension, or a pattern of another form.
    struct Pattern {
        std::string text;
        std::size_t type;   // index into types_
        std::size_t folder; // its rank, 0 for the preferred one
        int weight;
        bool isCaseSensitive;
        std::size_t dots = 0; // as many a name must have, at least
    };
    struct Name; // a file name that is asked about

    void readList(const std::string& list, std::size_t folder);
    void add(std::string_view type, std::string_view pattern, int weight, std::size_t folder,
             bool isCaseSensitive);
    template <class Visit>
    bool anyMatch(const Name& name, Visit visit) const;

    /// Some ten for each extension that a database has.
    static constexpr std::size_t markCount = std::size_t{1} << 14;
    static std::size_t markOf(std::string_view extension);

    /// Whether `extensions_` may hold one: two kilobytes, while the table lies scattered in memory.
    std::bitset<markCount> marks_;
    std::unordered_map<std::string, std::vector<Pattern>>
        extensions_;                 // of "*.extension", by far the most; lower case
    std::vector<Pattern> suffixes_;  // of "*suffix": the suffix, in lower case
    std::vector<Pattern> wildcards_; // others
    std::vector<std::string> types_;
    std::unordered_map<std::string, std::size_t> indexOfType_;
    std::unordered_set<std::string>
        withoutOlderPatterns_; // types whose patterns of further folders do not count
};

/// How types belong together. Not changed once it is read: safe from any thread.
class TypeRelations {
public:
    static TypeRelations read(std::span<const std::filesystem::path> folders);

    /// The name by which the database knows the type.
    std::string_view canonical(std::string_view type) const;

    /// The type and all that it is a kind of, by their canonical names; every text is a kind of "text/plain".
    std::unordered_set<std::string> withAncestors(std::string_view type) const;

    /// The name of the icon for its kind of types, such as "text-x-generic".
    std::string genericIcon(std::string_view type) const;

private:
    std::unordered_map<std::string, std::string> canonicalNames_;
    std::unordered_map<std::string, std::vector<std::string>> parents_;
    std::unordered_map<std::string, std::string> icons_;
};

} // namespace tarnwell
