#pragma once

// What a search asks for, as plain values: command lines and browsers fill them, `Search` and `SearchMatcher`
// answer.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnwell {

/// What a name or a path has to be like. Bytes that are not UTF-8 are compared as they are.
struct TextCondition {
    enum class Kind : std::uint8_t {
        contains,   ///< the text occurs in it
        glob,       ///< all of it is like the pattern of GlobPattern.hpp
        expression, ///< the regular expression of RegularExpression.hpp is found in it
    };
    Kind kind = Kind::contains;
    std::string text;
    /// Where case does not count it is what the user's language takes for case, and letters may be composed
    /// in different ways. Absent: case counts for regular expressions only.
    std::optional<bool> isCaseSensitive = {};

    bool regardsCase() const { return isCaseSensitive.value_or(kind == Kind::expression); }

    bool operator==(const TextCondition&) const = default;
};

/// A time in [from, before). A time that is unknown lies in a range without bounds only.
struct DateRange {
    std::optional<Date> from = {};
    std::optional<Date> before = {};

    /// What is more than so many seconds ago.
    static DateRange olderThan(double seconds, Date now = currentDate()) {
        return {.before = now - Date::duration(seconds)};
    }
    /// What is no more than so many seconds ago.
    static DateRange newerThan(double seconds, Date now = currentDate()) {
        return {.from = now - Date::duration(seconds)};
    }

    bool operator==(const DateRange&) const = default;
};

enum class SearchKind : std::uint8_t {
    file, ///< whatever is none of the others, devices and sockets too
    folder,
    package, ///< a folder that the platform shows as one item
    link,    ///< a symbolic link
};

enum class SearchFlag : std::uint8_t {
    hidden,
    dataless,     ///< the contents are only in the cloud
    clone,        ///< shares some or all of its blocks with other files
    hardLink,     ///< a further link to a file that is counted elsewhere in the tree
    inaccessible, ///< could not be read
};

/// A node matches when it meets every condition; what is empty or absent is none.
struct SearchConditions {
    /// Of the node's name.
    std::vector<TextCondition> names = {};
    /// Of the node's full path. A glob that begins neither with "/" nor with "**" may match at any folder.
    std::vector<TextCondition> paths = {};
    /// Bytes in this mode, both bounds included. Also the mode by which the largest matches are chosen.
    SizeMode sizeMode = SizeMode::apparent;
    std::optional<std::int64_t> minimumSize = {};
    std::optional<std::int64_t> maximumSize = {};
    DateRange modified = {};
    DateRange opened = {};
    /// One of these.
    std::vector<FileCategory> categories = {};
    /// One of these.
    std::vector<SearchKind> kinds = {};
    /// All of these.
    std::vector<SearchFlag> flags = {};
    /// None of these.
    std::vector<SearchFlag> withoutFlags = {};

    bool operator==(const SearchConditions&) const = default;
};

/// Why there is no result. `what()` is for the user.
class SearchError : public std::runtime_error {
public:
    enum class Kind : std::uint8_t {
        invalidExpression, ///< a regular expression cannot be used
        tooSlow,           ///< a regular expression took too long for too many names
        cancelled,
    };
    SearchError(Kind kind, const std::string& description) : std::runtime_error(description), kind_(kind) {}
    Kind kind() const noexcept { return kind_; }

private:
    Kind kind_;
};

} // namespace tarnwell
