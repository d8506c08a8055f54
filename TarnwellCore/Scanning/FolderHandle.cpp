#include "TarnwellCore/Scanning/FolderHandle.hpp"

#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace tarnwell {

namespace {

int descriptorsToKeep() {
    constexpr rlim_t largest = 16384;
    constexpr int reserve = 24; // three a worker, for a usual number of workers
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    return std::max(0, static_cast<int>(std::min(limit.rlim_cur, largest)) / 2 - reserve);
}

} // namespace

DescriptorBudget::DescriptorBudget() : remaining_(descriptorsToKeep()) {}

FolderHandle::~FolderHandle() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
        budget_->giveBack();
    }
}

bool FolderHandle::keepOpen(int descriptor, DescriptorBudget& budget) {
    if (!budget.take())
        return false;
    descriptor_ = descriptor;
    budget_ = &budget;
    return true;
}

int FolderHandle::open(const DirectoryCalls& calls) const {
    if (parent_ == nullptr)
        return openFolder(name_);
    if (parent_->descriptor_ >= 0)
        return calls.openEntry(parent_->descriptor_, name_.c_str(),
                               O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);

    std::vector<const FolderHandle*> way;
    const FolderHandle* start = this;
    for (; start->parent_ != nullptr && start->descriptor_ < 0; start = start->parent_)
        way.push_back(start);
    std::string relativePath;
    for (auto step = way.rbegin(); step != way.rend(); ++step) {
        if (!relativePath.empty())
            relativePath += '/';
        relativePath += (*step)->name_;
    }
    const bool isStartOpen = start->descriptor_ >= 0;
    const int from = isStartOpen ? start->descriptor_ : openFolder(start->name_);
    if (from < 0)
        return -1;
    const int folder = openFolderBelow(from, relativePath);
    if (!isStartOpen) {
        const int error = errno;
        ::close(from);
        errno = error;
    }
    return folder;
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
