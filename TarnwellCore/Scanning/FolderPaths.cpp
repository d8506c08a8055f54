#include "TarnwellCore/Scanning/FolderPaths.hpp"

#include "TarnwellCore/Scanning/PathStep.hpp"

#include <algorithm>
#include <functional>
#include <unordered_map>

namespace tarnwell {

namespace {

struct Step {
    const FolderHandle* folder;
    bool isLast;

    bool operator<(const Step& other) const {
        return PathStep{folder->name(), isLast} < PathStep{other.folder->name(), other.isLast};
    }
};

/// The steps from a folder on; those from nowhere are the root's.
using Steps = std::unordered_map<const FolderHandle*, std::vector<Step>>;

Steps stepsTo(std::span<const FolderRef> folders) {
    Steps steps;
    for (const FolderRef& folder : folders) {
        const FolderHandle* last = folder.operator->();
        for (Step step{last, true}; step.folder != nullptr; step = {step.folder->parent(), false}) {
            std::vector<Step>& next = steps[step.folder->parent()];
            next.push_back(step);
            if (next.size() > 1) // others have come this way
                break;
        }
    }
    return steps;
}

} // namespace

std::vector<std::string> pathsInOrder(std::span<const FolderRef> folders, const PathListLimit& limit) {
    struct Place {
        const std::vector<Step>& steps;
        std::size_t next;
        std::size_t pathLength;
    };
    Steps steps = stepsTo(folders);
    std::vector<std::string> paths;
    std::string path;
    std::size_t bytes = 0;
    std::vector<Place> way;
    const auto enter = [&](const FolderHandle* folder) {
        std::vector<Step>& next = steps[folder];
        std::ranges::sort(next, std::less<>());
        way.push_back({next, 0, path.size()});
    };
    enter(nullptr);
    while (!way.empty()) {
        Place& place = way.back();
        path.resize(place.pathLength);
        if (place.next == place.steps.size()) {
            way.pop_back();
            continue;
        }
        const Step step = place.steps[place.next++];
        if (!path.empty() && !path.ends_with('/'))
            path += '/';
        path += step.folder->name();
        if (!step.isLast) {
            enter(step.folder);
            continue;
        }
        bytes += path.size();
        if (paths.size() == limit.paths || bytes > limit.bytes)
            break;
        paths.push_back(path);
    }
    return paths;
}

} // namespace tarnwell
