#include "TarnwellTidyKit/Browser/Marks.hpp"

#include <algorithm>
#include <cstdint>

namespace tarnwell {

std::size_t Marks::placeOf(const FileNode* node) const {
    const std::size_t mask = places_.size() - 1;
    // Nodes lie eight bytes apart: the low bits tell nothing.
    std::size_t place = (reinterpret_cast<std::uintptr_t>(node) >> 3) * 0x9E37'79B9'7F4A'7C15U >> 20 & mask;
    while (places_[place] != nullptr && places_[place] != node)
        place = (place + 1) & mask;
    return place;
}

void Marks::grow() {
    std::vector<const FileNode*> old = std::move(places_);
    places_.assign(old.empty() ? 16 : old.size() * 2, nullptr);
    for (const FileNode* node : old)
        if (node != nullptr)
            places_[placeOf(node)] = node;
}

bool Marks::insert(const FileNode* node) {
    if (count_ * 4 >= places_.size() * 3)
        grow();
    const std::size_t place = placeOf(node);
    if (places_[place] != nullptr)
        return false;
    places_[place] = node;
    ++count_;
    return true;
}

bool Marks::contains(const FileNode& node) const {
    return count_ != 0 && places_[placeOf(&node)] != nullptr;
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
    // Those behind it in its run move up, so that no search ends too early.
    const std::size_t mask = places_.size() - 1;
    std::size_t hole = placeOf(&node);
    places_[hole] = nullptr;
    --count_;
    for (std::size_t next = (hole + 1) & mask; places_[next] != nullptr; next = (next + 1) & mask) {
        const FileNode* moved = places_[next];
        places_[next] = nullptr;
        places_[placeOf(moved)] = moved;
    }
    for (const FileNode* above = node.parent(); above != nullptr; above = above->parent())
        if (const auto found = below_.find(above); found != below_.end() && --found->second == 0)
            below_.erase(found);
    return true;
}

void Marks::clear() {
    places_.clear();
    below_.clear();
    count_ = 0;
}

std::vector<const FileNode*> Marks::nodes() const {
    std::vector<const FileNode*> all;
    all.reserve(count_);
    for (const FileNode* node : places_)
        if (node != nullptr)
            all.push_back(node);
    return all;
}

} // namespace tarnwell
