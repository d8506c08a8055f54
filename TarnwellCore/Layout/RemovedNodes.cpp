#include "TarnwellCore/Layout/RemovedNodes.hpp"

namespace tarnwell {

bool RemovedNodes::containsNodeOrAncestor(const FileNode& node) const {
    if (nodes_.empty())
        return false;
    for (const FileNode* each = &node; each != nullptr; each = each->parent())
        if (nodes_.contains(each))
            return true;
    return false;
}

bool RemovedNodesQuery::isBelowRemoved(const FileNode* parent) {
    if (parent == lastParent_)
        return lastAnswer_;
    bool answer = false;
    const FileNode* end = parent;
    for (; end != nullptr; end = end->parent()) {
        if (const auto known = answers_.find(end); known != answers_.end()) {
            answer = known->second;
            break;
        }
        if (removed_.contains(*end)) {
            answers_.emplace(end, true);
            answer = true;
            break;
        }
    }
    for (const FileNode* each = parent; each != end; each = each->parent())
        answers_.emplace(each, answer);
    lastParent_ = parent;
    lastAnswer_ = answer;
    return answer;
}

} // namespace tarnwell
