#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tarnwell {

NodeSorter::Key::Key(FileNode& keyed) : size(keyed.size), nameStart(0), node(&keyed) {
    // A short name is padded with zeros; where that makes two alike, the whole names decide.
    const std::string_view name = keyed.name();
    for (std::size_t index = 0; index < sizeof nameStart; ++index)
        nameStart = nameStart << 8 | (index < name.size() ? static_cast<unsigned char>(name[index]) : 0u);
}

bool NodeSorter::Key::operator<(const Key& other) const {
    if (size != other.size)
        return size > other.size;
    if (nameStart != other.nameStart)
        return nameStart < other.nameStart;
    return node->name() < other.node->name();
}

void NodeSorter::sort(std::span<FileNode*> nodes) {
    constexpr std::size_t largestKept = 16384;
    keys_.clear();
    keys_.reserve(nodes.size());
    for (FileNode* node : nodes)
        keys_.emplace_back(*node);
    std::sort(keys_.begin(), keys_.end());
    std::ranges::transform(keys_, nodes.begin(), &Key::node);
    if (keys_.capacity() > largestKept)
        keys_ = {};
}

} // namespace tarnwell
