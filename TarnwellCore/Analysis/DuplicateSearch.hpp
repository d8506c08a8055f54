#pragma once

// One search for duplicates, stage by stage: the work behind DuplicateFinder.
//
//     collect    nodes of equal size, from the trees
//     measure    what they are now; links to one inode become one file
//     sieve      files whose first page has no like drop out; short files are done with that
//     sieve      the same with more of the beginning, where there are many likes
//     wholes     few likes are compared byte by byte in step, many by SHA-256
//     assemble   groups
//
// Each stage leaves only files that still have a like. Within a stage, workers share nothing but the number
// of the next item and what is named below; a file is written by the worker that took it.

#include "TarnwellCore/Analysis/DuplicateFinder.hpp"
#include "TarnwellCore/Platform/SHA256.hpp"
#include "TarnwellCore/Scanning/AtomicFlag.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnwell {

class DuplicateSearch {
public:
    /// Both must outlive the search.
    DuplicateSearch(const DuplicateFinder& finder, const DuplicateOptions& options)
        : finder_(finder), options_(options) {}
    ~DuplicateSearch();
    DuplicateSearch(const DuplicateSearch&) = delete;
    DuplicateSearch& operator=(const DuplicateSearch&) = delete;

    /// Once. Throws ScanError when cancelled.
    DuplicateResult run(std::vector<std::shared_ptr<const FileNode>> roots);

    /// From any thread, at any time.
    void cancel() { isStopped_.set(); }
    DuplicateProgress progress() const;

private:
    class Worker;

    /// Bytes of a file that the stages read.
    static constexpr std::int64_t pageLength = 4'096;
    static constexpr std::int64_t beginningLength = 65'536;
    static constexpr std::int64_t wholeLength = std::numeric_limits<std::int64_t>::max();
    /// Up to this a file is read once, to the end.
    static constexpr std::int64_t shortLength = beginningLength;
    static std::int64_t lengthToRead(std::int64_t size, std::int64_t most) {
        return size <= shortLength ? size : std::min(size, most);
    }

    /// One path. Of a file that is left, its candidates lie side by side.
    struct Candidate {
        const FileNode* node;
        FileVersion version;
        std::uint32_t linkCount; // 0: dropped
    };
    /// One inode.
    struct File {
        std::size_t firstCandidate;
        std::size_t candidateCount; // 0: dropped
        /// Of what was read last: SHA-256, or a mere hash of the first page of a longer file.
        SHA256Digest digest{};
    };
    class OpenFile;
    enum class NotOpened : std::uint8_t { dropped, noDescriptor };
    /// Some files, by their numbers.
    using Files = std::vector<std::size_t>;
    /// Files whose beginnings are alike, while their wholes are read.
    struct LikeFiles {
        Files files;
        std::atomic<std::size_t> unread;
        explicit LikeFiles(Files numbers) : files(std::move(numbers)), unread(files.size()) {}
    };

    void collect();
    void measure();
    void measureCandidate(Worker& worker, Candidate& candidate);
    void joinLinks();
    /// Digests up to `most` bytes of each, by device and inode. What is read to the end by that becomes
    /// groups; of the rest, sets of like files. A worker keeps up to `few` files open.
    std::vector<Files> sieve(Files files, std::int64_t most, std::size_t few);
    /// The beginnings of neighbours, for all of which the disk is asked before the first is waited for.
    /// Returns how many it has read, at least one.
    std::size_t readSome(Worker& worker, std::span<const std::size_t> files, std::int64_t most);
    /// Sets of up to `few` files in step.
    void readWholes(std::vector<Files> sets, std::size_t few);
    void expectBytes(const Files& files, std::int64_t most);
    void readFile(Worker& worker, std::size_t number, std::int64_t most);
    void digest(Worker& worker, const OpenFile& opened, std::size_t number, std::int64_t most,
                const std::function<int(const ContentReader::Taker&)>& read);
    /// Groups of the files that are equal by their digests.
    void addEqual(Files files);
    void addGroup(std::span<const std::size_t> files);

    void compare(Worker& worker, const Files& files);
    /// False when that takes more descriptors than there are: then nothing is known.
    bool compareInStep(Worker& worker, const Files& files);
    void endSteps();
    std::size_t mostFilesInStep() const;

    std::expected<OpenFile, NotOpened> openFile(Worker& worker, File& file, bool isInStep);
    std::expected<int, FileFault> openLink(Worker& worker, const Candidate& link);
    /// Whether a file that was read, with that errno, is the same still; drops it if not.
    bool isSound(const OpenFile& opened, std::size_t file, int error);
    void noteLayout(const OpenFile& opened, std::size_t file);
    DuplicateResult assemble();
    DuplicateGroup groupOf(std::span<const std::size_t> files, const std::vector<std::size_t>& ranks) const;
    /// Of the grouped files' candidates, by candidate.
    std::vector<std::size_t> ranksByPath() const;

    /// Calls `body(worker, item)` for the items 0 to `count` - 1, several at once, each worker taking so many
    /// neighbours at a time.
    void forEach(std::size_t count, std::size_t neighbours,
                 const std::function<void(Worker&, std::size_t)>& body);
    void drop(const FileNode& node, FileFault fault);
    void drop(File& file, FileFault fault);
    void requireRunning() const;
    int workerCount() const;
    auto placeOf(std::size_t file) const {
        const FileVersion& version = candidates_[files_[file].firstCandidate].version;
        return std::pair(version.device, version.inode);
    }
    std::int64_t sizeOf(const File& file) const { return candidates_[file.firstCandidate].version.size; }
    /// The files in runs of equal size and digest, dropped ones left out; `body` gets runs of two and more.
    void forEachRun(Files& files, const std::function<void(std::span<const std::size_t>)>& body) const;

    const DuplicateFinder& finder_;
    const DuplicateOptions& options_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

    std::vector<std::shared_ptr<const FileNode>> roots_;
    /// The roots of whole trees, open; -1 and an errno for one that could not be opened.
    std::unordered_map<const FileNode*, std::pair<int, int>> openRoots_;
    std::vector<Candidate> candidates_;
    std::vector<File> files_;

    std::mutex mutex_;
    /// Files of one group after the other, with the number of each group's files. Guarded by mutex_.
    Files groupedFiles_;
    std::vector<std::size_t> groupSizes_;
    std::vector<DroppedFile> dropped_;                     // guarded by mutex_
    std::unordered_map<std::size_t, BlockLayout> layouts_; // by file; guarded by mutex_

    /// Held, by those who read in step, for as long as they keep several files open.
    std::shared_mutex steps_;
    AtomicFlag areStepsOver_;

    AtomicFlag isStopped_;
    std::atomic<std::int64_t> bytesRead_ = 0;
    std::atomic<std::int64_t> bytesToRead_ = 0;
    std::int64_t laterBytes_ = 0; // of stages behind the one that is expected; between stages only
    std::atomic<std::int64_t> groupCount_ = 0;
    std::atomic<std::int64_t> droppedCount_ = 0;
    std::int64_t candidateCount_ = 0;
};

} // namespace tarnwell
