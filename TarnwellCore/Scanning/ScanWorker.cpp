#include "TarnwellCore/Scanning/ScanWorker.hpp"

#include "TarnwellCore/Classification/FileClassifier.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/NameForms.hpp"
#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

namespace tarnwell {

namespace {

FileCategory categoryOfFolder(std::string_view name, std::string_view extension) {
    return FileClassifier::classifyDirectoryByNameOrExtension(name, extension).value_or(FileCategory::folder);
}

bool contains(const std::set<std::string, std::less<>>& names, std::string_view name) {
    return names.contains(name) ||
           (mayHaveOtherForms(name) &&
            std::ranges::any_of(names, [&](const std::string& each) { return isSameName(each, name); }));
}

/// Closes its descriptor, also when memory runs out while the folder is worked on.
struct OpenFolder {
    int descriptor;

    ~OpenFolder() {
        if (descriptor >= 0)
            ::close(descriptor);
    }
};

/// Others read from the folder's descriptor, and look at its item: neither may go before they are done, also
/// when memory runs out.
struct HelpersAwaited {
    std::shared_ptr<SharedFolder>& folder;
    ScanQueue& queue;

    ~HelpersAwaited() {
        if (folder != nullptr) {
            queue.withdraw(*folder);
            folder->waitForHelpers();
        }
    }
};

} // namespace

ScanWorker::ScanWorker(const ScanContext& context)
    : context_(context),
      region_(context.buildsTree() ? context.arena->borrowRegion() : TreeArena::Lease()),
      reader_(context.calls, context.buildsTree() && context.options.keepsSharing),
      consumer_([this](std::span<const RawDirectoryEntry> entries) { return processEntries(entries); }),
      records_([this](std::span<std::byte> buffer) { return nextRecords(buffer); }) {}

void ScanWorker::run(const std::function<void()>& addWorker, bool isAdded) {
    addWorker_ = &addWorker;
    isAdded_ = isAdded;
    try {
        while (context_.queue.take(pending_, shared_))
            if (!(shared_ != nullptr ? workOnShared() : workOnBatch()))
                return;
    } catch (...) {
        // The others would wait for this worker's folders for ever.
        context_.queue.stop();
        throw;
    }
}

bool ScanWorker::workOnBatch() {
    const std::int64_t waitsBefore = waitsOfThisThread();
    const std::int64_t folders = processBatch();
    // A folder takes a wait or two that is not in the kernel's caches, and none that is.
    const bool mostlyWaited = (waitsOfThisThread() - waitsBefore) * 2 > folders;
    if (context_.live != nullptr) {
        live_.collapsed = tally_.collapseDeltas;
        context_.live->handIn(live_);
    }
    const bool isMoreToRead = context_.queue.finish(pending_, tally_);
    if (mostlyWaited && isMoreToRead)
        (*addWorker_)();
    else if (isAdded_ && !mostlyWaited)
        return false;
    return true;
}

bool ScanWorker::readEntry(WorkItem& item, std::string_view name, FileNode*& found) {
    found = nullptr;
    OpenFolder folder{item.folder->open(context_.calls, nullptr)};
    struct stat status = {};
    if (folder.descriptor < 0 || ::fstat(folder.descriptor, &status) != 0)
        return false;
    const RawDirectoryEntry own = entryFromStatus(status);
    item.deviceID = own.deviceID;
    item.node->modificationSeconds = own.modificationSeconds;
    if (item.depth > 0)
        item.node->accessSeconds = own.accessSeconds;
    item_ = &item;
    collapseTarget_ = nullptr;
    const EntryConsumer pick = [&](std::span<const RawDirectoryEntry> entries) {
        for (const RawDirectoryEntry& entry : entries)
            if (entry.name == name)
                processEntry(item, entry);
        return true;
    };
    if (!reader_.readEntries(folder.descriptor, item.deviceID, pick))
        return false;
    if (files_.count() > 0)
        found = files_.sorted().front().node;
    else if (!folders_.empty())
        found = folders_.front();
    files_.clear();
    folders_.clear();
    sums_ = {};
    for (WorkItem& next : pending_)
        context_.queue.push(std::move(next));
    pending_.clear();
    context_.queue.count(tally_);
    return true;
}

/// Depth first: a subfolder is opened while the processor's caches still hold what the kernel knows of it.
std::int64_t ScanWorker::processBatch() {
    std::int64_t count = 0;
    while (!pending_.empty() && count < ScanQueue::largestBatch) {
        if (context_.cancelFlag.isSet() || context_.queue.isStopped()) {
            pending_.clear();
            break;
        }
        WorkItem item = std::move(pending_.back());
        pending_.pop_back();
        processFolder(item);
        ++count;
        if (pending_.size() > 1 && context_.queue.isHungry())
            break;
    }
    return count;
}

/// Repeats a call that was interrupted, or found no descriptor: other workers and other threads close theirs
/// within moments.
template <class Call>
bool ScanWorker::succeedsPatiently(const Call& call) const {
    constexpr int attempts = 200;
    for (int attempt = 1;; ++attempt) {
        if (call())
            return true;
        const int error = errno;
        if (error == EINTR)
            continue;
        if ((error != EMFILE && error != ENFILE) || attempt == attempts || context_.cancelFlag.isSet())
            return false;
        context_.descriptors.releaseAll();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        errno = error;
    }
}

void ScanWorker::processFolder(WorkItem& item) {
    tally_.stats.maximumDepth = std::max(tally_.stats.maximumDepth, item.depth);
    OpenFolder folder{-1};
    const bool takesAnyDevice = context_.options.crossFilesystemBoundaries || item.leadsElsewhere;
    const std::int32_t* device = takesAnyDevice ? nullptr : &item.deviceID;
    const bool isOpen = succeedsPatiently([&] {
        folder.descriptor = item.folder->open(context_.calls, device);
        return folder.descriptor >= 0;
    });
    const int error = errno;
    item.folder->endOpening();
    if (!isOpen) {
        if (error == EXDEV)
            noteMountPoint(item);
        else
            noteInaccessible(item, error);
        noteRead(item, LiveRecord::Kind::bare, 0);
        return;
    }

    if (takesAnyDevice) {
        const std::int32_t opened = deviceOfOpened(folder.descriptor, item.deviceID);
        if (opened != item.deviceID && !item.leadsElsewhere)
            noteMountPoint(item);
        item.deviceID = opened;
    }

    item_ = &item;
    const bool isDeepest = item.node != nullptr && item.depth >= context_.options.maximumDepth;
    collapseTarget_ = item.collapseTarget == nullptr && isDeepest ? item.node : item.collapseTarget;
    delta_ = {.node = collapseTarget_};
    const std::size_t pendingBefore = pending_.size();
    // What was read of a folder before its reading failed still counts.
    bool isRead = false;
    const HelpersAwaited helpers{shared_, context_.queue};
    descriptor_ = folder.descriptor;
    succeedsPatiently([&] {
        beginTurns();
        isRead = reader_.readEntries(folder.descriptor, item.deviceID, consumer_,
                                     DirectoryReader::Descriptor::fresh, &records_);
        return isRead || reader_.hasHandedOn(); // nothing may come twice
    });
    if (shared_ != nullptr)
        isRead = completeShared(isRead);
    if (!isRead)
        noteInaccessible(item, errno);
    const bool isSettled = item.node != nullptr && collapseTarget_ == nullptr;
    if (isSettled)
        settle(*item.node);
    if (collapseTarget_ != nullptr && (delta_.files > 0 || delta_.directories > 0))
        tally_.collapseDeltas.push_back(delta_);
    const std::size_t subfolders = pending_.size() - pendingBefore;
    noteRead(item, isSettled ? LiveRecord::Kind::settled : LiveRecord::Kind::bare, subfolders);
    if (subfolders > 0 && item.folder->keepOpen(folder.descriptor, subfolders, context_.descriptors))
        folder.descriptor = -1;
}

bool ScanWorker::processEntries(std::span<const RawDirectoryEntry> entries) {
    // Before they are dealt with: whoever has nothing to do takes the next ones meanwhile.
    if (goesOn_ && shared_ == nullptr && context_.queue.isHungry() && !reader_.isOneByOne())
        share();
    for (const RawDirectoryEntry& entry : entries) {
        if (context_.cancelFlag.isSet())
            return false;
        processEntry(*item_, entry);
    }
    return true;
}

/// The folder turned out to be on another device than its parent when it was opened.
void ScanWorker::noteMountPoint(const WorkItem& item) {
    ++tally_.stats.mountPointCount;
    if (item.node != nullptr)
        item.node->flags.insert(FileNodeFlags::mountPoint);
}

void ScanWorker::noteInaccessible(const WorkItem& item, int error) {
    if (item.depth == 0)
        context_.rootError = error;
    ++tally_.stats.inaccessibleCount;
    tally_.inaccessibleFolders.push_back(item.folder);
    if (item.node != nullptr)
        item.node->flags.insert(FileNodeFlags::inaccessible);
}

void ScanWorker::processEntry(const WorkItem& item, const RawDirectoryEntry& entry) {
    FileNodeFlags flags;
    if (entry.name.starts_with('.') || (entry.finderFlags & hiddenFileFlag) != 0) {
        if (context_.options.excludeHidden)
            return;
        flags.insert(FileNodeFlags::hidden);
    }
    if (entry.errorCode != 0) {
        ++tally_.stats.inaccessibleEntryCount;
        addLeaf(item, entry, flags | FileNodeFlags::inaccessible);
        return;
    }
    const ExclusionIndex::Level* exclusions =
        item.exclusions == nullptr ? nullptr : item.exclusions->find(entry.name);
    if ((exclusions != nullptr && exclusions->isExcluded) ||
        (!context_.options.excludedNames.empty() && contains(context_.options.excludedNames, entry.name))) {
        addLeaf(item, entry, flags | FileNodeFlags::excluded);
        return;
    }
    if ((entry.finderFlags & datalessFileFlag) != 0)
        flags.insert(FileNodeFlags::dataless);
    if (entry.objectType == VnodeType::directory && flags.contains(FileNodeFlags::dataless))
        addDatalessFolder(item, entry, flags);
    else if (entry.objectType == VnodeType::directory)
        processSubfolder(item, entry, flags, exclusions);
    else
        processFile(item, entry, flags);
}

/// An entry that is neither measured nor descended.
void ScanWorker::addLeaf(const WorkItem& item, const RawDirectoryEntry& entry, FileNodeFlags flags) {
    const bool isDirectory = entry.objectType == VnodeType::directory;
    if (isDirectory) {
        ++tally_.stats.directoryCount;
        ++delta_.directories;
    } else if (!flags.contains(FileNodeFlags::inaccessible)) {
        ++tally_.stats.fileCount;
        ++delta_.files;
    }
    if (!context_.buildsTree() || collapseTarget_ != nullptr)
        return;
    FileNodeAttributes attributes;
    attributes.flags = flags;
    attributes.category = item.inheritedCategory ? *item.inheritedCategory
                          : isDirectory          ? categoryOfFolder(entry.name, extension(entry.name))
                                                 : fileCategories_.category(entry.name);
    FileNode* node = region_->makeNode(item.node, entry.name, isDirectory, attributes);
    if (isDirectory) {
        folders_.push_back(node);
        noteClosed(node);
    } else {
        addFile(*node);
    }
}

void ScanWorker::processSubfolder(const WorkItem& item, const RawDirectoryEntry& entry, FileNodeFlags flags,
                                  const ExclusionIndex::Level* exclusions) {
    const ScanOptions& options = context_.options;
    ++tally_.stats.directoryCount;
    ++delta_.directories;
    delta_.sharesClones = delta_.sharesClones || FileNode::sharesCloneBlocks(entry.extFlags);
    const std::string_view folderExtension = extension(entry.name);
    const bool isPackage = !folderExtension.empty() && FileClassifier::isPackageExtension(folderExtension);
    if (isPackage) {
        flags.insert(FileNodeFlags::package);
        ++tally_.stats.packageCount;
    }
    const bool mountsOnDemand = (entry.finderFlags & automountFileFlag) != 0;
    const bool isFirmlink = (entry.finderFlags & firmlinkFileFlag) != 0;
    const bool isCovered = entry.isCovered || (exclusions != nullptr && exclusions->isMountPoint);
    const bool isMountPoint =
        mountsOnDemand || ((entry.deviceID != item.deviceID || isCovered) && !isFirmlink);
    if (isMountPoint) {
        flags.insert(FileNodeFlags::mountPoint);
        ++tally_.stats.mountPointCount;
    }
    if (entry.deviceID == context_.rootDeviceID && !isMountPoint)
        addChecked(tally_.folderBytes, entry.allocatedSize);

    WorkItem next;
    next.collapseTarget = collapseTarget_;
    if (context_.buildsTree() && collapseTarget_ == nullptr) {
        const FileCategory category =
            item.inheritedCategory ? *item.inheritedCategory : categoryOfFolder(entry.name, folderExtension);
        FileNode* node = makeNode(item, entry, true, flags, category);
        folders_.push_back(node);
        next.node = node;
        if (isPackage && !options.descendIntoPackages)
            next.collapseTarget = node;
        next.inheritedCategory =
            item.inheritedCategory ? item.inheritedCategory : FileClassifier::componentCategory(entry.name);
    }
    if (mountsOnDemand || (isMountPoint && !options.crossFilesystemBoundaries)) {
        noteClosed(next.node);
        return;
    }
    next.folder = item.folder.child(entry.name);
    next.exclusions = exclusions;
    next.depth = item.depth + 1;
    next.deviceID = entry.deviceID;
    next.leadsElsewhere = isFirmlink || isCovered;
    pending_.push_back(std::move(next));
}

/// To open it would have its service fetch what it holds.
void ScanWorker::addDatalessFolder(const WorkItem& item, const RawDirectoryEntry& entry,
                                   FileNodeFlags flags) {
    ++tally_.stats.directoryCount;
    ++delta_.directories;
    const std::string_view folderExtension = extension(entry.name);
    if (!folderExtension.empty() && FileClassifier::isPackageExtension(folderExtension)) {
        flags.insert(FileNodeFlags::package);
        ++tally_.stats.packageCount;
    }
    // As nothing is added up for it, its own bytes count.
    addChecked(tally_.stats.totalSize, entry.logicalSize);
    addChecked(tally_.stats.totalAllocatedSize, entry.allocatedSize);
    if (!context_.buildsTree())
        return;
    if (collapseTarget_ != nullptr) {
        addChecked(delta_.size, entry.logicalSize);
        addChecked(delta_.allocated, entry.allocatedSize);
        return;
    }
    FileNode* node = makeNode(item, entry, true, flags,
                              item.inheritedCategory ? *item.inheritedCategory
                                                     : categoryOfFolder(entry.name, folderExtension));
    node->size = entry.logicalSize;
    node->allocatedSize = entry.allocatedSize;
    folders_.push_back(node);
    noteClosed(node);
}

void ScanWorker::processFile(const WorkItem& item, const RawDirectoryEntry& entry, FileNodeFlags flags) {
    ScanStats& stats = tally_.stats;
    ++stats.fileCount;
    ++delta_.files;
    if (entry.objectType == VnodeType::symbolicLink) {
        flags.insert(FileNodeFlags::symlink);
        ++stats.symlinkCount;
    } else if (entry.objectType != VnodeType::regular) {
        flags.insert(FileNodeFlags::special);
    }
    const std::int64_t reclaimable =
        FileNode::reclaimableBytes(entry.allocatedSize, entry.privateSize, entry.reportsPrivateSize,
                                   flags.contains(FileNodeFlags::dataless));

    FileNode* node = nullptr;
    if (context_.buildsTree() && collapseTarget_ == nullptr) {
        const FileCategory category =
            item.inheritedCategory ? *item.inheritedCategory : fileCategories_.category(entry.name);
        node = makeNode(item, entry, false, flags, category);
    }
    delta_.sharesClones = delta_.sharesClones || FileNode::sharesCloneBlocks(entry.extFlags);

    bool isCollapsedBytesDue = collapseTarget_ != nullptr;
    if (entry.linkCount > 1 && context_.options.deduplicateHardlinks) {
        const INodeKey key{entry.deviceID, entry.fileID};
        bool isFirst = false;
        if (context_.buildsTree()) {
            if (node != nullptr) {
                isFirst = context_.hardlinks.record(key, *node);
            } else {
                isFirst = context_.hardlinks.record(key, {.collapseTarget = collapseTarget_,
                                                          .folder = item.folder,
                                                          .name = std::string(entry.name),
                                                          .size = entry.logicalSize,
                                                          .allocatedSize = entry.allocatedSize,
                                                          .reclaimableSize = reclaimable});
                isCollapsedBytesDue = false; // they go to whichever link becomes the owner
            }
        } else {
            isFirst = context_.hardlinks.isFirst(key);
        }
        if (!isFirst) {
            if (node != nullptr) {
                node->flags.insert(FileNodeFlags::hardlinkDuplicate);
                addFile(*node);
            }
            ++stats.hardlinkDuplicateCount;
            addChecked(stats.hardlinkSavedBytes, entry.logicalSize);
            return;
        }
        if (context_.live != nullptr && node != nullptr)
            live_.links.push_back({item.node, {node->size, node->allocatedSize, node->reclaimableSize}});
    }
    if (node != nullptr)
        addFile(*node);
    addChecked(stats.totalSize, entry.logicalSize);
    addChecked(stats.totalAllocatedSize, entry.allocatedSize);
    addChecked(stats.totalReclaimableSize, reclaimable);
    if (isCollapsedBytesDue) {
        addChecked(delta_.size, entry.logicalSize);
        addChecked(delta_.allocated, entry.allocatedSize);
        addChecked(delta_.reclaimable, reclaimable);
    }
}

FileNode* ScanWorker::makeNode(const WorkItem& item, const RawDirectoryEntry& entry, bool isDirectory,
                               FileNodeFlags flags, FileCategory category) {
    FileNodeAttributes attributes;
    if (!isDirectory) {
        attributes.size = entry.logicalSize;
        attributes.allocatedSize = entry.allocatedSize;
        attributes.privateSize = entry.privateSize;
        attributes.reportsPrivateSize = entry.reportsPrivateSize;
    }
    SharingAttributes sharing;
    if (!isDirectory && (entry.linkCount > 1 || entry.held != nullptr) && context_.options.keepsSharing)
        [[unlikely]] {
        if (entry.linkCount > 1)
            sharing.links = {.inode = entry.fileID, .device = entry.deviceID, .count = entry.linkCount};
        sharing.held = entry.held;
        attributes.sharing = &sharing;
    }
    attributes.extFlags = entry.extFlags;
    attributes.modificationSeconds = entry.modificationSeconds;
    attributes.accessSeconds = entry.accessSeconds;
    attributes.flags = flags;
    attributes.category = category;
    return region_->makeNode(item.node, entry.name, isDirectory, attributes);
}

void ScanWorker::putFilesAside() {
    std::vector<FileNode*> run(files_.count());
    files_.takeInto(run);
    fileRuns_.add(std::move(run));
}

/// Gives a folder that was read its children, files first, and the sums of its files.
void ScanWorker::settle(FileNode& folder) {
    constexpr std::size_t largestKept = 16384;
    sums_.store(folder, folders_.size());
    sums_ = {};
    const std::size_t count = files_.count() + fileRuns_.count() + folders_.size();
    if (count == 0)
        return;
    if (fileRuns_.count() > 0) [[unlikely]]
        putFilesAside();
    const auto children = region_->makeChildArray(count);
    // Those who wait leave their processors to it.
    const int threads = fileRuns_.count() > 0 && context_.queue.isHungry() ? context_.mergingThreads : 1;
    const auto others = files_.takeInto(fileRuns_.takeInto(children, threads));
    std::ranges::copy(folders_, others.begin());
    folder.setChildren(children);
    if (folders_.capacity() > largestKept)
        folders_ = std::vector<FileNode*>();
    folders_.clear();
}

void ScanWorker::noteRead(const WorkItem& item, LiveRecord::Kind kind, std::size_t opened) {
    if (context_.live == nullptr)
        return;
    // Flags of a folder that takes in what is below are added to by other workers: not yet.
    FileNodeFlags flags = item.node != nullptr ? item.node->flags : FileNodeFlags();
    if (item.node != nullptr && item.node == collapseTarget_ && (delta_.files > 0 || delta_.directories > 0))
        flags.insert(FileNodeFlags::collapsed);
    live_.records.push_back({.node = item.node != nullptr ? item.node : item.collapseTarget,
                             .opened = static_cast<std::uint32_t>(opened),
                             .flags = flags,
                             .kind = kind});
    for (FileNode* folder : closedFolders_)
        live_.records.push_back({.node = folder, .flags = folder->flags, .kind = LiveRecord::Kind::closed});
    closedFolders_.clear();
}

void ScanWorker::noteClosed(FileNode* folder) {
    if (context_.live != nullptr && folder != nullptr)
        closedFolders_.push_back(folder);
}

} // namespace tarnwell
