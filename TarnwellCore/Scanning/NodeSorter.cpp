#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>

namespace tarnwell {

namespace {

using Item = NodeSorter::Item;

bool precedesSoFar(const Item& a, const Item& b) {
    return a.size != b.size ? a.size > b.size : a.nameBytes < b.nameBytes;
}

/// Whether `a` has to stand after `b`. The items hold the first bytes of their names.
bool isMisplaced(const Item& a, const Item& b) {
    return precedesSoFar(b, a) || (!precedesSoFar(a, b) && b.node->name() < a.node->name());
}

} // namespace

/// Past the end of the name they are zeros.
std::uint64_t NodeSorter::bytesAt(std::size_t offset, const FileNode& node) {
    const std::string_view name = node.name();
    std::uint64_t bytes = 0;
    if (name.size() >= offset + sizeof bytes) {
        std::memcpy(&bytes, name.data() + offset, sizeof bytes);
        return std::endian::native == std::endian::little ? __builtin_bswap64(bytes) : bytes;
    }
    for (std::size_t index = offset; index < offset + sizeof bytes; ++index)
        bytes = bytes << 8 | (index < name.size() ? static_cast<unsigned char>(name[index]) : 0u);
    return bytes;
}

std::span<const Item> NodeSorter::sorted() {
    // As the children of a scanned folder are when they are added again by apparent size.
    if (std::adjacent_find(items_.begin(), items_.end(), isMisplaced) == items_.end())
        return items_;
    std::stable_sort(items_.begin(), items_.end(), precedesSoFar);
    addRuns(0, items_.size(), 0);
    while (!runs_.empty()) {
        const Run run = runs_.back();
        runs_.pop_back();
        settle(run);
    }
    return items_;
}

std::span<FileNode*> NodeSorter::takeInto(std::span<FileNode*> places) {
    const std::size_t count = items_.size();
    std::ranges::transform(sorted(), places.begin(), &Item::node);
    clear();
    return places.subspan(count);
}

void NodeSorter::clear() {
    constexpr std::size_t largestKept = 16384;
    if (items_.capacity() > largestKept) {
        items_ = {};
        runs_ = {};
    }
    items_.clear();
}

/// Notes the runs of equal items among those from `start` to `end`, which are in order by what was compared.
void NodeSorter::addRuns(std::size_t start, std::size_t end, std::size_t offset) {
    for (std::size_t first = start, next = start + 1; next <= end; ++next) {
        if (next < end && !precedesSoFar(items_[first], items_[next]))
            continue;
        if (next - first > 1)
            runs_.push_back({first, next, offset});
        first = next;
    }
}

/// Orders a run by the next bytes of the names.
void NodeSorter::settle(const Run& run) {
    constexpr std::size_t few = 16;
    const std::size_t offset = run.offset + sizeof Item::nameBytes;
    const std::span items = std::span(items_).subspan(run.start, run.end - run.start);
    // Names that end here differ by NULs at most, which the zeros past the end are taken for.
    const bool isDecided =
        std::ranges::all_of(items, [&](const Item& item) { return item.node->name().size() <= offset; });
    if (items.size() <= few || isDecided) {
        std::stable_sort(items.begin(), items.end(),
                         [](const Item& a, const Item& b) { return a.node->name() < b.node->name(); });
        return;
    }
    for (Item& item : items)
        item.nameBytes = bytesAt(offset, *item.node);
    std::stable_sort(items.begin(), items.end(), precedesSoFar);
    addRuns(run.start, run.end, offset);
}

} // namespace tarnwell
