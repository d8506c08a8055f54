#include "TarnwellCore/Analysis/DuplicateWorker.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <limits>
#include <ranges>
#include <string>
#include <tuple>

namespace tarnwell {

namespace {

/// Sparse files can be of any size.
std::int64_t sumUpToLimit(std::int64_t one, std::int64_t other) {
    std::int64_t sum = 0;
    return __builtin_add_overflow(one, other, &sum) ? std::numeric_limits<std::int64_t>::max() : sum;
}

bool canBeCandidate(const FileNode& node, std::int64_t minimumSize) {
    constexpr FileNodeFlags ruledOut[] = {FileNodeFlags::symlink, FileNodeFlags::special,
                                          FileNodeFlags::inaccessible, FileNodeFlags::excluded,
                                          FileNodeFlags::dataless};
    return !node.isDirectory() && node.size >= minimumSize && node.parent() != nullptr &&
           std::ranges::none_of(ruledOut, [&](FileNodeFlags flag) { return node.flags.contains(flag); });
}

/// Keeps the runs of elements that are equal to their neighbours by `isEqual` and have at least two.
template <class Element, class IsEqual>
void keepRuns(std::vector<Element>& elements, IsEqual isEqual) {
    std::size_t kept = 0;
    for (std::size_t first = 0, end = 0; first < elements.size(); first = end) {
        for (end = first + 1; end < elements.size() && isEqual(elements[first], elements[end]);)
            ++end;
        if (end - first < 2)
            continue;
        std::move(elements.begin() + static_cast<std::ptrdiff_t>(first),
                  elements.begin() + static_cast<std::ptrdiff_t>(end),
                  elements.begin() + static_cast<std::ptrdiff_t>(kept));
        kept += end - first;
    }
    elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(kept), elements.end());
}

} // namespace

DuplicateSearch::~DuplicateSearch() {
    for (const auto& [node, root] : openRoots_)
        if (root.first >= 0)
            ::close(root.first);
}

DuplicateResult DuplicateSearch::run(std::vector<std::shared_ptr<const FileNode>> roots) {
    roots_ = std::move(roots);
    collect();
    measure();
    joinLinks();
    Files all(files_.size());
    std::ranges::copy(std::views::iota(std::size_t{0}, files_.size()), all.begin());
    const std::size_t few = mostFilesInStep();
    std::vector<Files> sets = sieve(std::move(all), pageLength, few);
    Files many;
    std::erase_if(sets, [&](const Files& set) {
        const bool areMany = set.size() > few;
        if (areMany)
            many.insert(many.end(), set.begin(), set.end());
        return areMany;
    });
    for (const Files& set : sets)
        for (const std::size_t file : set)
            laterBytes_ = sumUpToLimit(laterBytes_, sizeOf(files_[file]));
    std::vector<Files> more = sieve(std::move(many), beginningLength, few);
    laterBytes_ = 0;
    std::ranges::move(more, std::back_inserter(sets));
    readWholes(std::move(sets), few);
    return assemble();
}

DuplicateProgress DuplicateSearch::progress() const {
    DuplicateProgress progress;
    progress.bytesRead = bytesRead_.load(std::memory_order_relaxed);
    progress.bytesToRead = std::max(bytesToRead_.load(std::memory_order_relaxed), progress.bytesRead);
    progress.groupCount = groupCount_.load(std::memory_order_relaxed);
    progress.droppedCount = droppedCount_.load(std::memory_order_relaxed);
    progress.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    return progress;
}

void DuplicateSearch::requireRunning() const {
    if (isStopped_.isSet())
        throw ScanError::cancelled();
}

void DuplicateSearch::collect() {
    const std::int64_t minimumSize = std::max<std::int64_t>(options_.minimumSize, 1);
    std::vector<std::pair<std::int64_t, const FileNode*>> found;
    std::size_t visited = 0;
    for (const auto& root : roots_) {
        if (!root)
            continue;
        root->forEachDescendant([&](const FileNode& node) {
            if (++visited % 4096 == 0)
                requireRunning();
            if (canBeCandidate(node, minimumSize))
                found.emplace_back(node.size, &node);
            return true;
        });
    }
    std::ranges::sort(found);
    found.erase(std::unique(found.begin(), found.end()), found.end()); // roots may lie in one another
    keepRuns(found, [](const auto& one, const auto& other) { return one.first == other.first; });
    candidates_.reserve(found.size());
    for (const auto& [size, node] : found)
        candidates_.push_back({node, {}, 0});
}

void DuplicateSearch::measure() {
    for (const auto& root : roots_) {
        if (!root)
            continue;
        const FileNode& whole = root->root();
        if (openRoots_.contains(&whole))
            continue;
        auto& [folder, error] = openRoots_[&whole];
        folder = openFolder(std::string(whole.name()));
        error = folder < 0 ? errno : 0;
    }
    std::ranges::sort(candidates_, {}, [](const Candidate& candidate) { return candidate.node->parent(); });
    forEach(candidates_.size(), 256,
            [&](Worker& worker, std::size_t index) { measureCandidate(worker, candidates_[index]); });
}

void DuplicateSearch::measureCandidate(Worker& worker, Candidate& candidate) {
    const FileNode& node = *candidate.node;
    const auto folder = worker.folderOf(node);
    if (!folder)
        return drop(node, folder.error());
    const auto found = finder_.measure(*folder, std::string(node.name()).c_str());
    if (!found)
        return drop(node, found.error());
    if (found->kind != VnodeType::regular)
        return drop(node, {FileFault::Kind::replaced});
    if (found->version.size != node.size || found->isDataless)
        return drop(node, {FileFault::Kind::changed});
    candidate.version = found->version;
    candidate.linkCount = std::max<std::uint32_t>(found->linkCount, 1);
}

