#pragma once

// A folder that several workers read at once, because it holds more than one of them should read alone.
//
// Names come from one descriptor, in sequence; asking about them need not. The worker that opened the folder,
// its owner, offers it in the queue; others join, as helpers, when they find no folder of their own. All of
// them take turns: whoever has dealt with its records takes the next ones under the folder's lock, and asks
// about their entries without it, with a reader, a region of the arena and counts of its own. No record is
// taken twice, and none is copied. When there are no more, each hands in what it made of its records, in runs
// that are in order; the owner waits for the last helper and merges them, on several threads where others
// wait. Then the folder is what one worker would have made of it: sums do not depend on who adds them,
// children are in order, and nothing of the folder is handed on before.
//
// Where the system tells an entry's facts together with its name there is nothing to be shared: its reader
// never asks for records here.

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/LiveBatch.hpp"
#include "TarnwellCore/Scanning/NodeRuns.hpp"
#include "TarnwellCore/Scanning/ScanQueue.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace tarnwell {

/// What one or several workers made of their records.
struct FolderShare {
    NodeRuns files;
    std::vector<FileNode*> folders;
    std::vector<FileNode*> closedFolders; // of those, the ones that are not going to be read
    std::vector<WorkItem> subfolders;     // the others
    std::vector<LiveLink> links;
    FolderSums sums;
    CollapseDelta delta;

    void add(FolderShare&& other);
};

/// Safe from any thread. Held by its owner, the queue and the helpers.
class SharedFolder {
public:
    /// Bytes of the records that are taken in one turn: some seven hundred names. Few folders hold more, and
    /// nobody waits long for the last turn. Where somebody has nothing to do, a folder begins with a short one,
    /// so that one of a thousand files, too, is worth a helper.
    static constexpr std::size_t wholeTurn = 32768;
    static constexpr std::size_t firstTurn = 4096;

    /// `item` and the descriptor are the owner's, and last until `collect` returns; it has taken so many bytes
    /// of records.
    SharedFolder(const WorkItem& owned, int opened, FileNode* target, std::size_t taken)
        : item(owned), descriptor(opened), collapseTarget(target), taken_(taken) {}

    const WorkItem& item;
    const int descriptor;
    FileNode* const collapseTarget;

    // --- Turns ------------------------------------------------------------------------------------------

    /// The next records, as `DirectoryCalls::readPacked` gives them; 0 when there are no more for anyone. Turns
    /// grow with what was taken: whoever has the last one is not waited for much longer than a sixteenth of what
    /// all of them took.
    long read(const DirectoryCalls& calls, std::span<std::byte> buffer);
    /// Nobody gets any more: the folder cannot be read to its end (an errno, the first one counts), or need
    /// not be (0).
    void end(int error);
    /// 0 when nothing failed.
    int error() const;

    // --- Shares -----------------------------------------------------------------------------------------

    /// By the queue, for a helper, which calls `leave` in any case.
    void join();
    void handIn(FolderShare share);
    void leave() noexcept;
    /// For the owner, when the queue offers the folder no more: waits for all helpers and adds what they
    /// handed in.
    void collect(FolderShare& share);
    /// Instead of `collect`, when the scan fails.
    void waitForHelpers() noexcept;

private:
    bool takeShare(FolderShare& share);

    mutable std::mutex turns_;
    bool isAtEnd_ = false; // guarded by turns_, as are error_ and taken_
    std::size_t taken_;
    int error_ = 0;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t helperCount_ = 0; // guarded by mutex_, as is all below
    std::optional<FolderShare> share_;
};

} // namespace tarnwell
