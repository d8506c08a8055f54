#include "TarnwellCore/Analysis/RuleEvaluator.hpp"

#include "TarnwellCore/Analysis/HomeFolder.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/NameForms.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/NodeFetch.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <string>
#include <unordered_map>

namespace tarnwell {

namespace {

// Each rule is one bit, in words of 64; a set of rules is as many words as all rules need. For every folder
// on the way down the walk keeps which rules may still match below it, and the children of a folder share
// that record: it is copied only where a rule matched or where a location was reached.

using Word = std::uint64_t;
constexpr std::size_t wordBits = 64;
constexpr std::ptrdiff_t prefetchDistance = 6; // nodes

/// What a rule asks of a single node beside place, category and extension.
struct Limits {
    std::int64_t minimumSize = std::numeric_limits<std::int64_t>::min();
    double olderThanSeconds = 0;
    double lastOpenedBeforeSeconds = 0;
    bool hasAge = false;
    bool hasLastOpened = false;
};

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

double secondsOf(std::int64_t days) {
    return static_cast<double>(days) * 86'400.0;
}

/// The enabled rules, laid out by condition.
class PreparedRules {
public:
    PreparedRules(const std::vector<CleanupRule>& rules, std::string_view homePath) {
        for (const CleanupRule& rule : rules)
            if (rule.isEnabled)
                rules_.push_back(&rule);
        wordCount_ = (rules_.size() + wordBits - 1) / wordBits;
        anyExtension_.resize(wordCount_);
        byCategory_.resize(wordCount_ * fileCategoryCount);
        const bool anyLocation = std::ranges::any_of(
            rules_, [](const CleanupRule* rule) { return rule->locationPrefix.has_value(); });
        const HomeFolder home(anyLocation ? homePath : std::string_view());
        for (std::size_t index = 0; index < rules_.size(); ++index)
            prepare(index, home);
    }

    std::size_t count() const { return rules_.size(); }
    std::size_t wordCount() const { return wordCount_; }
    const CleanupRule& rule(std::size_t index) const { return *rules_[index]; }
    const Limits& limits(std::size_t index) const { return limits_[index]; }

    /// Where a rule applies: an absolute path followed by "/", in its common form; empty for everywhere.
    struct Location {
        std::uint32_t rule;
        std::string path;
    };
    /// Of all rules; a place in the home has as many as the home has names.
    const std::vector<Location>& locations() const { return locations_; }
    /// Whether any location may be met in another form.
    bool hasOtherForms() const { return hasOtherForms_; }

    const Word* withCategory(FileCategory category) const {
        return byCategory_.data() + rawValue(category) * wordCount_;
    }
    /// The rules that ask for no extension.
    const Word* withAnyExtension() const { return anyExtension_.data(); }
    /// The rules that ask for this lower-cased extension among others; null when none does.
    const Word* withExtension(std::string_view extension) const {
        const auto found = byExtension_.find(extension);
        return found == byExtension_.end() ? nullptr : found->second.data();
    }
    std::size_t longestExtension() const { return longestExtension_; }

private:
    void prepare(std::size_t index, const HomeFolder& home) {
        const CleanupRule& rule = *rules_[index];
        const std::size_t word = index / wordBits;
        const Word bit = Word{1} << (index % wordBits);

        for (std::string& path : resolvedLocations(rule.locationPrefix, home)) {
            const bool mayDiffer = mayHaveOtherForms(path);
            hasOtherForms_ = hasOtherForms_ || mayDiffer;
            locations_.push_back(
                {static_cast<std::uint32_t>(index), mayDiffer ? commonForm(path) : std::move(path)});
        }
        for (std::size_t category = 0; category < fileCategoryCount; ++category)
            if (rule.categories.empty() ||
                std::ranges::find(rule.categories, static_cast<FileCategory>(category)) !=
                    rule.categories.end())
                byCategory_[category * wordCount_ + word] |= bit;
        if (rule.extensions.empty())
            anyExtension_[word] |= bit;
        for (const std::string& extension : rule.extensions) {
            std::vector<Word>& words = byExtension_[extension];
            words.resize(wordCount_);
            words[word] |= bit;
            longestExtension_ = std::max(longestExtension_, extension.size());
        }

        Limits limits;
        if (rule.minimumSize)
            limits.minimumSize = *rule.minimumSize;
        limits.hasAge = rule.olderThanDays.has_value();
        limits.olderThanSeconds = secondsOf(rule.olderThanDays.value_or(0));
        limits.hasLastOpened = rule.lastOpenedBeforeDays.has_value();
        limits.lastOpenedBeforeSeconds = secondsOf(rule.lastOpenedBeforeDays.value_or(0));
        limits_.push_back(limits);
    }

