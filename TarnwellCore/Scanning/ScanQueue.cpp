#include "TarnwellCore/Scanning/ScanQueue.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/SharedFolder.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tarnwell {

namespace {

/// Counts of a node have 32 bits.
void addCount(std::int32_t& count, std::int64_t amount) {
    if (__builtin_add_overflow(count, amount, &count)) [[unlikely]]
        fatalError("a folder holds more items than can be counted");
}

void apply(const CollapseDelta& delta) {
    FileNode& node = *delta.node;
    node.flags.insert(FileNodeFlags::collapsed);
    addChecked(node.size, delta.size);
    addChecked(node.allocatedSize, delta.allocated);
    addChecked(node.reclaimableSize, delta.reclaimable);
    addCount(node.counts().files, delta.files);
    addCount(node.counts().directories, delta.directories);
    node.includesSharedCloneBlocks = node.includesSharedCloneBlocks || delta.sharesClones;
}

} // namespace

void addStats(ScanStats& total, const ScanStats& part) {
    addChecked(total.totalSize, part.totalSize);
    addChecked(total.totalAllocatedSize, part.totalAllocatedSize);
    addChecked(total.totalReclaimableSize, part.totalReclaimableSize);
    total.fileCount += part.fileCount;
    total.directoryCount += part.directoryCount;
    total.symlinkCount += part.symlinkCount;
    total.packageCount += part.packageCount;
    total.hardlinkDuplicateCount += part.hardlinkDuplicateCount;
    addChecked(total.hardlinkSavedBytes, part.hardlinkSavedBytes);
    total.inaccessibleCount += part.inaccessibleCount;
    total.inaccessibleEntryCount += part.inaccessibleEntryCount;
    total.mountPointCount += part.mountPointCount;
    total.maximumDepth = std::max(total.maximumDepth, part.maximumDepth);
}

void CollapseDelta::operator+=(const CollapseDelta& other) {
    addChecked(size, other.size);
    addChecked(allocated, other.allocated);
    addChecked(reclaimable, other.reclaimable);
    files += other.files;
    directories += other.directories;
    sharesClones = sharesClones || other.sharesClones;
}

void ScanTally::clear() {
    stats = {};
    inaccessibleFolders.clear();
    collapseDeltas.clear();
    folderBytes = 0;
}

void ScanQueue::push(WorkItem item) {
    const std::lock_guard guard(mutex_);
    queue_.push_back(std::move(item));
}

bool ScanQueue::take(std::vector<WorkItem>& batch, std::shared_ptr<SharedFolder>& shared) {
    batch.clear();
    std::unique_lock guard(mutex_);
    while (!hasWork() && busyWorkers_ > 0 && !isStopped()) {
        ++waitingWorkers_;
        noteHunger();
        condition_.wait(guard);
        --waitingWorkers_;
    }
    if (!hasWork() || isStopped()) {
        condition_.notify_all();
        return false;
    }
    if (queue_.empty()) {
        shared = offered_.back();
        // The next one that comes helps with another.
        std::ranges::rotate(offered_, offered_.end() - 1);
        shared->join();
        noteHunger();
        ++busyWorkers_;
        currentFolder_ = shared->item.folder;
        return true;
    }
    const std::ptrdiff_t count = std::clamp<std::ptrdiff_t>(std::ssize(queue_) / 2, 1, largestBatch);
    const auto first = queue_.end() - count;
    batch.assign(std::make_move_iterator(first), std::make_move_iterator(queue_.end()));
    queue_.erase(first, queue_.end());
    noteHunger();
    ++busyWorkers_;
    currentFolder_ = batch.back().folder;
    return true;
}

bool ScanQueue::finish(std::vector<WorkItem>& left, ScanTally& tally) {
    const std::lock_guard guard(mutex_);
    --busyWorkers_;
    std::move(left.begin(), left.end(), std::back_inserter(queue_));
    noteHunger();
    add(tally);

    const bool isDone = (queue_.empty() && busyWorkers_ == 0) || isStopped();
    if (isDone || left.size() >= waitingWorkers_)
        condition_.notify_all();
    else
        for (std::size_t count = left.size(); count > 0; --count)
            condition_.notify_one();
    left.clear();
    return !isDone && queue_.size() > waitingWorkers_;
}

void ScanQueue::count(ScanTally& tally) {
    const std::lock_guard guard(mutex_);
    add(tally);
}

void ScanQueue::add(ScanTally& tally) {
    addStats(stats_, tally.stats);
    addChecked(folderBytes_, tally.folderBytes);
    std::move(tally.inaccessibleFolders.begin(), tally.inaccessibleFolders.end(),
              std::back_inserter(inaccessibleFolders_));
    std::for_each(tally.collapseDeltas.begin(), tally.collapseDeltas.end(), apply);
    tally.clear();
}

void ScanQueue::offer(std::shared_ptr<SharedFolder> folder) {
    const std::lock_guard guard(mutex_);
    offered_.push_back(std::move(folder));
    condition_.notify_all();
}

void ScanQueue::withdraw(const SharedFolder& folder) {
    const std::lock_guard guard(mutex_);
    std::erase_if(offered_, [&](const auto& each) { return each.get() == &folder; });
}

void ScanQueue::stop() {
    stopped_.set();
    const std::lock_guard guard(mutex_);
    condition_.notify_all();
}

ScanStats ScanQueue::stats() const {
    const std::lock_guard guard(mutex_);
    return stats_;
}

ScanStats ScanQueue::stats(FolderRef& currentFolder) const {
    const std::lock_guard guard(mutex_);
    currentFolder = currentFolder_;
    return stats_;
}

std::int64_t ScanQueue::folderBytes() const {
    const std::lock_guard guard(mutex_);
    return folderBytes_;
}

std::vector<FolderRef> ScanQueue::takeInaccessibleFolders() {
    const std::lock_guard guard(mutex_);
    return std::exchange(inaccessibleFolders_, {});
}

} // namespace tarnwell