void DuplicateSearch::joinLinks() {
    std::erase_if(candidates_, [](const Candidate& candidate) { return candidate.linkCount == 0; });
    std::ranges::sort(candidates_, {}, [](const Candidate& candidate) {
        const FileVersion& version = candidate.version;
        return std::tuple(version.size, version.device, version.inode);
    });
    for (std::size_t first = 0, end = 0; first < candidates_.size(); first = end) {
        for (end = first + 1;
             end < candidates_.size() && candidates_[end].version.isSameFile(candidates_[first].version);)
            ++end;
        files_.push_back({first, end - first});
    }
    keepRuns(files_, [&](const File& one, const File& other) { return sizeOf(one) == sizeOf(other); });
    candidateCount_ = static_cast<std::int64_t>(files_.size());
}

std::vector<DuplicateSearch::Files> DuplicateSearch::sieve(Files files, std::int64_t most, std::size_t few) {
    std::ranges::sort(files, {}, [&](std::size_t file) { return placeOf(file); });
    expectBytes(files, most);
    const std::size_t together = std::clamp<std::size_t>(few, 1, 8);
    forEach((files.size() + together - 1) / together, 1, [&](Worker& worker, std::size_t index) {
        auto some = std::span(files).subspan(index * together);
        some = some.first(std::min(some.size(), together));
        while (!some.empty())
            some = some.subspan(readSome(worker, some, most));
    });
    std::vector<Files> sets;
    forEachRun(files, [&](std::span<const std::size_t> run) {
        const std::int64_t size = sizeOf(files_[run.front()]);
        if (lengthToRead(size, most) == size)
            addGroup(run);
        else
            sets.emplace_back(run.begin(), run.end());
    });
    return sets;
}

void DuplicateSearch::readWholes(std::vector<Files> sets, std::size_t few) {
    struct Item {
        LikeFiles* likes;
        std::size_t file; // all of them, from this on, when they are few
    };
    std::vector<std::unique_ptr<LikeFiles>> likes;
    std::vector<Item> items;
    Files all;
    for (Files& set : sets) {
        std::ranges::sort(set, {}, [&](std::size_t file) { return placeOf(file); });
        all.insert(all.end(), set.begin(), set.end());
        likes.push_back(std::make_unique<LikeFiles>(std::move(set)));
        const Files& files = likes.back()->files;
        const std::size_t count = files.size() <= few ? 1 : files.size();
        for (const std::size_t file : std::span(files).first(count))
            items.push_back({likes.back().get(), file});
    }
    std::ranges::sort(items, {}, [&](const Item& item) { return placeOf(item.file); });
    expectBytes(all, wholeLength);
    forEach(items.size(), 1, [&](Worker& worker, std::size_t index) {
        const auto& [its, file] = items[index];
        if (its->files.size() <= few)
            return compare(worker, its->files);
        readFile(worker, file, wholeLength);
        if (its->unread.fetch_sub(1, std::memory_order_acq_rel) == 1)
            addEqual(its->files);
    });
}

void DuplicateSearch::expectBytes(const Files& files, std::int64_t most) {
    std::int64_t bytes = sumUpToLimit(bytesRead_.load(std::memory_order_relaxed), laterBytes_);
    for (const std::size_t file : files)
        bytes = sumUpToLimit(bytes, lengthToRead(sizeOf(files_[file]), most));
    bytesToRead_.store(bytes, std::memory_order_relaxed);
}

void DuplicateSearch::addEqual(Files files) {
    forEachRun(files, [&](std::span<const std::size_t> run) { addGroup(run); });
}

void DuplicateSearch::addGroup(std::span<const std::size_t> files) {
    groupCount_.fetch_add(1, std::memory_order_relaxed);
    const std::lock_guard guard(mutex_);
    groupedFiles_.insert(groupedFiles_.end(), files.begin(), files.end());
    groupSizes_.push_back(files.size());
}

void DuplicateSearch::forEachRun(Files& files,
                                 const std::function<void(std::span<const std::size_t>)>& body) const {
    std::erase_if(files, [&](std::size_t file) { return files_[file].candidateCount == 0; });
    const auto key = [&](std::size_t file) {
        return std::tuple<std::int64_t, const SHA256Digest&>(sizeOf(files_[file]), files_[file].digest);
    };
    std::ranges::sort(files, [&](std::size_t one, std::size_t other) { return key(one) < key(other); });
    for (std::size_t first = 0, end = 0; first < files.size(); first = end) {
        for (end = first + 1; end < files.size() && key(files[first]) == key(files[end]);)
            ++end;
        if (end - first > 1)
            body(std::span(files).subspan(first, end - first));
    }
}

int DuplicateSearch::workerCount() const {
    return options_.workerCount > 0 ? options_.workerCount : activeProcessorCount();
}

void DuplicateSearch::forEach(std::size_t count, std::size_t neighbours,
                              const std::function<void(Worker&, std::size_t)>& body) {
    requireRunning();
    const std::size_t pieces = (count + neighbours - 1) / neighbours;
    std::atomic<std::size_t> next = 0;
    WorkerThreads threads([&](WorkerThreads::Place) {
        try {
            Worker worker(*this);
            for (std::size_t piece = 0; (piece = next.fetch_add(1, std::memory_order_relaxed)) < pieces;)
                for (std::size_t item = piece * neighbours; item < std::min(count, (piece + 1) * neighbours);
                     ++item) {
                    if (isStopped_.isSet())
                        return;
                    body(worker, item);
                }
        } catch (...) {
            isStopped_.set(); // the others need not read on for hours
            throw;
        }
    });
    threads.run(static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(workerCount()), pieces)));
    requireRunning();
}

} // namespace tarnwell
