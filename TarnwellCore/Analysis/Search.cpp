#include "TarnwellCore/Analysis/Search.hpp"

#include "TarnwellCore/Analysis/SearchMatcher.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/NodeFetch.hpp"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::ptrdiff_t siblingsAhead = 6; // nodes
constexpr std::size_t nodesBetweenLooks = 4096;

/// One walk. Folders that are under way are on a stack of its own, each with the state of its path.
template <class Found>
class SearchWalk {
public:
    SearchWalk(const SearchConditions& conditions, Found& found, const CancellationToken& token,
               const SizesOfNode& sizesOf)
        : matcher_(conditions),
          found_(found),
          token_(token),
          sizesOf_(sizesOf),
          words_(matcher_.pathWordCount()) {}

    SearchTotals run(const FileNode& root) {
        const std::size_t interval = matcher_.hasExpressions() ? 1 : nodesBetweenLooks;
        std::size_t untilLook = 1;
        if (words_ != 0) {
            states_.resize(words_);
            matcher_.startPath(states_, root.path());
        }
        enter(root, false);
        bool goesOn = true;
        while (goesOn && !frames_.empty()) {
            Frame& frame = frames_.back();
            if (frame.next == frame.end) {
                frames_.pop_back();
                states_.resize(frames_.size() * words_);
                continue;
            }
            if (--untilLook == 0) {
                untilLook = interval;
                if (token_.isCancelled())
                    throw SearchError(SearchError::Kind::cancelled, "The search was cancelled.");
            }
            const FileNode& node = **frame.next++;
            // Siblings lie anywhere in memory: fetch those to come while this one is tested.
            if (frame.end - frame.next >= siblingsAhead)
                fetchSoon(frame.next[siblingsAhead - 1]);
            goesOn = visit(node, frame.isCovered);
        }
        totals_.undecidedCount = matcher_.undecidedCount();
        return totals_;
    }

private:
    using Word = SearchMatcher::Word;
    struct Frame {
        FileNode* const* next;
        FileNode* const* end;
        /// Whether a folder above, or this one, has matched.
        bool isCovered;
    };

    /// The state of the folder's path, if paths matter, is the last one of `states_` already.
    void enter(const FileNode& folder, bool isCovered) {
        const auto children = folder.children();
        frames_.push_back({children.data(), children.data() + children.size(), isCovered});
    }

    bool visit(const FileNode& node, bool isCovered) {
        const bool isEntered = !node.children().empty();
        bool isMatch = matcher_.meetsOwnConditions(node);
        std::optional<NodeSizes> sizes(std::in_place, node.size, node.allocatedSize, node.reclaimableSize);
        if (sizesOf_ && (isMatch || isEntered))
            sizes = sizesOf_(node);
        if (!sizes)
            return true;
        if (matcher_.looksAtPaths() && (isMatch || isEntered)) {
            const std::size_t own = states_.size();
            states_.resize(own + words_);
            const std::span<Word> state(states_.data() + own, words_);
            if (words_ != 0) {
                std::copy_n(states_.data() + own - words_, words_, state.data());
                matcher_.advancePath(state, node.name());
            }
            isMatch = isMatch && matcher_.meetsPathConditions(node, state);
            if (!isEntered)
                states_.resize(own);
        }
        if (isEntered)
            enter(node, isCovered || isMatch);
        if (!isMatch)
            return true;
        add(node, *sizes, isCovered);
        return found_(node, *sizes);
    }

    void add(const FileNode& node, const NodeSizes& sizes, bool isCovered) {
        constexpr FileNodeFlags uncounted = FileNodeFlags::hardlinkDuplicate | FileNodeFlags::inaccessible;
        ++totals_.count;
        if (isCovered || (!node.isDirectory() && node.flags.intersects(uncounted)))
            return;
        addChecked(totals_.size, sizes.size);
        addChecked(totals_.allocatedSize, sizes.allocatedSize);
        addChecked(totals_.reclaimableSize, sizes.reclaimableSize);
    }

    SearchMatcher matcher_;
    Found& found_;
    const CancellationToken& token_;
    const SizesOfNode& sizesOf_;
    const std::size_t words_;
    std::vector<Frame> frames_;
    std::vector<Word> states_; // of the folders under way, the innermost last
    SearchTotals totals_;
};

} // namespace

SearchTotals Search::stream(const FileNode& root, const SearchConditions& conditions,
                            const std::function<bool(const FileNode&)>& found,
                            const CancellationToken& token) {
    auto handOn = [&](const FileNode& node, const NodeSizes& /*sizes*/) { return found(node); };
    return SearchWalk(conditions, handOn, token, {}).run(root);
}

LargestMatches Search::largest(const FileNode& root, const SearchConditions& conditions, std::size_t limit,
                               const CancellationToken& token, const SizesOfNode& sizesOf) {
    struct Candidate {
        std::int64_t size;
        std::size_t order;
        const FileNode* node;
    };
    const auto isLarger = [](const Candidate& a, const Candidate& b) {
        return a.size != b.size ? a.size > b.size : a.order < b.order;
    };
    std::vector<Candidate> best; // a heap with its least in front
    std::size_t order = 0;
    auto found = [&](const FileNode& node, const NodeSizes& sizes) {
        const Candidate candidate{sizes.forMode(conditions.sizeMode), order++, &node};
        if (best.size() == limit) {
            if (best.empty() || !isLarger(candidate, best.front()))
                return true;
            std::ranges::pop_heap(best, isLarger);
            best.pop_back();
        }
        best.push_back(candidate);
        std::ranges::push_heap(best, isLarger);
        return true;
    };
    LargestMatches result;
    result.totals = SearchWalk(conditions, found, token, sizesOf).run(root);
    std::ranges::sort_heap(best, isLarger);
    for (const Candidate& each : best)
        result.nodes.push_back(each.node);
    return result;
}

} // namespace tarnwell
