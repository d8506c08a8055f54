#pragma once

// Conditions made ready to be asked of many nodes.

#include "TarnwellCore/Analysis/SearchConditions.hpp"
#include "TarnwellCore/Platform/RegularExpression.hpp"
#include "TarnwellCore/Scanning/FileNode.hpp"
#include "TarnwellCore/Text/CaseFolder.hpp"
#include "TarnwellCore/Text/GlobPattern.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Confined to one thread at a time. Throws SearchError: from the constructor when a regular expression is
/// none, later when one has had to be given up `mostUndecided` times.
class SearchMatcher {
public:
    static constexpr std::int64_t mostUndecided = 32;

    explicit SearchMatcher(const SearchConditions& conditions);

    /// Whether the node meets all conditions.
    bool matches(const FileNode& node);

    /// How often a regular expression was given up because one name or path would have cost too much. Such a
    /// node does not match.
    std::int64_t undecidedCount() const { return undecidedCount_; }

    // --- For walks, which know of each folder how far its path has come -------------------------------

    using Word = GlobPattern::Word;
    /// Whether paths matter at all; then each folder has a state of so many words.
    bool looksAtPaths() const { return pathWordCount_ != 0 || !pathExpressions_.empty(); }
    std::size_t pathWordCount() const { return pathWordCount_; }
    /// The state for the folder at this full path.
    void startPath(std::span<Word> state, std::string_view path);
    /// Moves the state of a folder on to one of its children.
    void advancePath(std::span<Word> state, std::string_view name);

    /// All conditions but those of the path.
    bool meetsOwnConditions(const FileNode& node);
    /// Those of the path; `state` is the node's own.
    bool meetsPathConditions(const FileNode& node, std::span<const Word> state);
    bool hasExpressions() const { return !nameExpressions_.empty() || !pathExpressions_.empty(); }

private:
    struct PlainText {
        std::string text;
        bool isFolded;
    };
    struct Glob {
        GlobPattern pattern;
        bool isFolded;
    };

    bool meetsFigures(const FileNode& node) const;
    bool meetsNameConditions(const FileNode& node);
    bool finds(RegularExpression& expression, std::string_view text);
    void advancePathBy(std::span<Word> state, std::string_view text);
    std::string prepared(const TextCondition& condition);

    // What is asked of the node itself, as bits and bounds without exceptions.
    FileNodeFlags required_;
    FileNodeFlags forbidden_;
    bool isClone_ = false;
    bool isNoClone_ = false;
    std::uint32_t categories_ = ~std::uint32_t{0};
    std::uint32_t kinds_ = ~std::uint32_t{0};
    SizeMode sizeMode_;
    std::int64_t minimumSize_;
    std::int64_t maximumSize_;
    bool hasModified_;
    bool hasOpened_;
    DateRange modified_;
    DateRange opened_;

    CaseFolder folder_;
    bool foldsNames_ = false;
    std::vector<PlainText> nameTexts_;
    std::vector<Glob> nameGlobs_;
    std::vector<RegularExpression> nameExpressions_;
    std::vector<Glob> pathGlobs_; // plain parts of paths, too
    std::size_t pathWordCount_ = 0;
    std::vector<RegularExpression> pathExpressions_;
    std::vector<Word> wholePath_;
    std::string repaired_;
    std::int64_t undecidedCount_ = 0;
};

} // namespace tarnwell
