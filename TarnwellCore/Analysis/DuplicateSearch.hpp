#pragma once

// One search for duplicates, stage by stage: the work behind DuplicateFinder.
//
//     collect    nodes of equal size, from the trees
//     measure    what they are now; links to one inode become one file
//     beginnings SHA-256 of the first bytes; short files are done with that
//     wholes     SHA-256 of longer files whose beginnings are alike
//     assemble   groups
//
// Each stage leaves only files that still have a like. Within a stage, workers share nothing but the number
// of the next item and what is named below; a file is written by the worker that took it.

#include "TarnwellCore/Analysis/DuplicateFinder.hpp"
#include "TarnwellCore/Scanning/AtomicFlag.hpp"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
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
        SHA256Digest digest{};
    };
    struct OpenFile {
        int descriptor;
        FileVersion version;
    };
    /// Files, by their number, whose beginnings are alike, while their wholes are read.
    struct LikeFiles {
        std::vector<std::size_t> files;
        std::atomic<std::size_t> unread;
        explicit LikeFiles(std::vector<std::size_t> numbers)
            : files(std::move(numbers)), unread(files.size()) {}
    };

    void collect();
    void measure();
    void measureCandidate(Worker& worker, Candidate& candidate);
    void joinLinks();
    void readBeginnings();
    void readWholes();
    void readFiles(const std::vector<std::size_t>& files, std::int64_t most,
                   const std::function<void(std::size_t)>& whenRead);
    void readFile(Worker& worker, std::size_t number, std::int64_t most);
    std::optional<OpenFile> openFile(Worker& worker, File& file);
    void noteLayout(int descriptor, std::size_t file);
    void addGroup(std::span<const std::size_t> files);
    void countGroups(const LikeFiles& likes);
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
    std::int64_t sizeOf(const File& file) const { return candidates_[file.firstCandidate].version.size; }
    /// The files in runs of equal size and digest, dropped ones left out; `body` gets runs of two and more.
    void forEachRun(std::vector<std::size_t>& files,
                    const std::function<void(std::span<const std::size_t>)>& body) const;

    const DuplicateFinder& finder_;
    const DuplicateOptions& options_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

    std::vector<std::shared_ptr<const FileNode>> roots_;
    /// The roots of whole trees, open; -1 and an errno for one that could not be opened.
    std::unordered_map<const FileNode*, std::pair<int, int>> openRoots_;
    std::vector<Candidate> candidates_;
    std::vector<File> files_;
    /// Files of one group after the other, with the number of each group's files.
    std::vector<std::size_t> groupedFiles_;
    std::vector<std::size_t> groupSizes_;

    std::mutex mutex_;
    std::vector<DroppedFile> dropped_;                     // guarded by mutex_
    std::unordered_map<std::size_t, BlockLayout> layouts_; // by file; guarded by mutex_

    AtomicFlag isStopped_;
    std::atomic<std::int64_t> bytesRead_ = 0;
    std::atomic<std::int64_t> bytesToRead_ = 0;
    std::atomic<std::int64_t> groupCount_ = 0;
    std::atomic<std::int64_t> droppedCount_ = 0;
    std::int64_t candidateCount_ = 0;
};

} // namespace tarnwell
