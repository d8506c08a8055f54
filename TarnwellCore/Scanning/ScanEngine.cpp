#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "TarnwellCore/Classification/FileClassifier.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/MountPoints.hpp"
#include "TarnwellCore/Platform/NoFetching.hpp"
#include "TarnwellCore/Platform/SystemFolders.hpp"
#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/FolderPaths.hpp"
#include "TarnwellCore/Scanning/LiveTree.hpp"
#include "TarnwellCore/Scanning/NodeArena.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"
#include "TarnwellCore/Scanning/ScanWorker.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"
#include "TarnwellCore/Scanning/TreeGraft.hpp"

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <iterator>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

/// More threads than this never help, whatever the options say.
constexpr int largestWorkerCount = 1024;

/// Where the number is the engine's own choice, it grows to this while the workers wait for the disk.
constexpr int largestWaitingWorkerCount = 16;

/// Whether what is mapped counts, used or not: a thread's stack and heap are mapped large, and those of many
/// would take what the tree needs.
bool isMappedMemoryLimited() {
    for (const auto resource : {RLIMIT_AS, RLIMIT_DATA}) {
        struct rlimit limit = {};
        if (::getrlimit(resource, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY)
            return true;
    }
    return false;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// A thousand folders take as long to roll up as a thread takes to start.
int rollUpThreads(int workers, std::int64_t folders) {
    constexpr std::int64_t eachThreads = 4096;
    return static_cast<int>(
        std::clamp<std::int64_t>(folders / eachThreads, 1, std::min(workers, activeProcessorCount())));
}

bool isEmpty(const ScanStats& stats) {
    return stats.fileCount == 0 && stats.directoryCount == 0 && stats.inaccessibleEntryCount == 0;
}

} // namespace

ScanEngine::ScanEngine(std::string rootPath, ScanOptions options, bool buildsTree)
    : ScanEngine(std::move(rootPath), std::move(options), buildsTree, DirectoryCalls::live()) {}

ScanEngine::ScanEngine(std::string rootPath, ScanOptions options, bool buildsTree,
                       const DirectoryCalls& calls)
    : rootPath_(std::move(rootPath)),
      options_(std::move(options)),
      buildsTree_(buildsTree),
      calls_(calls),
      startTime_(std::chrono::steady_clock::now()),
      exclusions_(rootPath_, options_.excludedPaths) {
    if (options_.applySystemExclusions) {
        auto paths = ScanOptions::systemExclusions();
        std::erase_if(paths, [](const std::string& path) { return !belongsToSystem(path); });
        exclusions_.add(paths);
    }
}

int ScanEngine::defaultWorkerCount(int processors) {
    return processors < 8 ? 4 : std::min(processors, 17) / 2;
}

FolderRef ScanEngine::openRoot(RawDirectoryEntry& entry) const {
    const auto metadata = PathMetadata::lstat(rootPath_);
    if (!metadata)
        throw ScanError::rootNotFound(rootPath_);
    if (!metadata->isDirectory)
        throw ScanError::rootNotADirectory(rootPath_);
    if (metadata->isDataless)
        return {};
    const int folder = openFolder(rootPath_);
    if (folder < 0)
        throw ScanError::rootNotReadable(rootPath_, errno);
    FolderRef root = FolderRef::root(folder, rootPath_);
    // Another folder may lie there by now: what is open counts.
    struct stat status = {};
    if (::fstat(folder, &status) != 0)
        throw ScanError::rootNotReadable(rootPath_, errno);
    entry = entryFromStatus(status);
    return root;
}

struct ScanEngine::Workers {
    int regular;
    int most;
};

ScanEngine::Workers ScanEngine::workers() const {
    const int limit = std::min(largestWorkerCount, DescriptorBudget::largestWorkerCount());
    const int regular =
        std::clamp(options_.workerCount.value_or(defaultWorkerCount(activeProcessorCount())), 1, limit);
    const bool isFixed = options_.workerCount || isMappedMemoryLimited();
    return {regular, isFixed ? regular : std::clamp(largestWaitingWorkerCount, regular, limit)};
}

/// Until everything is read that the queue holds and leads to.
void ScanEngine::work(const ScanContext& context, const Workers& workers) {
    DescriptorBudget::shared().adoptLimit();
    WorkerThreads threads([&](WorkerThreads::Place place) {
        const NoFetching noFetchingHere;
        const auto worker = std::make_unique<ScanWorker>(context);
        worker->run([&] { threads.addOne(workers.most); }, place == WorkerThreads::Place::extra);
    });
    threads.run(workers.regular);
}

ScanResult ScanEngine::run() {
    if (live_ == nullptr)
        return read();
    try {
        ScanResult result = read();
        live_->finish();
        return result;
    } catch (...) {
        live_->abandon();
        throw;
    }
}

ScanContext ScanEngine::contextFor(TreeArena* arena, std::int32_t rootDeviceID, std::atomic<int>& rootError) {
    return {.options = options_,
            .calls = calls_,
            .arena = arena,
            .cancelFlag = cancelFlag_,
            .descriptors = DescriptorBudget::shared(),
            .hardlinks = hardlinks_,
            .queue = queue_,
            .rootError = rootError,
            .rootDeviceID = rootDeviceID,
            .live = live_.get(),
            .mergingThreads = isMappedMemoryLimited() || !WorkerThreads::mayBeNested()
                                  ? 1
                                  : std::min(workers().regular, activeProcessorCount())};
}

ScanResult ScanEngine::read() {
    const auto start = std::chrono::steady_clock::now();
    const NoFetching noFetching;
    ScanResult result;
    result.startedAt = currentDate();
    result.options = options_;
    WorkItem rootItem;
    RawDirectoryEntry rootEntry; // of a placeholder it says nothing
    rootItem.folder = openRoot(rootEntry);
    rootItem.deviceID = rootEntry.deviceID;

    std::shared_ptr<TreeArena> arena;
    if (buildsTree_) {
        arena = std::make_shared<TreeArena>();
        FileNodeAttributes attributes;
        attributes.modificationSeconds = rootEntry.modificationSeconds;
        if (!rootItem.folder)
            attributes.flags.insert(FileNodeFlags::dataless);
        rootItem.node = arena->borrowRegion()->makeNode(nullptr, rootPath_, true, attributes);
        rootItem.inheritedCategory = FileClassifier::componentCategory(PathUtil::lastComponent(rootPath_));
    }
    FileNode* root = rootItem.node;
    if (live_ != nullptr)
        live_->begin(arena, *root);
    exclusions_.addMountPoints(mountPointsBesideListings());
    rootItem.exclusions = exclusions_.rootLevel();
    if (rootItem.folder)
        queue_.push(std::move(rootItem));

    std::atomic<int> rootError = 0;
    const ScanContext context = contextFor(arena.get(), rootEntry.deviceID, rootError);
    const Workers count = workers();
    work(context, count);

    if (cancelFlag_.isSet())
        throw ScanError::cancelled();
    result.stats = queue_.stats();
    result.folderBytes = queue_.folderBytes();
    addChecked(*result.folderBytes, rootEntry.allocatedSize);
    if (rootError != 0 && isEmpty(result.stats))
        throw ScanError::rootNotReadable(rootPath_, rootError);
    if (root != nullptr) {
        if (live_ != nullptr)
            live_->beginSettling();
        hardlinks_.assignOwners();
        rollUp(*root, rollUpThreads(count.regular, result.stats.directoryCount));
        result.root = arena->shareRoot(root);
    }
    result.inaccessiblePaths = pathsInOrder(queue_.takeInaccessibleFolders());
    result.duration = secondsSince(start);
    return result;
}

std::optional<ScanResult> ScanEngine::rescan(const ScanResult& old, const FileNode& folder) {
    const auto start = std::chrono::steady_clock::now();
    const NoFetching noFetching;
    if (!TreeGraft::isPossible(old, folder))
        return std::nullopt;
    ScanResult result;
    result.startedAt = currentDate();
    result.options = options_;
    RawDirectoryEntry rootEntry;
    WorkItem item;
    item.folder = openRoot(rootEntry);
    if (!item.folder)
        return std::nullopt;
    exclusions_.addMountPoints(mountPointsBesideListings());

    const auto arena = std::make_shared<TreeArena>();
    TreeGraft graft(old, folder, *arena, hardlinks_);
    std::atomic<int> rootError = 0;
    const ScanContext context = contextFor(arena.get(), rootEntry.deviceID, rootError);
    // The way down to the folder that holds the one, as a scan goes it.
    item.inheritedCategory = FileClassifier::componentCategory(PathUtil::lastComponent(rootPath_));
    item.exclusions = exclusions_.rootLevel();
    const std::vector<const FileNode*> way = folder.breadcrumb();
    for (const FileNode* node : std::span(way).subspan(1, way.size() - 2)) {
        if (!item.inheritedCategory)
            item.inheritedCategory = FileClassifier::componentCategory(node->name());
        item.exclusions = item.exclusions == nullptr ? nullptr : item.exclusions->find(node->name());
        item.folder = item.folder.child(node->name());
        ++item.depth;
    }
    item.node = &graft.parent();
    FileNode* found = nullptr;
    if (!std::make_unique<ScanWorker>(context)->readEntry(item, folder.name(), found))
        return std::nullopt;
    const Workers count = workers();
    work(context, count);
    if (cancelFlag_.isSet())
        throw ScanError::cancelled();
    if (!graft.complete(found))
        return std::nullopt;

    FileNode& root = graft.root();
    hardlinks_.assignOwners();
    rollUp(root, rollUpThreads(count.regular, old.stats.directoryCount));
    result.root = arena->shareRoot(&root);
    result.stats = graft.outsideStats();
    addStats(result.stats, queue_.stats());
    result.stats.totalSize = root.size;
    result.stats.totalAllocatedSize = root.allocatedSize;
    result.stats.totalReclaimableSize = root.reclaimableSize;
    result.stats.fileCount = root.fileCount();
    result.stats.directoryCount = root.directoryCount();
    const std::vector<std::string> paths = pathsInOrder(queue_.takeInaccessibleFolders());
    const std::vector<std::string> outside = graft.outsideInaccessiblePaths();
    std::ranges::merge(outside, paths, std::back_inserter(result.inaccessiblePaths));
    std::size_t bytes = 0;
    for (const std::string& path : result.inaccessiblePaths)
        bytes += path.size();
    const PathListLimit limit;
    if (std::ssize(result.inaccessiblePaths) != result.stats.inaccessibleCount ||
        result.inaccessiblePaths.size() > limit.paths || bytes > limit.bytes)
        return std::nullopt; // a whole scan lists the first of them
    result.duration = secondsSince(start);
    return result;
}

ScanProgress ScanEngine::progress() const {
    FolderRef currentFolder;
    const ScanStats stats = queue_.stats(currentFolder);
    ScanProgress progress;
    progress.fileCount = stats.fileCount;
    progress.directoryCount = stats.directoryCount;
    progress.bytesScanned = stats.totalSize;
    progress.allocatedBytesScanned = stats.totalAllocatedSize;
    progress.reclaimableBytesScanned = stats.totalReclaimableSize;
    progress.currentPath = currentFolder ? currentFolder->path() : rootPath_;
    progress.elapsed = secondsSince(startTime_);
    return progress;
}

} // namespace tarnwell
