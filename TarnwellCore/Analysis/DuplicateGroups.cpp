// The last stage of a search for duplicates: what is known of the files becomes groups.

#include "TarnwellCore/Analysis/DuplicateSearch.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/PathOrder.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <tuple>
#include <utility>

namespace tarnwell {

namespace {

struct RankedMember {
    std::size_t rank; // of its path
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

std::vector<std::size_t> DuplicateSearch::ranksByPath() const {
    std::vector<const FileNode*> nodes;
    std::vector<std::size_t> candidates;
    for (const std::size_t file : groupedFiles_)
        for (std::size_t link = 0; link < files_[file].candidateCount; ++link) {
            candidates.push_back(files_[file].firstCandidate + link);
            nodes.push_back(candidates_[candidates.back()].node);
        }
    const std::vector<std::size_t> ofNodes = pathRanks(nodes);
    std::vector<std::size_t> ranks(candidates_.size());
    for (std::size_t index = 0; index < nodes.size(); ++index)
        ranks[candidates[index]] = ofNodes[index];
    return ranks;
}

DuplicateGroup DuplicateSearch::groupOf(std::span<const std::size_t> files,
                                        const std::vector<std::size_t>& ranks) const {
    std::vector<RankedMember> members;
    for (const std::size_t file : files)
        for (std::size_t link = 0; link < files_[file].candidateCount; ++link) {
            const std::size_t candidate = files_[file].firstCandidate + link;
            members.push_back({ranks[candidate], {candidates_[candidate].node, file}});
        }
    std::ranges::sort(members, {}, &RankedMember::rank);
    // Of several trees two may hold one path.
    const auto repeated = std::ranges::unique(members, {}, &RankedMember::rank);
    members.erase(repeated.begin(), repeated.end());

    DuplicateGroup group;
    group.size = sizeOf(files_[files.front()]);
    std::map<std::size_t, std::size_t> numbers; // of the search's files in the group
    std::vector<std::optional<BlockLayout>> layouts;
    std::vector<std::size_t> linkCounts;
    for (const RankedMember& ranked : members) {
        const auto [number, isNew] = numbers.try_emplace(ranked.member.file, group.files.size());
        const Candidate& candidate = candidates_[files_[ranked.member.file].firstCandidate];
        if (isNew) {
            group.files.push_back({.version = candidate.version});
            const auto layout = layouts_.find(ranked.member.file);
            layouts.push_back(layout == layouts_.end() ? std::nullopt : std::optional(layout->second));
            linkCounts.push_back(candidate.linkCount);
        }
        DuplicateFile& file = group.files[number->second];
        file.reclaimableSize = std::max(file.reclaimableSize, ranked.member.node->reclaimableSize);
        if (linkCounts[number->second] > 0)
            --linkCounts[number->second];
        group.members.push_back({ranked.member.node, number->second});
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
    const std::vector<std::size_t> ranks = ranksByPath();
    std::vector<std::pair<std::size_t, DuplicateGroup>> ordered;
    std::size_t first = 0;
    for (const std::size_t size : groupSizes_) {
        requireRunning();
        const auto files = std::span(groupedFiles_).subspan(first, size);
        first += size;
        DuplicateGroup group = groupOf(files, ranks);
        if (group.files.size() < 2) // one path has led to two files, one after the other
            continue;
        addChecked(result.totals.waste, group.waste);
        result.totals.duplicateCount += static_cast<std::int64_t>(group.files.size()) - 1;
        std::size_t least = SIZE_MAX;
        for (const std::size_t file : files)
            for (std::size_t link = 0; link < files_[file].candidateCount; ++link)
                least = std::min(least, ranks[files_[file].firstCandidate + link]);
        ordered.emplace_back(least, std::move(group));
    }
    std::ranges::sort(ordered, {}, [](const auto& entry) {
        return std::tuple(-entry.second.waste, -entry.second.size, entry.first);
    });
    for (auto& [rank, group] : ordered)
        result.groups.push_back(std::move(group));

    std::vector<const FileNode*> nodes;
    std::ranges::transform(dropped_, std::back_inserter(nodes), &DroppedFile::node);
    const std::vector<std::size_t> droppedRanks = pathRanks(nodes);
    std::vector<std::pair<std::size_t, const DroppedFile*>> dropped;
    for (std::size_t index = 0; index < dropped_.size(); ++index)
        dropped.emplace_back(droppedRanks[index], &dropped_[index]);
    std::ranges::stable_sort(dropped, {}, [](const auto& entry) { return entry.first; });
    for (const auto& [rank, file] : dropped)
        result.dropped.push_back(*file);

    result.totals.candidateCount = candidateCount_;
    result.totals.bytesRead = bytesRead_.load();
    result.totals.duration = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    result.roots = std::move(roots_);
    return result;
}

} // namespace tarnwell
