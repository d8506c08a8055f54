#include "TarnwellTidyKit/Browser/Marks.hpp"

#include <algorithm>
#include <cstdint>

namespace tarnwell {

namespace {

/// Where the mark of a node is.
struct Place {
    std::uintptr_t page;
    std::size_t word;
    unsigned shift;
    std::uint64_t value;

    Place(const FileNode* node, std::uintptr_t pageLength, std::uintptr_t granule) {
        static_assert(sizeof(FileNode) == 64 && alignof(FileNode) == 8);
        const auto address = reinterpret_cast<std::uintptr_t>(node);
        const std::uintptr_t number = address % pageLength / granule;
        page = address / pageLength;
        word = number / 16;
        shift = static_cast<unsigned>(number % 16 * 4);
        value = address % granule / alignof(FileNode) + 1;
    }
    bool isIn(const auto& words) const { return (words[word] >> shift & 0xFU) == value; }
};

} // namespace

bool Marks::insert(const FileNode* node) {
    const Place place(node, pageLength, granule);
    Page& page = pages_[place.page];
    if (place.isIn(page))
        return false;
    page[place.word] |= place.value << place.shift;
    ++count_;
    return true;
}

bool Marks::contains(const FileNode& node) const {
    const Place place(&node, pageLength, granule);
    const auto page = pages_.find(place.page);
    return page != pages_.end() && place.isIn(page->second);
}

bool Marks::covers(const FileNode& node) const {
    for (const FileNode* each = &node; each != nullptr && count_ != 0; each = each->parent())
        if (contains(*each))
            return true;
    return false;
}

bool Marks::add(const FileNode& node) {
    if (covers(node))
        return false;
    if (below_.contains(&node))
        for (const FileNode* each : nodes()) {
            const FileNode* above = each->parent();
            while (above != nullptr && above != &node)
                above = above->parent();
            if (above == &node)
                remove(*each);
        }
    insert(&node);
    for (const FileNode* above = node.parent(); above != nullptr; above = above->parent())
        ++below_[above];
    return true;
}

void Marks::addChildren(const FileNode& folder, const std::vector<const FileNode*>& children) {
    if (covers(folder))
        return;
    std::size_t added = 0;
    for (const FileNode* child : children) {
        if (!below_.empty() && below_.contains(child))
            add(*child);
        else
            added += insert(child) ? 1 : 0;
    }
    for (const FileNode* above = &folder; above != nullptr && added != 0; above = above->parent())
        below_[above] += added;
}

void Marks::addAll(const std::vector<const FileNode*>& nodes) {
    for (auto begin = nodes.begin(); begin != nodes.end();) {
        const FileNode* folder = (*begin)->parent();
        const auto end =
            std::find_if(begin, nodes.end(), [&](const FileNode* node) { return node->parent() != folder; });
        if (folder != nullptr)
            addChildren(*folder, {begin, end});
        begin = end;
    }
}

bool Marks::remove(const FileNode& node) {
    if (!contains(node))
        return false;
    const Place place(&node, pageLength, granule);
    const auto page = pages_.find(place.page);
    page->second[place.word] &= ~(std::uint64_t{0xF} << place.shift);
    if (--count_ == 0)
        pages_ = {};
    for (const FileNode* above = node.parent(); above != nullptr; above = above->parent())
        if (const auto found = below_.find(above); found != below_.end() && --found->second == 0)
            below_.erase(found);
    return true;
}

void Marks::clear() {
    pages_ = {};
    below_ = {};
    count_ = 0;
}

std::vector<const FileNode*> Marks::nodes() const {
    std::vector<const FileNode*> all;
    all.reserve(count_);
    for (const auto& [number, page] : pages_)
        for (std::size_t place = 0; place < page.size() * 16; ++place)
            if (const std::uint64_t value = page[place / 16] >> (place % 16 * 4) & 0xFU; value != 0)
                all.push_back(reinterpret_cast<const FileNode*>( // NOLINT(performance-no-int-to-ptr)
                    number * pageLength + place * granule + (value - 1) * alignof(FileNode)));
    return all;
}

} // namespace tarnwell
