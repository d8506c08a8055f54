#include "TarnwellCore/Scanning/FolderHandle.hpp"

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

namespace tarnwell {

namespace {

std::size_t descriptorsToKeep() {
    constexpr rlim_t largest = 16384;
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    const rlim_t half = std::min(limit.rlim_cur, largest) / 2;
    const rlim_t reserve = std::min<rlim_t>(24, half / 2); // some for each of a usual number of workers
    return static_cast<std::size_t>(half - reserve);
}

} // namespace

DescriptorBudget& DescriptorBudget::shared() {
    static auto* const budget = new DescriptorBudget(descriptorsToKeep());
    return *budget;
}

void DescriptorBudget::adoptLimit() {
    const std::size_t capacity = descriptorsToKeep();
    const std::lock_guard guard(mutex_);
    capacity_ = capacity;
}

void DescriptorBudget::releaseAll() {
    const std::lock_guard guard(mutex_);
    while (firstKept_ != nullptr)
        drop(*firstKept_);
}

bool DescriptorBudget::admit(FolderHandle& folder) {
    const std::lock_guard guard(mutex_);
    if (keptCount_ >= capacity_)
        makeRoom();
    else if (stride_ > 1 && keptCount_ < capacity_ / 4)
        stride_ /= 2;
    if (keptCount_ >= capacity_ || folder.depth_ % stride_ != 0)
        return false;
    folder.isKept_ = true;
    folder.nextKept_ = firstKept_;
    if (firstKept_ != nullptr)
        firstKept_->previousKept_ = &folder;
    firstKept_ = &folder;
    ++keptCount_;
    return true;
}

void DescriptorBudget::makeRoom() {
    constexpr std::int64_t largestStride = std::int64_t{1} << 40;
    while (keptCount_ > 0 && keptCount_ >= capacity_ && stride_ < largestStride) {
        stride_ *= 2;
        for (FolderHandle *folder = firstKept_, *next = nullptr; folder != nullptr; folder = next) {
            next = folder->nextKept_;
            if (folder->depth_ % stride_ != 0)
                drop(*folder);
        }
    }
}

void DescriptorBudget::unlink(FolderHandle& folder) {
    (folder.previousKept_ != nullptr ? folder.previousKept_->nextKept_ : firstKept_) = folder.nextKept_;
    if (folder.nextKept_ != nullptr)
        folder.nextKept_->previousKept_ = folder.previousKept_;
    folder.isKept_ = false;
    folder.previousKept_ = folder.nextKept_ = nullptr;
    --keptCount_;
}

/// Takes a kept folder off the list and lets go of its descriptor. Under the lock, without which the folder
/// may be gone any moment.
void DescriptorBudget::drop(FolderHandle& folder) {
    unlink(folder);
    folder.unpin();
}

/// Called by those who keep the folder themselves. Nobody waits for the closing of its descriptor: under the
/// lock that would cost several workers more than all else here.
void DescriptorBudget::withdraw(FolderHandle& folder) {
    {
        const std::lock_guard guard(mutex_);
        if (!folder.isKept_)
            return;
        unlink(folder);
    }
    folder.unpin();
}

int DescriptorBudget::largestWorkerCount() {
    constexpr rlim_t enough = 16384;
    constexpr rlim_t othersShare = 6; // the standard streams, and some for the rest of the process
    constexpr rlim_t eachWorkers = 2; // a folder, and a file of it or a copy of its descriptor
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 1;
    const rlim_t taken = othersShare + descriptorsToKeep();
    const rlim_t all = std::min(limit.rlim_cur, enough);
    return all < taken + 2 * eachWorkers ? 1 : static_cast<int>((all - taken) / eachWorkers);
}

FolderHandle::~FolderHandle() {
    if (budget_ != nullptr)
        budget_->withdraw(*this);
    if (parent_ == nullptr)
        unpin();
}

/// Keeps the descriptor open until `unpin`; false when there is none.
bool FolderHandle::pin() {
    int users = users_.load(std::memory_order_relaxed);
    while (users > 0)
        if (users_.compare_exchange_weak(users, users + 1, std::memory_order_acquire,
                                         std::memory_order_relaxed))
            return true;
    return false;
}

void FolderHandle::unpin() {
    if (users_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        const int error = errno;
        ::close(descriptor_);
        errno = error;
    }
}

bool FolderHandle::keepOpen(int descriptor, std::size_t subfolderCount, DescriptorBudget& budget) {
    if (parent_ == nullptr)
        return false; // has one
    descriptor_ = descriptor;
    unopenedSubfolders_.store(subfolderCount, std::memory_order_relaxed);
    users_.store(1, std::memory_order_relaxed);
    budget_ = &budget;
    if (budget.admit(*this)) // from here on another worker may close it to make room
        return true;
    users_.store(0, std::memory_order_relaxed);
    budget_ = nullptr;
    return false;
}

void FolderHandle::endOpening() const {
    if (parent_ != nullptr && parent_->budget_ != nullptr &&
        parent_->unopenedSubfolders_.fetch_sub(1, std::memory_order_relaxed) == 1)
        parent_->budget_->withdraw(*parent_);
}

int FolderHandle::open(const DirectoryCalls& calls, const std::int32_t* device) const {
    if (parent_ == nullptr)
        return ::fcntl(descriptor_, F_DUPFD_CLOEXEC, 0);

    return openBelowAncestor(calls, device);
}

int FolderHandle::openBelowAncestor(const DirectoryCalls& calls, const std::int32_t* device) const {
    // Lets go of the ancestor also when memory runs out on the way.
    const auto unpin = [](FolderHandle* folder) { folder->unpin(); };
    using Pinned = std::unique_ptr<FolderHandle, decltype(unpin)>;
    if (parent_->pin()) {
        const Pinned start(parent_, unpin);
        return calls.openFolder(start->descriptor_, name_.c_str(), device);
    }
    std::vector<const FolderHandle*> way{this};
    FolderHandle* ancestor = parent_;
    for (; !ancestor->pin(); ancestor = ancestor->parent_) // ends at the root
        way.push_back(ancestor);
    const Pinned start(ancestor, unpin);
    std::string relativePath;
    for (auto step = way.rbegin(); step != way.rend(); ++step) {
        if (!relativePath.empty())
            relativePath += '/';
        relativePath += (*step)->name_;
    }
    return openFolderBelow(start->descriptor_, relativePath, device);
}

std::string FolderHandle::path() const {
    std::vector<const FolderHandle*> way;
    const FolderHandle* folder = this;
    for (; folder->parent_ != nullptr; folder = folder->parent_)
        way.push_back(folder);
    std::string path = folder->name_;
    for (auto step = way.rbegin(); step != way.rend(); ++step) {
        if (!path.ends_with('/'))
            path += '/';
        path += (*step)->name_;
    }
    return path;
}

FolderRef FolderRef::root(int descriptor, std::string_view path) {
    try {
        return FolderRef(new FolderHandle(descriptor, path));
    } catch (...) {
        ::close(descriptor);
        throw;
    }
}

FolderRef FolderRef::child(std::string_view name) const {
    FolderRef parent(*this);
    auto* handle = new FolderHandle(parent.handle_, name);
    parent.handle_ = nullptr; // the child holds that reference now
    return FolderRef(handle);
}

void FolderRef::release(FolderHandle* handle) {
    while (handle != nullptr && handle->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        FolderHandle* parent = handle->parent_;
        delete handle;
        handle = parent;
    }
}

} // namespace tarnwell
