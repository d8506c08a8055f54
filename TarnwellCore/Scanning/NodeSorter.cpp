#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include "TarnwellCore/Scanning/NodeFetch.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string_view>
#include <utility>

namespace tarnwell {

namespace {

using Item = NodeSorter::Item;

// How two items compare is a coin toss to the processor, and a branch that it takes for nothing costs more
// than comparing both fields: hence `|` and `&`, here, and indices that are computed below.
bool precedesSoFar(const Item& a, const Item& b) {
    return (a.size > b.size) | ((a.size == b.size) & (a.nameBytes < b.nameBytes));
}

/// Whether `a` has to stand after `b`. The items hold the first bytes of their names.
bool isMisplaced(const Item& a, const Item& b) {
    return precedesSoFar(b, a) || (!precedesSoFar(a, b) && b.node->name() < a.node->name());
}

/// The items go to their places in `sorted`: as many as come before each. For few items.
void sortByRank(std::span<const Item> items, Item* sorted) {
    constexpr std::size_t most = 8;
    std::array<std::size_t, most> ranks = {};
    for (std::size_t first = 0; first < items.size(); ++first)
        for (std::size_t second = first + 1; second < items.size(); ++second) {
            const bool isTurned = precedesSoFar(items[second], items[first]);
            ranks[first] += isTurned;
            ranks[second] += !isTurned;
        }
    for (std::size_t index = 0; index < items.size(); ++index)
        sorted[ranks[index]] = items[index];
}

/// Merges two sorted runs, one behind the other.
void merge(const Item* left, const Item* right, const Item* rightEnd, Item* merged) {
    const Item* leftEnd = right;
    Item* mergedEnd = merged + (rightEnd - left);
    // From both ends, for the processor takes two independent steps in the time of one. Before the shorter
    // run's number of items have been taken, neither run can have come to its end.
    for (std::ptrdiff_t steps = std::min(right - left, rightEnd - right); steps > 0; --steps) {
        const bool isRightNext = precedesSoFar(*right, *left);
        *merged++ = *(isRightNext ? right : left);
        right += isRightNext;
        left += !isRightNext;
        const bool isLeftLast = precedesSoFar(rightEnd[-1], leftEnd[-1]);
        *--mergedEnd = *(isLeftLast ? leftEnd - 1 : rightEnd - 1);
        leftEnd -= isLeftLast;
        rightEnd -= !isLeftLast;
    }
    while (left < leftEnd && right < rightEnd)
        *merged++ = *(precedesSoFar(*right, *left) ? right++ : left++);
    if (left < leftEnd)
        std::copy(left, leftEnd, merged);
    else if (right < rightEnd)
        std::copy(right, rightEnd, merged);
}

} // namespace

/// Stable.
void NodeSorter::sortSoFar(std::span<Item> items) {
    const std::size_t count = items.size();
    scratch_.resize(std::max(scratch_.size(), count));
    constexpr std::size_t shortRun = 8;
    for (std::size_t start = 0; start < count; start += shortRun)
        sortByRank(items.subspan(start, std::min(shortRun, count - start)), scratch_.data() + start);
    Item* from = items.data();
    Item* to = scratch_.data();
    for (std::size_t length = shortRun; length < count; length *= 2) {
        std::swap(from, to);
        for (std::size_t start = 0; start < count; start += 2 * length)
            merge(from + start, from + std::min(start + length, count),
                  from + std::min(start + 2 * length, count), to + start);
    }
    if (to != items.data())
        std::copy_n(to, count, items.data());
}

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

void NodeSorter::readNames(std::span<Item> items, std::size_t offset) {
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index + nodesAhead < items.size())
            fetchSoon(items[index + nodesAhead].node);
        items[index].nameBytes = bytesAt(offset, *items[index].node);
    }
}

std::span<const Item> NodeSorter::sorted() {
    // Not when a node is added: it has just been written then, and the processor waits for its bytes.
    readNames(items_, 0);
    // As the children of a scanned folder are when they are added again by apparent size.
    if (std::adjacent_find(items_.begin(), items_.end(), isMisplaced) == items_.end())
        return items_;
    sortSoFar(items_);
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
    if (items_.capacity() > largestKept) {
        items_ = std::vector<Item>(); // `{}` would keep the memory
        scratch_ = std::vector<Item>();
        runs_ = std::vector<Run>();
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
    readNames(items, offset);
    sortSoFar(items);
    addRuns(run.start, run.end, offset);
}

} // namespace tarnwell
