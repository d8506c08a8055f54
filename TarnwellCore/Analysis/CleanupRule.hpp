#pragma once

// A filter over a scanned tree that the user writes, such as "files in Downloads older than 30 days and
// larger than 100 MB". RuleEvaluator.hpp runs rules over a tree.

#include "TarnwellCore/Classification/FileCategory.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// A node matches when it meets every condition that is set. Sizes are apparent bytes, ages whole days.
struct CleanupRule {
    /// Stable, unique in the user's list.
    std::string id = {};
    /// The title shown to the user.
    std::string name = {};
    /// A rule that is switched off is never evaluated.
    bool isEnabled = true;
    /// Only nodes at or under this absolute path, which may begin with "~/"; anywhere when absent.
    std::optional<std::string> locationPrefix = {};
    /// The node's category is one of these; any when empty.
    std::vector<FileCategory> categories = {};
    /// The node's lower-cased extension is one of these; any when empty. Holds for folders too.
    std::vector<std::string> extensions = {};
    /// The node is at least this large.
    std::optional<std::int64_t> minimumSize = {};
    /// The node was modified more than this many days ago.
    std::optional<std::int64_t> olderThanDays = {};
    /// The node was last opened more than this many days ago.
    std::optional<std::int64_t> lastOpenedBeforeDays = {};

    bool operator==(const CleanupRule&) const = default;

    /// The three rules that ship with the system, for the home folder of the user who runs it.
    static const std::vector<CleanupRule>& presets();

    /// A new rule without conditions, for editing. It is switched off: without conditions it would match
    /// the whole scan. Every call gives another id.
    static CleanupRule makeDraft();

    /// The rule with its location and extensions in normal form, as rules are kept after editing.
    CleanupRule normalized() const;

    /// Trimmed, without trailing "/" (but "/"); nothing when nothing is left.
    static std::optional<std::string> normalizedLocation(const std::optional<std::string>& location);
    /// Each trimmed, lower-cased as extensions of nodes are, and without leading dots; empty ones and
    /// repetitions dropped, order kept.
    static std::vector<std::string> normalizedExtensions(const std::vector<std::string>& extensions);

    /// The conditions in one line, such as "Archives with .zip or .iso in ~/Downloads over 100 MB,
    /// modified over 30 days ago". What would end the line or turn its order round is shown as an escape.
    std::string conditionSummary() const;

    /// Reads a stored list: a JSON array of rules. An element that is no rule is left out, the others
    /// are kept; what is no JSON array gives an empty list. Never fails.
    static std::vector<CleanupRule> rules(std::string_view fromStoredJSON);

    /// The stored form of a list, which `rules` reads back. Bytes that are not UTF-8 become U+FFFD.
    static std::string encodeStored(const std::vector<CleanupRule>& rules);
};

} // namespace tarnwell
