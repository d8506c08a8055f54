#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <algorithm>

namespace tarnwell {

bool NodeSorter::Key::operator<(const Key& other) const {
    if (size != other.size)
        return size > other.size;
    if (nameStart != other.nameStart)
        return nameStart < other.nameStart;
    return node->name() < other.node->name();
}

std::span<FileNode*> NodeSorter::takeInto(std::span<FileNode*> places) {
    constexpr std::size_t largestKept = 16384;
    const std::size_t count = keys_.size();
    std::sort(keys_.begin(), keys_.end());
    std::ranges::transform(keys_, places.begin(), &Key::node);
    if (keys_.capacity() > largestKept)
        keys_ = {};
    keys_.clear();
    return places.subspan(count);
}

} // namespace tarnwell