    /// Every path under "/" is under a location of "/", and so is "/": such a location is none.
    static std::vector<std::string> resolvedLocations(const std::optional<std::string>& prefix,
                                                      const HomeFolder& home) {
        if (!prefix)
            return {""};
        std::string path = *prefix;
        if (path.starts_with("~/") && !home.spellings().empty()) {
            const std::size_t rest = std::min(path.find_first_not_of('/', 1), path.size());
            path = (home.spellings().front() / path.substr(rest)).native();
        }
        while (path.size() >= 2 && path.back() == '/')
            path.pop_back();
        if (path == "/")
            return {""};
        std::vector<std::string> paths;
        for (const std::filesystem::path& spelling : home.spellingsOf(path))
            paths.push_back(spelling == "/" ? std::string() : spelling.native() + "/");
        return paths;
    }

    std::vector<const CleanupRule*> rules_;
    std::vector<Limits> limits_;
    std::vector<Location> locations_;
    bool hasOtherForms_ = false;
    std::size_t wordCount_ = 0;
    std::vector<Word> byCategory_; // wordCount_ words for each category
    std::vector<Word> anyExtension_;
    std::unordered_map<std::string, std::vector<Word>, TextHash, std::equal_to<>> byExtension_;
    std::size_t longestExtension_ = 0;
};

/// A location that lies below the folder at hand: so many bytes of it are walked.
struct Approach {
    std::uint32_t location;
    std::uint32_t walked;
};

/// One walk over one tree.
///
/// A location is compared as bytes of the common form, with "/" behind it and behind each path: a node is at
/// or under the location when its path begins with it, and the location lies below a folder when it begins
/// with the folder's path. The path is never written out: each folder knows how much of the location its own
/// path has used up.
class RuleWalk {
public:
    RuleWalk(const PreparedRules& rules, Date now, const CancellationToken& token)
        : rules_(rules),
          now_(referenceSeconds(now)),
          token_(token),
          matches_(rules.count()),
          active_(rules.wordCount()) {}

    /// A match for each prepared rule, without the rule and the count.
    std::vector<RuleMatch> run(const FileNode& root) {
        enterRoot(root);
        while (!frames_.empty()) {
            Frame& frame = frames_.back();
            if (frame.next == frame.end) {
                leaveFolder();
                continue;
            }
            const FileNode& node = **frame.next++;
            // Siblings lie anywhere in memory: fetch those to come while this one is tested.
            if (frame.end - frame.next >= prefetchDistance)
                fetchSoon(frame.next[prefetchDistance - 1]);
            visit(node, frame.record);
        }
        return std::move(matches_);
    }

private:
    /// Where the rules stand for the children of a folder: the words in `activeStack_` from
    /// record * wordCount on are the rules that may match a child as they are, the approaches those whose
    /// location lies further down.
    struct Record {
        std::size_t firstApproach;
        std::size_t lastApproach;
    };
    struct Frame {
        FileNode* const* next;
        FileNode* const* end;
        std::size_t record;
    };

    void enterRoot(const FileNode& root) {
        // What every path below begins with. A root path with a "/" at its end already has it; the root
        // itself is at or under the same locations.
        std::string start = root.path();
        if (root.parent() != nullptr || !start.ends_with('/'))
            start += '/';
        if (rules_.hasOtherForms())
            start = commonForm(start);
        for (std::size_t index = 0; index < rules_.locations().size(); ++index) {
            const auto& [rule, location] = rules_.locations()[index];
            if (start.starts_with(location))
                active_[rule / wordBits] |= Word{1} << (rule % wordBits);
            else if (location.starts_with(start))
                approaches_.push_back(
                    {static_cast<std::uint32_t>(index), static_cast<std::uint32_t>(start.size())});
        }
        match(root);
        activeStack_.insert(activeStack_.end(), active_.begin(), active_.end());
        records_.push_back({0, approaches_.size()});
        enterFolder(root, 0);
    }

    void visit(const FileNode& node, std::size_t record) {
        if (++visited_ % 4096 == 0 && token_.isCancelled())
            throw ScanError::cancelled();

        const Record above = records_[record];
        const auto first = activeStack_.begin() + static_cast<std::ptrdiff_t>(record * rules_.wordCount());
        std::copy_n(first, rules_.wordCount(), active_.begin());
        const std::size_t approachCount = approaches_.size();
        const bool reached = above.firstApproach != above.lastApproach && approach(node, above);
        const bool matched = match(node);
        if (node.children().empty()) {
            approaches_.resize(approachCount);
            return;
        }
        if (above.firstApproach == above.lastApproach && !reached && !matched) {
            enterFolder(node, record);
            return;
        }
        const bool anyActive = std::ranges::any_of(active_, [](Word word) { return word != 0; });
        if (!anyActive && approaches_.size() == approachCount)
            return; // no rule can match anything below
        activeStack_.insert(activeStack_.end(), active_.begin(), active_.end());
        records_.push_back({approachCount, approaches_.size()});
        enterFolder(node, records_.size() - 1);
    }

