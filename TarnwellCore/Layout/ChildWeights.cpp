#include "TarnwellCore/Layout/ChildWeights.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

namespace tarnwell {

std::int64_t weighChildren(std::span<const FileNode* const> children, SizeMode mode,
                           RemovedNodesQuery& removed, std::vector<WeighedNode>& weights) {
    std::int64_t total = 0;
    for (const FileNode* child : children) {
        const std::int64_t weight = child->sizeFor(mode);
        if (weight <= 0 || removed.containsNodeOrAncestor(*child))
            continue;
        weights.push_back({child, weight});
        addChecked(total, weight);
    }
    return total;
}

} // namespace tarnwell
