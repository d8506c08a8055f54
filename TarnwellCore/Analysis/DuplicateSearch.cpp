#include "TarnwellCore/Analysis/DuplicateSearch.hpp"

#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/NoFetching.hpp"
#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <expected>
#include <limits>
#include <ranges>
#include <string>
#include <tuple>

namespace tarnwell {

namespace {

constexpr std::int64_t beginningLength = 65'536;

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

std::string relativePath(const FileNode& folder) {
    std::vector<const FileNode*> way;
    for (const FileNode* node = &folder; node->parent() != nullptr; node = node->parent())
        way.push_back(node);
    std::string path;
    for (const FileNode* node : way | std::views::reverse) {
        if (!path.empty())
            path += '/';
        path += node->name();
    }
    return path;
}

} // namespace

/// What one thread works with: the folder where it is, and what it reads and digests with.
class DuplicateSearch::Worker {
public:
    explicit Worker(const DuplicateSearch& search) : search_(search) {}
    ~Worker() { leaveFolder(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// The open folder of a node, until the next is asked for.
    std::expected<int, FileFault> folderOf(const FileNode& node) {
        if (node.parent() == current_)
            return folder_ >= 0 ? std::expected<int, FileFault>(folder_) : std::unexpected(fault_);
        leaveFolder();
        current_ = node.parent();
        const auto [root, error] = search_.openRoots_.at(&current_->root());
        folder_ = root;
        errno = error;
        if (root >= 0 && current_->parent() != nullptr)
            folder_ = openFolderBelow(root, relativePath(*current_), nullptr);
        isRoot_ = folder_ == root;
        if (folder_ >= 0)
            return folder_;
        fault_ = FileFault::of(errno);
        return std::unexpected(fault_);
    }

    /// Of the first bytes; `note` is told of each piece. `error` is that of the reading.
    SHA256Digest digest(int file, std::int64_t length, const DuplicateFinder& finder,
                        const ContentReader::Taker& note, int& error) {
        if (!reading_)
            reading_ = std::make_unique<Reading>();
        error = finder.read(reading_->reader, file, length, [&](std::span<const std::byte> bytes) {
            reading_->hash.update(bytes);
            return note(bytes);
        });
        return reading_->hash.finish();
    }

private:
    void leaveFolder() {
        if (folder_ >= 0 && !isRoot_)
            ::close(folder_);
        folder_ = -1;
        current_ = nullptr;
    }

    const DuplicateSearch& search_;
    const NoFetching noFetching_;
    const FileNode* current_ = nullptr;
    int folder_ = -1;
    bool isRoot_ = false;
    FileFault fault_{FileFault::Kind::failed};
    struct Reading {
        ContentReader reader;
        SHA256 hash;
    };
    std::unique_ptr<Reading> reading_; // not every worker reads
};

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
    readBeginnings();
    readWholes();
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

void DuplicateSearch::readBeginnings() {
    std::vector<std::size_t> all(files_.size());
    std::ranges::copy(std::views::iota(std::size_t{0}, files_.size()), all.begin());
    readFiles(all, beginningLength, [](std::size_t) {});
}

void DuplicateSearch::readWholes() {
    std::vector<std::size_t> files(files_.size());
    std::ranges::copy(std::views::iota(std::size_t{0}, files_.size()), files.begin());
    std::vector<std::unique_ptr<LikeFiles>> likes;
    std::unordered_map<std::size_t, LikeFiles*> likesOf;
    std::vector<std::size_t> toRead;
    forEachRun(files, [&](std::span<const std::size_t> run) {
        if (sizeOf(files_[run.front()]) <= beginningLength) {
            addGroup(run);
            groupCount_.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        likes.push_back(std::make_unique<LikeFiles>(std::vector(run.begin(), run.end())));
        for (const std::size_t file : run)
            likesOf.emplace(file, likes.back().get());
        toRead.insert(toRead.end(), run.begin(), run.end());
    });
    readFiles(toRead, std::numeric_limits<std::int64_t>::max(), [&](std::size_t file) {
        LikeFiles& its = *likesOf.at(file);
        if (its.unread.fetch_sub(1, std::memory_order_acq_rel) == 1)
            countGroups(its);
    });
    forEachRun(toRead, [&](std::span<const std::size_t> run) { addGroup(run); });
}

void DuplicateSearch::countGroups(const LikeFiles& likes) {
    std::vector<std::size_t> files = likes.files;
    std::int64_t count = 0;
    forEachRun(files, [&](std::span<const std::size_t>) { ++count; });
    groupCount_.fetch_add(count, std::memory_order_relaxed);
}

void DuplicateSearch::addGroup(std::span<const std::size_t> files) {
    groupedFiles_.insert(groupedFiles_.end(), files.begin(), files.end());
    groupSizes_.push_back(files.size());
}

void DuplicateSearch::forEachRun(std::vector<std::size_t>& files,
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

/// Digests up to `most` bytes of each of the files, by device and inode.
void DuplicateSearch::readFiles(const std::vector<std::size_t>& files, std::int64_t most,
                                const std::function<void(std::size_t)>& whenRead) {
    std::vector<std::size_t> order = files;
    std::ranges::sort(order, {}, [&](std::size_t file) {
        const FileVersion& version = candidates_[files_[file].firstCandidate].version;
        return std::tuple(version.device, version.inode);
    });
    std::int64_t bytes = 0;
    for (const std::size_t file : order)
        if (__builtin_add_overflow(bytes, std::min(sizeOf(files_[file]), most), &bytes))
            bytes = std::numeric_limits<std::int64_t>::max(); // sparse files can be of any size
    bytesToRead_.store(bytesRead_.load(std::memory_order_relaxed) + bytes, std::memory_order_relaxed);
    forEach(order.size(), most == beginningLength ? 8 : 1, [&](Worker& worker, std::size_t index) {
        readFile(worker, order[index], most);
        whenRead(order[index]);
    });
}

void DuplicateSearch::readFile(Worker& worker, std::size_t number, std::int64_t most) {
    File& file = files_[number];
    const std::int64_t size = sizeOf(file);
    std::int64_t unread = std::min(size, most);
    const auto opened = openFile(worker, file);
    if (opened) {
        int error = 0;
        const auto note = [&](std::span<const std::byte> bytes) {
            unread -= static_cast<std::int64_t>(bytes.size());
            bytesRead_.fetch_add(static_cast<std::int64_t>(bytes.size()), std::memory_order_relaxed);
            return !isStopped_.isSet();
        };
        file.digest = worker.digest(opened->descriptor, unread, finder_, note, error);
        const auto isSame = requireVersion(opened->descriptor, opened->version);
        if (!isSame)
            drop(file, isSame.error());
        else if (error != 0)
            drop(file, FileFault::of(error));
        else if (size <= most)
            noteLayout(opened->descriptor, number);
        ::close(opened->descriptor);
    }
    bytesToRead_.fetch_sub(unread, std::memory_order_relaxed);
}

/// By the first of its links that still leads to it; those that do not are dropped by themselves.
std::optional<DuplicateSearch::OpenFile> DuplicateSearch::openFile(Worker& worker, File& file) {
    while (file.candidateCount > 0) {
        const Candidate& link = candidates_[file.firstCandidate];
        auto opened = worker.folderOf(*link.node);
        if (opened)
            opened = finder_.open(*opened, std::string(link.node->name()).c_str(), link.version);
        if (opened)
            return OpenFile{*opened, link.version};
        drop(*link.node, opened.error());
        if (--file.candidateCount > 0)
            ++file.firstCandidate;
    }
    return std::nullopt;
}

void DuplicateSearch::noteLayout(int descriptor, std::size_t file) {
    if (const auto layout = finder_.layoutOfSharedBlocks(descriptor)) {
        const std::lock_guard guard(mutex_);
        layouts_.emplace(file, *layout);
    }
}

void DuplicateSearch::drop(const FileNode& node, FileFault fault) {
    droppedCount_.fetch_add(1, std::memory_order_relaxed);
    const std::lock_guard guard(mutex_);
    dropped_.push_back({&node, fault});
}

void DuplicateSearch::drop(File& file, FileFault fault) {
    for (const Candidate& link : std::span(candidates_).subspan(file.firstCandidate, file.candidateCount))
        drop(*link.node, fault);
    file.candidateCount = 0;
}

void DuplicateSearch::forEach(std::size_t count, std::size_t neighbours,
                              const std::function<void(Worker&, std::size_t)>& body) {
    requireRunning();
    const std::size_t pieces = (count + neighbours - 1) / neighbours;
    const int wanted = options_.workerCount > 0 ? options_.workerCount : activeProcessorCount();
    std::atomic<std::size_t> next = 0;
    AtomicFlag isFailing;
    WorkerThreads threads([&](WorkerThreads::Place) {
        try {
            Worker worker(*this);
            for (std::size_t piece = 0; (piece = next.fetch_add(1, std::memory_order_relaxed)) < pieces;)
                for (std::size_t item = piece * neighbours; item < std::min(count, (piece + 1) * neighbours);
                     ++item) {
                    if (isStopped_.isSet() || isFailing.isSet())
                        return;
                    body(worker, item);
                }
        } catch (...) {
            isFailing.set();
            throw;
        }
    });
    threads.run(static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(wanted), pieces)));
    requireRunning();
}

} // namespace tarnwell