    /// Takes the rules on their way one name further: those that arrive become active, those that stay on
    /// their way are put at the end of `approaches_`. True when one arrived.
    bool approach(const FileNode& node, const Record& above) {
        const std::string form = rules_.hasOtherForms() && mayHaveOtherForms(node.name())
                                     ? commonForm(node.name())
                                     : std::string();
        const std::string_view name = form.empty() ? node.name() : std::string_view(form);
        bool arrived = false;
        for (std::size_t index = above.firstApproach; index < above.lastApproach; ++index) {
            const Approach way = approaches_[index];
            const auto& [rule, location] = rules_.locations()[way.location];
            const std::string_view rest = std::string_view(location).substr(way.walked);
            if (name.size() + 1 < rest.size()) {
                if (rest.starts_with(name) && rest[name.size()] == '/')
                    approaches_.push_back(
                        {way.location, static_cast<std::uint32_t>(way.walked + name.size() + 1)});
            } else if (name.starts_with(rest.substr(0, rest.size() - 1)) &&
                       (name.size() + 1 == rest.size() || name[rest.size() - 1] == '/')) {
                active_[rule / wordBits] |= Word{1} << (rule % wordBits);
                arrived = true;
            }
        }
        return arrived;
    }

    /// Tests the node against the active rules. Those that match note it and are active no longer.
    bool match(const FileNode& node) {
        const Word* const category = rules_.withCategory(node.category);
        const Word* const anyExtension = rules_.withAnyExtension();
        const Word* extension = nullptr;
        bool knowsExtension = false;
        bool matched = false;
        for (std::size_t word = 0; word < active_.size(); ++word) {
            Word candidates = active_[word] & category[word];
            if ((candidates & ~anyExtension[word]) != 0) {
                if (!knowsExtension) {
                    extension = rulesWithExtensionOf(node);
                    knowsExtension = true;
                }
                candidates &= anyExtension[word] | (extension == nullptr ? 0 : extension[word]);
            }
            for (; candidates != 0; candidates &= candidates - 1) {
                const auto bit = static_cast<std::size_t>(std::countr_zero(candidates));
                const std::size_t rule = word * wordBits + bit;
                if (!meetsLimits(node, rules_.limits(rule)))
                    continue;
                // Summed up now, while the node is in the processor's caches.
                RuleMatch& found = matches_[rule];
                found.nodes.push_back(&node);
                addChecked(found.totalSize, node.size);
                addChecked(found.reclaimableSize, node.reclaimableSize);
                active_[word] &= ~(Word{1} << bit);
                matched = true;
            }
        }
        return matched;
    }

    const Word* rulesWithExtensionOf(const FileNode& node) {
        const std::string_view extension = PathUtil::rawFileExtension(node.name());
        // In lower case a letter may take a third of its bytes.
        if (extension.size() / 3 > rules_.longestExtension())
            return nullptr;
        if (extension.size() > PathUtil::extensionBufferSize)
            return rules_.withExtension(PathUtil::lowerCase(extension));
        char buffer[PathUtil::extensionBufferSize];
        return rules_.withExtension(PathUtil::lowerCaseExtension(node.name(), buffer));
    }

    bool meetsLimits(const FileNode& node, const Limits& limits) const {
        return node.size >= limits.minimumSize &&
               (!limits.hasAge || isOlder(node.modificationSeconds, limits.olderThanSeconds)) &&
               (!limits.hasLastOpened || isOlder(node.accessSeconds, limits.lastOpenedBeforeSeconds));
    }

    bool isOlder(double time, double seconds) const {
        return time != FileNode::missingTime && now_ - time > seconds;
    }

    void enterFolder(const FileNode& folder, std::size_t record) {
        const auto children = folder.children();
        frames_.push_back({children.data(), children.data() + children.size(), record});
    }

    void leaveFolder() {
        const std::size_t record = frames_.back().record;
        frames_.pop_back();
        if (frames_.empty() || frames_.back().record != record) {
            approaches_.resize(records_[record].firstApproach);
            records_.pop_back();
            activeStack_.resize(record * rules_.wordCount());
        }
    }

    const PreparedRules& rules_;
    const double now_; // seconds since the reference date
    const CancellationToken& token_;
    std::vector<RuleMatch> matches_;

    std::vector<Frame> frames_;
    std::vector<Record> records_;
    std::vector<Word> activeStack_;
    std::vector<Approach> approaches_;

    std::vector<Word> active_; // the rules that may match the node at hand
    std::size_t visited_ = 0;
};

} // namespace

std::vector<RuleMatch> RuleEvaluator::evaluate(const std::vector<CleanupRule>& rules, const FileNode& root,
                                               Date now, std::string_view homePath,
                                               const CancellationToken& token) {
    std::vector<RuleMatch> results;
    const PreparedRules prepared(rules, homePath);
    if (prepared.count() == 0)
        return results;
    std::vector<RuleMatch> matches = RuleWalk(prepared, now, token).run(root);
    for (std::size_t index = 0; index < matches.size(); ++index) {
        RuleMatch& match = matches[index];
        if (match.nodes.empty())
            continue;
        match.rule = prepared.rule(index);
        match.itemCount = static_cast<std::int64_t>(match.nodes.size());
        results.push_back(std::move(match));
    }
    return results;
}

} // namespace tarnwell
