#include "TarnwellCore/Scanning/HardlinkRegistry.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <mutex>
#include <utility>

namespace tarnwell {

namespace {

/// The index of the sighting with the smallest path, the first of equal ones.
std::size_t ownerIndex(const std::vector<HardlinkRegistry::Sighting>& group) {
    if (group.size() == 1)
        return 0;
    const auto pathOf = [](const HardlinkRegistry::Sighting& sighting) {
        return sighting.node != nullptr ? sighting.node->path()
                                        : sighting.folder.child(sighting.name)->path();
    };
    std::size_t owner = 0;
    std::string smallest = pathOf(group[0]);
    for (std::size_t index = 1; index < group.size(); ++index) {
        std::string path = pathOf(group[index]);
        if (path < smallest) {
            smallest = std::move(path);
            owner = index;
        }
    }
    return owner;
}

} // namespace

bool HardlinkRegistry::isFirst(const INodeKey& key) {
    const std::lock_guard guard(lock_);
    return seenINodes_.insert(key).second;
}

bool HardlinkRegistry::record(const INodeKey& key, Sighting sighting) {
    const std::lock_guard guard(lock_);
    auto& group = hardlinkGroups_[key];
    group.push_back(std::move(sighting));
    return group.size() == 1;
}

void HardlinkRegistry::assignOwners() {
    std::unordered_map<INodeKey, std::vector<Sighting>> groups;
    {
        const std::lock_guard guard(lock_);
        groups.swap(hardlinkGroups_);
    }
    for (auto& [key, group] : groups) {
        const std::size_t owner = ownerIndex(group);
        for (std::size_t index = 0; index < group.size(); ++index) {
            const Sighting& sighting = group[index];
            if (sighting.node != nullptr) {
                setHardlinkDuplicate(*sighting.node, index != owner);
            } else if (index == owner) {
                addChecked(sighting.collapseTarget->size, sighting.size);
                addChecked(sighting.collapseTarget->allocatedSize, sighting.allocatedSize);
                addChecked(sighting.collapseTarget->reclaimableSize, sighting.reclaimableSize);
            }
        }
    }
}

} // namespace tarnwell
