#include "TarnwellCore/Layout/SizeOrder.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace tarnwell {
namespace {

/// A name with its next eight bytes at hand. In a folder of many small files most allocated sizes are equal,
/// and names that lie all over the tree's memory are dear to compare: most comparisons end with the key.
struct NameKey {
    std::uint64_t head;
    std::string_view name;
    const FileNode* node;
};

std::uint64_t headOf(std::string_view text) {
    std::uint64_t head = 0;
    for (std::size_t index = 0; index < 8; ++index)
        head = head << 8 | (index < text.size() ? static_cast<unsigned char>(text[index]) : 0u);
    return head;
}

std::size_t commonPrefixLength(std::span<const WeighedNode> nodes) {
    const std::string_view first = nodes.front().node->name();
    std::size_t length = first.size();
    for (const WeighedNode& each : nodes.subspan(1)) {
        const std::string_view name = each.node->name();
        const auto difference = std::mismatch(
            first.begin(), first.begin() + static_cast<std::ptrdiff_t>(length), name.begin(), name.end());
        length = static_cast<std::size_t>(difference.first - first.begin());
    }
    return length;
}

void sortByName(std::span<WeighedNode> nodes, std::vector<NameKey>& keys) {
    const std::size_t skipped = commonPrefixLength(nodes);
    keys.clear();
    keys.reserve(nodes.size());
    for (const WeighedNode& each : nodes) {
        const std::string_view name = each.node->name().substr(skipped);
        keys.push_back({headOf(name), name, each.node});
    }
    std::ranges::stable_sort(keys, [](const NameKey& a, const NameKey& b) {
        return a.head != b.head ? a.head < b.head : a.name < b.name;
    });
    for (std::size_t index = 0; index < nodes.size(); ++index)
        nodes[index].node = keys[index].node;
}

} // namespace

bool precedesByWeight(const WeighedNode& a, const WeighedNode& b) {
    return a.weight != b.weight ? a.weight > b.weight : a.node->name() < b.node->name();
}

void sortByWeight(std::span<WeighedNode> nodes) {
    // A scanned tree stands in this order already when the apparent size is the weight.
    if (std::ranges::is_sorted(nodes, precedesByWeight))
        return;
    std::ranges::stable_sort(nodes, std::ranges::greater(), &WeighedNode::weight);
    std::vector<NameKey> keys;
    for (std::size_t begin = 0; begin < nodes.size();) {
        std::size_t end = begin + 1;
        while (end < nodes.size() && nodes[end].weight == nodes[begin].weight)
            ++end;
        if (end - begin > 1)
            sortByName(nodes.subspan(begin, end - begin), keys);
        begin = end;
    }
}

} // namespace tarnwell
