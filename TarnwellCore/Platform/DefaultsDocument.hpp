#pragma once

// The text of a settings file, or of another record that programs share: one JSON object, a member a key.
// What this program does not know, keys and kinds of values alike, is kept as it is.

#include "TarnwellCore/Platform/UserDefaults.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Truth values, numbers, texts and lists of texts are what JSON has for them; data is {"base64": "..."}, a
/// date {"secondsSince1970": 0.0}, a text that is not UTF-8 is written as data. Half a character in a text is
/// read as U+FFFD, a number beyond the doubles is of no known kind. Confined to one thread.
class DefaultsDocument {
public:
    /// An empty object.
    DefaultsDocument();
    ~DefaultsDocument();
    DefaultsDocument(DefaultsDocument&&) noexcept;
    DefaultsDocument& operator=(DefaultsDocument&&) noexcept;

    /// Whether a member can have this key: any text in UTF-8.
    static bool canHold(std::string_view key);

    /// Nothing when the text is not a JSON object in UTF-8.
    static std::optional<DefaultsDocument> parse(std::string_view text);

    /// The values of known kinds.
    UserDefaults::Values values() const;
    /// The value of a member of a known kind.
    std::optional<UserDefaultsValue> value(std::string_view key) const;
    bool hasMember(std::string_view key) const;

    /// A member's value as it stands in the text; empty where there is no such member.
    std::string_view json(std::string_view key) const;

    /// Puts in a value of any kind, by its text; it has no known kind until it is read again.
    void setJSON(std::string_view key, std::string json);
    /// The key is one that a document can hold; values are finite.
    void set(std::string_view key, const UserDefaultsValue& value);
    void remove(std::string_view key);

    /// A line a member, in the order of the text that was read, new ones at the end; ends with a line feed.
    std::string text() const;
    /// The object on one line, to be put into another.
    std::string line() const;

private:
    struct Member;
    const Member* find(std::string_view key) const;

    /// Where a text names a key twice, the first member counts.
    std::vector<Member> members_;
};

} // namespace tarnwell
