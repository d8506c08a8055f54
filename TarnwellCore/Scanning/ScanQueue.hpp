#pragma once

// How the workers of a scan share its folders.
//
// The queue is a stack: a worker takes some folders from its end, at most half of them. Without a lock it
// reads them and the subfolders it finds, always the last one found, until it has read as many as a batch may
// have or sees that another worker waits for some; then it puts those that are left back, together with what
// it counted. A worker that finds the stack empty waits, because a worker that is still busy may bring more;
// when the last busy worker brings nothing, the scan is done and all are woken to leave. Others may join at
// any time, and leave again between two batches. A worker that finds no folder helps with one of those that
// are offered because they are large (SharedFolder.hpp). Every wait here is on one condition variable, and
// everything shared is guarded by its mutex.
//
//   take    waits for folders, or for one to help with; false: nothing will come any more, or the scan was
//           called off
//   offer   lets others help with the folder at hand, until it is withdrawn
//   finish  hands in what a batch left over and counted; wakes one waiter for each folder, or all
//           of them when there are folders enough or when there is nothing left to wait for
//   stop    calls the scan off: busy workers end after the folder at hand, waiting ones leave

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Scanning/AtomicFlag.hpp"
#include "TarnwellCore/Scanning/ExclusionIndex.hpp"
#include "TarnwellCore/Scanning/FolderHandle.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace tarnwell {

class SharedFolder;

/// A folder that waits to be read.
struct WorkItem {
    FolderRef folder;
    /// Its node; null when it gets none.
    FileNode* node = nullptr;
    /// The folder whose sums take in everything below this one, itself where it has a node but its contents
    /// get none; null where nodes are made.
    FileNode* collapseTarget = nullptr;
    /// What the exclusions say about its entries; null for nothing.
    const ExclusionIndex::Level* exclusions = nullptr;
    std::int64_t depth = 0;
    /// Its device, as far as the listing of its parent tells.
    std::int32_t deviceID = 0;
    /// Whether it is known to lead to another device, and belongs to the scan all the same.
    bool leadsElsewhere = false;
    /// Given to everything below a folder whose name fixes the category.
    std::optional<FileCategory> inheritedCategory;
};

/// What a folder without nodes adds to its collapse target.
struct CollapseDelta {
    FileNode* node = nullptr;
    std::int64_t size = 0;
    std::int64_t allocated = 0;
    std::int64_t reclaimable = 0;
    std::int64_t files = 0;
    std::int64_t directories = 0;
    bool sharesClones = false;

    /// Another one for the same node.
    void operator+=(const CollapseDelta& other);
};

/// What a worker counted in one batch.
struct ScanTally {
    ScanStats stats;
    std::vector<FolderRef> inaccessibleFolders;
    std::vector<CollapseDelta> collapseDeltas;
    /// Allocated bytes of folders themselves.
    std::int64_t folderBytes = 0;

    void clear();
};

/// Adds the counts of another part of the scan.
void addStats(ScanStats& total, const ScanStats& part);

class ScanQueue {
public:
    /// The most folders that a worker takes at once, and the most that it reads before it comes back.
    static constexpr std::int64_t largestBatch = 24;

    void push(WorkItem item);
    /// Takes in what was counted outside of a batch. Empties it.
    void count(ScanTally& tally);

    /// Of `batch` and `shared` one is filled. A shared folder was joined, and is to be left in any case.
    bool take(std::vector<WorkItem>& batch, std::shared_ptr<SharedFolder>& shared);
    /// Empties `left` and `tally`. True when there is more to read than workers wait for.
    bool finish(std::vector<WorkItem>& left, ScanTally& tally);
    /// Whether a worker waits and nothing is there for it, as it was a moment ago; takes no lock.
    bool isHungry() const { return isHungry_.load(std::memory_order_relaxed); }
    void offer(std::shared_ptr<SharedFolder> folder);
    /// Nobody joins it from now on. By anyone who finds it at its end; any number of times.
    void withdraw(const SharedFolder& folder);
    void stop();
    bool isStopped() const { return stopped_.isSet(); }

    /// The totals handed in so far, and a folder that was being read.
    ScanStats stats() const;
    ScanStats stats(FolderRef& currentFolder) const;
    /// Once the workers have left.
    std::int64_t folderBytes() const;
    std::vector<FolderRef> takeInaccessibleFolders();

private:
    void add(ScanTally& tally);
    bool hasWork() const { return !queue_.empty() || !offered_.empty(); }
    void noteHunger() { isHungry_.store(queue_.empty() && waitingWorkers_ > 0, std::memory_order_relaxed); }

    mutable std::mutex mutex_;
    std::condition_variable condition_;
    AtomicFlag stopped_;
    std::vector<WorkItem> queue_; // guarded by mutex_, as is all below
    std::vector<std::shared_ptr<SharedFolder>> offered_;
    std::size_t busyWorkers_ = 0;
    std::size_t waitingWorkers_ = 0;
    std::atomic<bool> isHungry_ = false; // written under the lock
    ScanStats stats_;
    std::int64_t folderBytes_ = 0;
    std::vector<FolderRef> inaccessibleFolders_;
    FolderRef currentFolder_;
};

} // namespace tarnwell
