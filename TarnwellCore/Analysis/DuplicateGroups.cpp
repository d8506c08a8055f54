// The last stage of a search for duplicates: what is known of the files becomes groups.

#include "TarnwellCore/Analysis/DuplicateSearch.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>
#include <map>
#include <string>
#include <tuple>

namespace tarnwell {

namespace {

struct NamedMember {
    std::string path;
    DuplicateMember member;
};

/// Sets of two and more files with one layout get numbers from 1 on, in the order of the files.
void numberCloneSets(std::vector<DuplicateFile>& files,
                     const std::vector<std::optional<BlockLayout>>& layouts) {
    std::map<BlockLayout, std::size_t> counts;
    for (const auto& layout : layouts)
        if (layout)
            ++counts[*layout];
    std::map<BlockLayout, std::size_t> numbers;
    for (std::size_t file = 0; file < files.size(); ++file)
        if (layouts[file] && counts[*layouts[file]] > 1)
            files[file].cloneSet = numbers.try_emplace(*layouts[file], numbers.size() + 1).first->second;
}

/// The scan may be older than the sharing of blocks: of each set of clones the one file counts that would
/// free most. The one file that is kept is that which would free least.
std::int64_t wasteOf(const std::vector<DuplicateFile>& files) {
    std::map<std::size_t, std::int64_t> cloneSets;
    std::vector<std::int64_t> sizes;
    for (const DuplicateFile& file : files) {
        if (file.cloneSet == 0)
            sizes.push_back(file.reclaimableSize);
        else
            cloneSets[file.cloneSet] = std::max(cloneSets[file.cloneSet], file.reclaimableSize);
    }
    for (const auto& [number, size] : cloneSets)
        sizes.push_back(size);
    std::ranges::sort(sizes);
    std::int64_t waste = 0;
    for (std::size_t index = 1; index < sizes.size(); ++index)
        addChecked(waste, sizes[index]);
    return waste;
}

} // namespace

const FileNode& DuplicateGroup::firstMember(std::size_t file) const {
    return *std::ranges::find(members, file, &DuplicateMember::file)->node;
}

DuplicateGroup DuplicateSearch::groupOf(std::span<const std::size_t> files) const {
    std::vector<NamedMember> members;
    for (const std::size_t file : files)
        for (std::size_t link = 0; link < files_[file].candidateCount; ++link) {
            const FileNode* node = candidates_[files_[file].firstCandidate + link].node;
            members.push_back({node->path(), {node, file}});
        }
    std::ranges::sort(members, {}, &NamedMember::path);
    // Of several trees two may hold one path.
    const auto repeated = std::ranges::unique(members, {}, &NamedMember::path);
    members.erase(repeated.begin(), repeated.end());

    DuplicateGroup group;
    group.size = sizeOf(files_[files.front()]);
    group.digest = files_[files.front()].digest;
    std::map<std::size_t, std::size_t> numbers; // of the search's files in the group
    std::vector<std::optional<BlockLayout>> layouts;
    std::vector<std::size_t> linkCounts;
    for (const NamedMember& named : members) {
        const auto [number, isNew] = numbers.try_emplace(named.member.file, group.files.size());
        const Candidate& candidate = candidates_[files_[named.member.file].firstCandidate];
        if (isNew) {
            group.files.push_back({.version = candidate.version});
            const auto layout = layouts_.find(named.member.file);
            layouts.push_back(layout == layouts_.end() ? std::nullopt : std::optional(layout->second));
            linkCounts.push_back(candidate.linkCount);
        }
        DuplicateFile& file = group.files[number->second];
        file.reclaimableSize = std::max(file.reclaimableSize, named.member.node->reclaimableSize);
        if (linkCounts[number->second] > 0)
            --linkCounts[number->second];
        group.members.push_back({named.member.node, number->second});
    }
    for (std::size_t file = 0; file < group.files.size(); ++file) {
        group.files[file].hasUnseenLinks = linkCounts[file] > 0;
        if (group.files[file].hasUnseenLinks)
            group.files[file].reclaimableSize = 0;
    }
    numberCloneSets(group.files, layouts);
    group.waste = wasteOf(group.files);
    return group;
}

DuplicateResult DuplicateSearch::assemble() {
    DuplicateResult result;
    std::size_t first = 0;
    for (const std::size_t size : groupSizes_) {
        requireRunning();
        result.groups.push_back(groupOf(std::span(groupedFiles_).subspan(first, size)));
        first += size;
    }
    // One path may have led to two files, one after the other.
    std::erase_if(result.groups, [](const DuplicateGroup& group) { return group.files.size() < 2; });
    std::vector<std::pair<std::string, DuplicateGroup>> ordered;
    for (DuplicateGroup& group : result.groups) {
        addChecked(result.totals.waste, group.waste);
        result.totals.duplicateCount += static_cast<std::int64_t>(group.files.size()) - 1;
        std::string path = group.members.front().node->path();
        ordered.emplace_back(std::move(path), std::move(group));
    }
    std::ranges::sort(ordered, {}, [](const auto& entry) {
        return std::tuple(-entry.second.waste, -entry.second.size, std::string_view(entry.first));
    });
    result.groups.clear();
    for (auto& [path, group] : ordered)
        result.groups.push_back(std::move(group));

    std::vector<std::pair<std::string, DroppedFile>> dropped;
    for (const DroppedFile& file : dropped_)
        dropped.emplace_back(file.node->path(), file);
    std::ranges::sort(dropped, {}, [](const auto& entry) { return std::string_view(entry.first); });
    for (const auto& [path, file] : dropped)
        result.dropped.push_back(file);

    result.totals.candidateCount = candidateCount_;
    result.totals.bytesRead = bytesRead_.load();
    result.totals.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    result.roots = std::move(roots_);
    return result;
}

} // namespace tarnwell
