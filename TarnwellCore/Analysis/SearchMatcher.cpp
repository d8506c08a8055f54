#include "TarnwellCore/Analysis/SearchMatcher.hpp"

#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>
#include <limits>

namespace tarnwell {

namespace {

FileNodeFlags flagBits(const std::vector<SearchFlag>& flags) {
    FileNodeFlags bits;
    for (const SearchFlag flag : flags) {
        if (flag == SearchFlag::hidden)
            bits.insert(FileNodeFlags::hidden);
        else if (flag == SearchFlag::dataless)
            bits.insert(FileNodeFlags::dataless);
        else if (flag == SearchFlag::hardLink)
            bits.insert(FileNodeFlags::hardlinkDuplicate);
        else if (flag == SearchFlag::inaccessible)
            bits.insert(FileNodeFlags::inaccessible);
    }
    return bits;
}

bool asksForClones(const std::vector<SearchFlag>& flags) {
    return std::ranges::find(flags, SearchFlag::clone) != flags.end();
}

template <class Value>
std::uint32_t bitsOf(const std::vector<Value>& values) {
    std::uint32_t bits = values.empty() ? ~std::uint32_t{0} : 0;
    for (const Value value : values)
        bits |= std::uint32_t{1} << static_cast<unsigned>(value);
    return bits;
}

SearchKind kindOf(const FileNode& node) {
    if (node.isDirectory())
        return node.isPackage() ? SearchKind::package : SearchKind::folder;
    return node.isSymlink() ? SearchKind::link : SearchKind::file;
}

bool isWithin(double seconds, const DateRange& range) {
    return seconds != FileNode::missingTime && (!range.from || referenceSeconds(*range.from) <= seconds) &&
           (!range.before || seconds < referenceSeconds(*range.before));
}

RegularExpression compiled(const TextCondition& condition) {
    try {
        return {isValidUTF8(condition.text) ? condition.text : repairedUTF8(condition.text),
                !condition.regardsCase()};
    } catch (const RegularExpressionError& error) {
        throw SearchError(SearchError::Kind::invalidExpression, error.what());
    }
}

} // namespace

SearchMatcher::SearchMatcher(const SearchConditions& conditions)
    : required_(flagBits(conditions.flags)),
      forbidden_(flagBits(conditions.withoutFlags)),
      isClone_(asksForClones(conditions.flags)),
      isNoClone_(asksForClones(conditions.withoutFlags)),
      categories_(bitsOf(conditions.categories)),
      kinds_(bitsOf(conditions.kinds)),
      sizeMode_(conditions.sizeMode),
      minimumSize_(conditions.minimumSize.value_or(std::numeric_limits<std::int64_t>::min())),
      maximumSize_(conditions.maximumSize.value_or(std::numeric_limits<std::int64_t>::max())),
      hasModified_(conditions.modified != DateRange()),
      hasOpened_(conditions.opened != DateRange()),
      modified_(conditions.modified),
      opened_(conditions.opened) {
    for (const TextCondition& condition : conditions.names) {
        const bool isFolded = !condition.regardsCase();
        if (condition.kind == TextCondition::Kind::expression) {
            nameExpressions_.push_back(compiled(condition));
            continue;
        }
        foldsNames_ = foldsNames_ || isFolded;
        if (condition.kind == TextCondition::Kind::contains)
            nameTexts_.push_back({prepared(condition), isFolded});
        else
            nameGlobs_.push_back({GlobPattern(prepared(condition)), isFolded});
    }
    for (const TextCondition& condition : conditions.paths) {
        if (condition.kind == TextCondition::Kind::expression) {
            pathExpressions_.push_back(compiled(condition));
            continue;
        }
        std::string text = prepared(condition);
        const bool isAnchored = text.starts_with('/') || text.starts_with("**");
        if (condition.kind == TextCondition::Kind::glob && !isAnchored)
            text.insert(0, "**/");
        pathGlobs_.push_back({condition.kind == TextCondition::Kind::contains ? GlobPattern::containing(text)
                                                                              : GlobPattern(text),
                              !condition.regardsCase()});
        pathWordCount_ += pathGlobs_.back().pattern.wordCount();
    }
    wholePath_.resize(pathWordCount_);
}

/// The text to look for, in the form in which names are looked at.
std::string SearchMatcher::prepared(const TextCondition& condition) {
    return condition.regardsCase() ? condition.text : std::string(folder_.fold(condition.text));
}

bool SearchMatcher::meetsFigures(const FileNode& node) const {
    const std::int64_t size = node.sizeFor(sizeMode_);
    return size >= minimumSize_ && size <= maximumSize_ && node.flags.contains(required_) &&
           !node.flags.intersects(forbidden_) && (categories_ >> rawValue(node.category) & 1) != 0 &&
           (kinds_ >> static_cast<unsigned>(kindOf(node)) & 1) != 0 &&
           (!hasModified_ || isWithin(node.modificationSeconds, modified_)) &&
           (!hasOpened_ || isWithin(node.accessSeconds, opened_)) &&
           (!isClone_ || node.sharesBlocksWithClones()) && (!isNoClone_ || !node.sharesBlocksWithClones());
}

bool SearchMatcher::meetsNameConditions(const FileNode& node) {
    const std::string_view name = node.displayName();
    const std::string_view folded = foldsNames_ ? folder_.fold(name) : name;
    for (const PlainText& each : nameTexts_)
        if (!(each.isFolded ? folded : name).contains(each.text))
            return false;
    for (const Glob& each : nameGlobs_)
        if (!each.pattern.matches(each.isFolded ? folded : name))
            return false;
    return std::ranges::all_of(nameExpressions_, [&](RegularExpression& each) { return finds(each, name); });
}

bool SearchMatcher::finds(RegularExpression& expression, std::string_view text) {
    if (!isValidUTF8(text)) {
        repaired_ = repairedUTF8(text);
        text = repaired_;
    }
    const RegularExpression::Answer answer = expression.search(text);
    if (answer == RegularExpression::Answer::undecided && ++undecidedCount_ >= mostUndecided)
        throw SearchError(SearchError::Kind::tooSlow,
                          "The regular expression takes too long: it has to try too many ways.");
    return answer == RegularExpression::Answer::matches;
}

bool SearchMatcher::meetsOwnConditions(const FileNode& node) {
    return meetsFigures(node) && meetsNameConditions(node);
}

void SearchMatcher::startPath(std::span<Word> state, std::string_view path) {
    std::size_t begin = 0;
    for (const Glob& each : pathGlobs_) {
        each.pattern.start(state.subspan(begin, each.pattern.wordCount()));
        begin += each.pattern.wordCount();
    }
    // A name follows with its "/".
    if (path.ends_with('/'))
        path.remove_suffix(1);
    advancePathBy(state, path);
}

void SearchMatcher::advancePath(std::span<Word> state, std::string_view name) {
    advancePathBy(state, "/");
    advancePathBy(state, name);
}

void SearchMatcher::advancePathBy(std::span<Word> state, std::string_view text) {
    std::size_t begin = 0;
    std::string_view folded;
    bool isFolded = false;
    for (const Glob& each : pathGlobs_) {
        if (each.isFolded && !isFolded) {
            folded = folder_.fold(text);
            isFolded = true;
        }
        each.pattern.advance(state.subspan(begin, each.pattern.wordCount()), each.isFolded ? folded : text);
        begin += each.pattern.wordCount();
    }
}

bool SearchMatcher::meetsPathConditions(const FileNode& node, std::span<const Word> state) {
    std::size_t begin = 0;
    for (const Glob& each : pathGlobs_) {
        if (!each.pattern.accepts(state.subspan(begin, each.pattern.wordCount())))
            return false;
        begin += each.pattern.wordCount();
    }
    if (pathExpressions_.empty())
        return true;
    const std::string path = node.path();
    return std::ranges::all_of(pathExpressions_, [&](RegularExpression& each) { return finds(each, path); });
}

bool SearchMatcher::matches(const FileNode& node) {
    if (!meetsOwnConditions(node))
        return false;
    if (!looksAtPaths())
        return true;
    if (!pathGlobs_.empty())
        startPath(wholePath_, node.path());
    return meetsPathConditions(node, wholePath_);
}

} // namespace tarnwell
