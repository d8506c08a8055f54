#include "TarnwellCore/Layout/SliceLayout.hpp"

#include "TarnwellCore/Layout/ChildWeights.hpp"
#include "TarnwellCore/Layout/SizeOrder.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace tarnwell {

namespace {

/// One layout under way. Levels are on a stack of its own, since trees may be deeper than the thread's; the
/// weights of all open levels share one array, the innermost level's at its end.
class SliceRun {
public:
    SliceRun(std::span<const SliceLevel> levels, const TreemapConfiguration& configuration,
             RemovedNodesQuery& removed)
        : levels_(levels), configuration_(configuration), removed_(removed) {}

    std::vector<Slice> run(std::span<const FileNode* const> children, const FileNode* parent, double start,
                           double length) {
        open(children, parent, 0, start, length);
        while (!open_.empty()) {
            Open& level = open_.back();
            if (level.next < level.end) {
                emitNext();
                continue;
            }
            weights_.resize(level.begin);
            open_.pop_back();
        }
        return std::move(slices_);
    }

private:
    struct Open {
        const FileNode* parent;
        std::size_t depth;
        // Its slices are [begin, end) of `weights_`, those before `next` are emitted.
        std::size_t begin;
        std::size_t next;
        std::size_t end;
        std::int64_t mergedCount;
        double start;
        double length;
        // Of the slices that are shown, and of those that are emitted.
        std::int64_t total;
        std::int64_t emitted;
        double position;
    };

    void open(std::span<const FileNode* const> children, const FileNode* parent, std::size_t depth,
              double start, double length) {
        if (depth >= levels_.size() || !(length > 0) || length < levels_[depth].minimumLength)
            return;
        const std::size_t begin = weights_.size();
        const std::int64_t total = weighChildren(children, configuration_.sizeMode, removed_, weights_);
        if (total < 1)
            return;
        const auto all = std::span(weights_).subspan(begin);
        const double minimumWeight = levels_[depth].minimumLength / length * static_cast<double>(total);
        const auto small = std::ranges::remove_if(
            all, [&](const WeighedNode& each) { return static_cast<double>(each.weight) < minimumWeight; });
        const std::size_t keptCount = all.size() - small.size();
        const auto mergedCount = static_cast<std::int64_t>(small.size());
        weights_.resize(begin + keptCount);
        sortByWeight(std::span(weights_).subspan(begin));
        std::int64_t kept = 0;
        for (const WeighedNode& each : std::span(weights_).subspan(begin))
            kept += each.weight;
        const std::int64_t merged = total - kept;
        if (mergedCount > 0 && configuration_.aggregateRemainder &&
            static_cast<double>(merged) >= minimumWeight)
            weights_.push_back({nullptr, merged});
        const bool showsMerged = weights_.size() > begin + keptCount;
        open_.push_back({parent, depth, begin, begin, weights_.size(), mergedCount, start, length,
                         showsMerged ? total : kept, 0, start});
    }

    void emitNext() {
        Open& level = open_.back();
        const WeighedNode each = weights_[level.next++];
        level.emitted += each.weight;
        const double end = level.next == level.end
                               ? level.start + level.length
                               : level.start + level.length * (static_cast<double>(level.emitted) /
                                                               static_cast<double>(level.total));
        const double start = level.position;
        const double length = std::max(end - start, 0.0);
        level.position = start + length;
        const std::size_t depth = level.depth;
        slices_.push_back({each.node, level.parent, static_cast<std::int64_t>(depth), each.weight,
                           each.node == nullptr ? level.mergedCount : 0, start, length});
        if (each.node != nullptr && static_cast<std::int64_t>(depth) < configuration_.maximumDepth &&
            each.node->isDirectory() && length > levels_[depth].minimumLengthForRecursion)
            open(each.node->children(), each.node, depth + 1, start, length);
    }

    std::span<const SliceLevel> levels_;
    const TreemapConfiguration& configuration_;
    RemovedNodesQuery& removed_;
    std::vector<Slice> slices_;
    std::vector<Open> open_;
    std::vector<WeighedNode> weights_; // what is merged has no node
};

} // namespace

double smallestSide(const TreemapConfiguration& configuration) {
    return configuration.minimumArea > 0 ? std::sqrt(configuration.minimumArea) : 0;
}

std::size_t levelCount(const TreemapConfiguration& configuration, double extent) {
    if (!(extent > 0) || !std::isfinite(extent) || configuration.maximumDepth < 0)
        return 0;
    constexpr double most = 100'000; // more would be thinner than anything that is drawn
    const double wanted = std::min(static_cast<double>(configuration.maximumDepth) + 1, most);
    const double side = smallestSide(configuration);
    return static_cast<std::size_t>(side > 0 ? std::min(wanted, std::floor(extent / side)) : wanted);
}

std::vector<Slice> layoutSlices(std::span<const FileNode* const> children, const FileNode* parent,
                                double start, double length, std::span<const SliceLevel> levels,
                                const TreemapConfiguration& configuration, RemovedNodesQuery& removed) {
    return SliceRun(levels, configuration, removed).run(children, parent, start, length);
}

} // namespace tarnwell
