#include "TarnwellCore/Scanning/PathOrder.hpp"

#include "TarnwellCore/Scanning/PathStep.hpp"

#include <algorithm>
#include <bit>
#include <filesystem>
#include <functional>
#include <ranges>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace tarnwell {

namespace {

/// What paths have in common, once: a place for each name in a path, below the place of the name before it.
class Places {
public:
    static constexpr std::size_t none = 0; // what the first names of paths lie below

    std::size_t count() const { return parents_.size(); }
    std::size_t parent(std::size_t place) const { return parents_[place]; }
    std::string_view name(std::size_t place) const { return names_[place]; }

    std::size_t of(const FileNode& node) {
        way_.clear();
        std::size_t place = none;
        for (const FileNode* at = &node;; at = at->parent()) {
            if (at->isDirectory())
                if (const auto known = folders_.find(at); known != folders_.end()) {
                    place = known->second;
                    break;
                }
            way_.push_back(at);
            if (at->parent() == nullptr)
                break;
        }
        for (const FileNode* at : way_ | std::views::reverse) {
            place = at->parent() == nullptr ? ofRoot(at->name()) : below(place, at->name());
            if (at->isDirectory())
                folders_.emplace(at, place);
        }
        return place;
    }

private:
    struct Key {
        std::size_t parent;
        std::string_view name;
        bool operator==(const Key&) const = default;
    };
    struct Hash {
        std::size_t operator()(const Key& key) const {
            return std::hash<std::string_view>()(key.name) ^ std::rotl(key.parent, 24);
        }
    };

    /// A root's name is a path: "/a/b" are three names, "/" is one.
    std::size_t ofRoot(std::string_view path) {
        if (path.ends_with('/'))
            path.remove_suffix(1);
        std::size_t place = none;
        for (const auto& name : path | std::views::split('/'))
            place = below(place, std::string_view(name));
        return path.empty() ? below(none, {}) : place;
    }

    std::size_t below(std::size_t parent, std::string_view name) {
        const auto [known, isNew] = places_.try_emplace(Key{parent, name}, parents_.size());
        if (isNew) {
            parents_.push_back(parent);
            names_.push_back(name);
        }
        return known->second;
    }

    std::vector<std::size_t> parents_{none};
    std::vector<std::string_view> names_{std::string_view()};
    std::unordered_map<Key, std::size_t, Hash> places_;
    std::unordered_map<const FileNode*, std::size_t> folders_;
    std::vector<const FileNode*> way_;
};

} // namespace

std::vector<std::size_t> pathRanks(std::span<const FileNode* const> nodes) {
    Places places;
    std::vector<std::size_t> placeOf;
    placeOf.reserve(nodes.size());
    for (const FileNode* node : nodes)
        placeOf.push_back(places.of(*node));

    // From a place, paths go on to the places below it, and end there or go on.
    struct Step {
        std::size_t place;
        bool isLast;
    };
    std::vector<bool> isEnd(places.count());
    for (const std::size_t place : placeOf)
        isEnd[place] = true;
    std::vector<bool> isPassed(places.count());
    for (std::size_t place = 1; place < places.count(); ++place)
        isPassed[places.parent(place)] = true;
    std::vector<Step> steps;
    for (std::size_t place = 1; place < places.count(); ++place) {
        if (isEnd[place])
            steps.push_back({place, true});
        if (isPassed[place])
            steps.push_back({place, false});
    }
    const auto from = [&](const Step& step) { return places.parent(step.place); };
    std::ranges::sort(steps, [&](const Step& one, const Step& other) {
        if (from(one) != from(other))
            return from(one) < from(other);
        return PathStep{places.name(one.place), one.isLast} <
               PathStep{places.name(other.place), other.isLast};
    });

    std::vector<std::size_t> firstStep(places.count());
    for (std::size_t index = steps.size(); index-- > 0;)
        firstStep[from(steps[index])] = index;
    std::vector<std::size_t> rankOf(places.count());
    std::size_t rank = 0;
    std::vector<std::size_t> way; // the next step of each place on the way
    if (!steps.empty())
        way.push_back(0);
    while (!way.empty()) {
        const std::size_t index = way.back();
        const Step step = steps[index];
        if (index + 1 < steps.size() && from(steps[index + 1]) == from(step))
            ++way.back();
        else
            way.pop_back();
        if (step.isLast)
            rankOf[step.place] = rank++;
        else
            way.push_back(firstStep[step.place]);
    }
    for (std::size_t& place : placeOf)
        place = rankOf[place];
    return placeOf;
}

void sortByPath(std::span<const FileNode*> nodes) {
    const std::vector<std::size_t> ranks = pathRanks(nodes);
    std::vector<std::pair<std::size_t, const FileNode*>> ranked;
    ranked.reserve(nodes.size());
    for (std::size_t index = 0; index < nodes.size(); ++index)
        ranked.emplace_back(ranks[index], nodes[index]);
    std::ranges::stable_sort(ranked, {}, [](const auto& pair) { return pair.first; });
    std::ranges::transform(ranked, nodes.begin(), [](const auto& pair) { return pair.second; });
}

std::size_t pathLength(const FileNode& node) {
    std::size_t length = 0;
    const FileNode* at = &node;
    for (; at->parent() != nullptr; at = at->parent())
        length += 1 + at->name().size();
    const std::string_view root = at->name();
    if (at == &node)
        return root.empty() ? 1 : root.size();
    return length + root.size() - (root.ends_with('/') ? 1 : 0);
}

bool PathBudget::take(const FileNode& node) {
    constexpr std::size_t mostPaths = 100'000;
    constexpr std::size_t mostBytes = std::size_t{64} << 20;
    constexpr std::size_t bytesOfName = sizeof(std::filesystem::path); // a path keeps a list of its names
    if (isSpent_)
        return false;
    ++paths_;
    bytes_ += pathLength(node) + (node.depth() + 1) * bytesOfName;
    isSpent_ = paths_ > mostPaths || bytes_ > mostBytes;
    return !isSpent_;
}

} // namespace tarnwell
