#pragma once

// A scan that is looked at while it runs: the children of any folder that it has read, with what is known of
// them so far.
//
//     auto live = std::make_shared<LiveTree>();
//     ScanSession session(path, options, live);
//     ...                                          // as often as one likes, on any thread
//     if (const auto page = live->look())          // or look(*page->folders[3].node)
//         show(*page);
//
// What is promised of the pages of one folder, in the order in which they were asked for:
//   - no figure but `linked` becomes smaller, and nothing that was listed goes, up to and including the
//     finished tree;
//   - the nodes are those of the result, and live as long as the page, the LiveTree or the result does;
//   - once `state` is `finished`, figures, marks and order are those of the result.
// Bytes of files with several links are in `linked` until the end: which link carries them is only known when
// all are found. They may turn out to belong to another folder then.
//
// A scan without a LiveTree does nothing for it. With one, a worker notes some 16 bytes a folder; all that is
// added up, and some 200 bytes a folder that it takes until the scan ends, is the viewers' affair.

#include "TarnwellCore/Scanning/FileNode.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tarnwell {

class TreeArena;
struct LiveBatch;

/// Bytes of one folder or file, as a node has them.
struct LiveBytes {
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;

    bool operator==(const LiveBytes&) const = default;
};

/// A folder so far.
struct LiveFolder {
    /// Until the scan is finished, only what never changes may be asked of it: `name`, `displayName`, `path`
    /// and the like, `parent`, `category`, the dates. Everything else is written meanwhile, or is not known
    /// yet, and stands here.
    const FileNode* node = nullptr;
    /// What is certain of everything below it that was read so far.
    LiveBytes bytes = {};
    /// Of files with several links that were met here first, beside `bytes`: here or elsewhere in the end.
    /// Nothing once the scan is finished, or where links are not told from one another.
    LiveBytes linked = {};
    /// Files and folders below it, as `FileNode` counts them.
    std::int32_t fileCount = 0;
    std::int32_t directoryCount = 0;
    /// Empty until it was read or is known not to be.
    FileNodeFlags flags = {};
    /// Its own entries were read, as far as they can be; or it is not descended into.
    bool isRead = false;
    /// So was everything below it.
    bool isComplete = false;

    /// What to show until the end: with what may still go elsewhere, so that it may become smaller then.
    std::int64_t sizeFor(SizeMode mode) const;
};

/// A file, whose sizes are those of its node from the start: everything may be asked of the node but `flags`,
/// of which the mark of a further link may change at the end.
struct LiveFile {
    const FileNode* node = nullptr;
    /// As they were when the list was made; true in the end, once the scan is finished.
    FileNodeFlags flags = {};
};

enum class LiveState : std::uint8_t {
    /// The root is not open yet: there is nothing to look at.
    waiting,
    reading,
    /// All is read; sums and order are being settled, for moments.
    settling,
    finished,
    /// The scan was cancelled or failed: this is how far it came. Stays.
    abandoned,
};

/// The children of one folder at one moment. Belongs to whom it was given.
struct LivePage {
    LiveState state = LiveState::waiting;
    /// The folder itself, with its own files.
    LiveFolder folder = {};
    /// Those directly in it: larger `bytes.size` with `linked.size` first, equal ones by name.
    std::vector<LiveFolder> folders = {};
    /// The files directly in it, larger `size` first, equal ones by name. Never null; empty until the folder
    /// was read. The same list, not one that is equal, at every look from then on until the scan ends.
    std::shared_ptr<const std::vector<LiveFile>> files = {};
    /// Of the whole scan, the folders that could not be read so far. Nothing once it is finished: its result
    /// tells then.
    std::int64_t unreadableCount = 0;
    /// Keeps the nodes alive.
    std::shared_ptr<const void> tree = {};
};

/// Of one scan. Every function for viewers may be called at any time from any thread, by any number of
/// viewers at once; each chooses anew at every call what it looks at.
class LiveTree {
public:
    LiveTree();
    ~LiveTree();
    LiveTree(const LiveTree&) = delete;
    LiveTree& operator=(const LiveTree&) = delete;

    // --- For viewers ----------------------------------------------------------------------------------

    LiveState state() const;

    /// The root's children. Nothing before it is open. Takes the time of what has been read since anyone
    /// looked last, and of the folders on the page. While the tree is `settling`, a folder whose files nobody
    /// has looked at yet is waited for: some milliseconds for each million nodes. Throws std::bad_alloc.
    std::optional<LivePage> look() const;

    /// The children of any folder that a page has listed. Nothing for a file, and for a folder inside a
    /// package or below the depth that gets nodes; nothing, too, in the one case that a scan failed for want
    /// of memory while it was `settling` and nobody had looked at this folder before.
    std::optional<LivePage> look(const FileNode& folder) const;

    // --- For the scan, by which it is called in this order --------------------------------------------

    /// `arena` holds the root.
    void begin(std::shared_ptr<TreeArena> arena, FileNode& root);
    /// What a worker read, before the folders that it found are given to others. Empties it. From any worker.
    void handIn(LiveBatch& batch);
    /// The workers have left and nobody but the caller touches the tree from here on.
    void beginSettling();
    /// The tree is final.
    void finish();
    /// Instead of all that is left to call.
    void abandon() noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace tarnwell
