#include "TarnwellCore/Scanning/ExclusionIndex.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

std::vector<std::string_view> components(std::string_view path) {
    std::vector<std::string_view> parts;
    while (!path.empty()) {
        const std::string_view part = path.substr(0, path.find('/'));
        if (!part.empty())
            parts.push_back(part);
        path.remove_prefix(std::min(part.size() + 1, path.size()));
    }
    return parts;
}

} // namespace

ExclusionIndex::ExclusionIndex(std::string_view rootPath, const std::set<std::string, std::less<>>& paths)
    : rootPath_(rootPath) {
    add(paths);
}

ExclusionIndex::~ExclusionIndex() {
    // Level by level: a path may have more components than the stack has room for.
    std::vector<std::unique_ptr<Level>> pending;
    const auto takeBelow = [&](Level& level) {
        for (auto& [name, below] : level.below)
            pending.push_back(std::move(below));
    };
    takeBelow(root_);
    while (!pending.empty()) {
        const std::unique_ptr<Level> level = std::move(pending.back());
        pending.pop_back();
        takeBelow(*level);
    }
}

void ExclusionIndex::mark(const std::set<std::string, std::less<>>& paths, bool Level::* mark) {
    const auto rootParts = components(rootPath_);
    for (const std::string& path : paths) {
        const auto parts = components(path);
        if (path.starts_with('/') != rootPath_.starts_with('/') || parts.size() <= rootParts.size() ||
            !std::equal(rootParts.begin(), rootParts.end(), parts.begin(), isSameName))
            continue;
        Level* level = &root_;
        for (std::size_t index = rootParts.size(); index < parts.size(); ++index) {
            const bool hasOtherForms = mayHaveOtherForms(parts[index]);
            level->hasOtherForms = level->hasOtherForms || hasOtherForms;
            auto& below = level->below[hasOtherForms ? commonForm(parts[index]) : std::string(parts[index])];
            if (!below)
                below = std::make_unique<Level>();
            level = below.get();
        }
        level->*mark = true;
    }
}

} // namespace tarnwell
