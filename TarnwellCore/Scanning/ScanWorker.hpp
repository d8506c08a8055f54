#pragma once

// One thread of a scan: takes folders from the queue, reads them, makes nodes of their entries.

#include "TarnwellCore/Classification/FileCategoryMemo.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Scanning/DirectoryReader.hpp"
#include "TarnwellCore/Scanning/FolderHandle.hpp"
#include "TarnwellCore/Scanning/HardlinkRegistry.hpp"
#include "TarnwellCore/Scanning/LiveBatch.hpp"
#include "TarnwellCore/Scanning/NodeArena.hpp"
#include "TarnwellCore/Scanning/NodeRuns.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"
#include "TarnwellCore/Scanning/ScanQueue.hpp"
#include "TarnwellCore/Scanning/SharedFolder.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace tarnwell {

/// What all workers of a scan share. Outlives them.
struct ScanContext {
    const ScanOptions& options;
    const DirectoryCalls& calls;
    /// Null for a scan that only measures.
    TreeArena* arena;
    const AtomicFlag& cancelFlag;
    DescriptorBudget& descriptors;
    HardlinkRegistry& hardlinks;
    ScanQueue& queue;
    /// Takes the errno with which the root could not be read, or not to its end.
    std::atomic<int>& rootError;
    std::int32_t rootDeviceID = 0;
    /// Null when nobody looks.
    LiveTree* live = nullptr;
    /// On how many threads a worker merges a huge folder's files while others have nothing to do.
    int mergingThreads = 1;

    bool buildsTree() const { return arena != nullptr; }
};

/// Confined to its thread. Some 70 KiB: too much for a small stack.
class ScanWorker {
public:
    /// Borrows the region of the arena that takes its nodes.
    explicit ScanWorker(const ScanContext& context);

    /// Works until the queue has nothing left. Calls `addWorker` when it mostly waited, for a disk as a rule,
    /// while there are folders that nobody reads; one that was added leaves when it hardly waits.
    void run(const std::function<void()>& addWorker, bool isAdded);

    /// Looks for one entry of a folder alone, as the scan of the whole folder would see it. Its node has the
    /// folder's as its parent and is not among its children; what it leads to waits in the queue. False when
    /// the folder cannot be read; `found` is null when the entry is not there. Sets the folder's device, and
    /// its times as they are now.
    bool readEntry(WorkItem& folder, std::string_view name, FileNode*& found);

private:
    /// False when it should leave.
    bool workOnBatch();
    /// How many folders it read.
    std::int64_t processBatch();
    void processFolder(WorkItem& item);
    /// False when the scan was called off.
    bool processEntries(std::span<const RawDirectoryEntry> entries);
    template <class Call>
    bool succeedsPatiently(const Call& call) const;

    // Folders that several workers read (ScanWorkerSharing.cpp):
    void beginTurns();
    long nextRecords(std::span<std::byte> buffer);
    void noteTurn();
    void share();
    bool isLeavingEarly() const;
    bool workOnShared();
    void endShared(bool isRead);
    FolderShare takeShare();
    bool completeShared(bool isRead);

    void noteMountPoint(const WorkItem& item);
    void noteInaccessible(const WorkItem& item, int error);
    void processEntry(const WorkItem& item, const RawDirectoryEntry& entry);
    void processSubfolder(const WorkItem& item, const RawDirectoryEntry& entry, FileNodeFlags flags,
                          const ExclusionIndex::Level* exclusions);
    void addDatalessFolder(const WorkItem& item, const RawDirectoryEntry& entry, FileNodeFlags flags);
    void processFile(const WorkItem& item, const RawDirectoryEntry& entry, FileNodeFlags flags);
    void addLeaf(const WorkItem& item, const RawDirectoryEntry& entry, FileNodeFlags flags);
    FileNode* makeNode(const WorkItem& item, const RawDirectoryEntry& entry, bool isDirectory,
                       FileNodeFlags flags, FileCategory category);
    /// The lower-case extension of a name; lasts until the next call.
    std::string_view extension(std::string_view name) {
        return PathUtil::lowerCaseExtension(name, extensionBuffer_);
    }
    void addFile(FileNode& file) {
        sums_.add(file);
        files_.add(file);
        if (files_.count() == NodeSorter::largestKept) [[unlikely]]
            putFilesAside();
    }
    void putFilesAside();
    void settle(FileNode& folder);
    void noteRead(const WorkItem& item, LiveRecord::Kind kind, std::size_t opened);
    void noteClosed(FileNode* folder);

    const ScanContext& context_;
    const TreeArena::Lease region_; // none for a scan that only measures
    DirectoryReader reader_;
    std::array<char, PathUtil::extensionBufferSize> extensionBuffer_;
    const EntryConsumer consumer_;
    const RecordSource records_;
    const std::function<void()>* addWorker_ = nullptr; // as `run` got it, as is isAdded_
    bool isAdded_ = false;
    FileCategoryMemo fileCategories_;
    std::vector<WorkItem> pending_; // a stack
    ScanTally tally_;
    LiveBatch live_; // empty when nobody looks, as is closedFolders_

    // Of the folder at hand:
    const WorkItem* item_ = nullptr;
    int descriptor_ = -1;
    int turnCount_ = 0;                    // that it took at the folder's records
    std::size_t turnBytes_ = 0;            // in all of them
    bool goesOn_ = false;                  // behind the records of the last one, as it seems
    int judgedTurn_ = 0;                   // up to which it is known whether it waits
    std::size_t judgedBytes_ = 0;          // likewise
    std::int64_t judgedWaits_ = 0;         // of this thread, then
    bool isWaitingKnown_ = false;          // by turns that were long enough to tell
    bool mostlyWaited_ = false;            // for their entries
    std::shared_ptr<SharedFolder> shared_; // null as long as it reads alone
    bool isHelping_ = false;               // with that one, which is not its own
    NodeSorter files_;                     // the nodes of its entries
    NodeRuns fileRuns_;                    // of a huge folder those before, and those of all who read it
    std::vector<FileNode*> folders_;
    std::vector<FileNode*> closedFolders_; // those that are not going to be read
    FolderSums sums_;
    FileNode* collapseTarget_ = nullptr; // takes everything below the folder; null where nodes are made
    CollapseDelta delta_;
};

} // namespace tarnwell
