#pragma once

// A folder on its way through a scan: from its parent finding it to the last of its subfolders being opened.
//
// Folders are opened below their parent's descriptor, by name alone: no path is built, no path can be too
// long, and no link that is put in the place of a folder can lead the scan elsewhere. A folder that has
// subfolders keeps its descriptor until they have been opened. As descriptors are few, all scans of the
// process share a budget of them. When it is spent, only the folders at every second level keep theirs, then
// at every fourth, and so on; a folder whose parent kept none is opened from the nearest ancestor that did,
// component by component. So a level costs at most about twice the depth divided by the budget, however deep
// the tree is. The root is opened once, by its path, and keeps that descriptor until the end.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace tarnwell {

struct DirectoryCalls;
class FolderHandle;

/// Which folders keep a descriptor for later. Safe from any thread.
class DescriptorBudget {
public:
    explicit DescriptorBudget(std::size_t capacity) : capacity_(capacity) {}

    /// The one of all scans: half of what the process may open, the rest is for the workers' reading and for
    /// everyone else. Lives as long as the process.
    static DescriptorBudget& shared();

    /// Looks again at what the process may open.
    void adoptLimit();

    /// How many workers find descriptors for their reading besides those that are kept; one at least.
    static int largestWorkerCount();

    /// Closes what is kept and not in use at this moment: the process has run out of descriptors.
    void releaseAll();

private:
    friend class FolderHandle;

    bool admit(FolderHandle& folder);
    void withdraw(FolderHandle& folder);
    void makeRoom();
    void unlink(FolderHandle& folder);
    void drop(FolderHandle& folder);

    std::mutex mutex_;
    std::size_t capacity_;    // guarded by mutex_, as is all below
    std::int64_t stride_ = 1; // folders at levels that it divides may keep theirs
    // Those that keep theirs, linked through themselves: joining and leaving costs every folder of a scan.
    FolderHandle* firstKept_ = nullptr;
    std::size_t keptCount_ = 0;
};

/// Shared by the workers through FolderRef.
class FolderHandle {
public:
    FolderHandle(const FolderHandle&) = delete;
    FolderHandle& operator=(const FolderHandle&) = delete;

    /// Opens the folder for reading. The descriptor is the caller's; -1 and errno on failure. With `device`,
    /// it is EXDEV when the folder is not on that one (any more). The root is opened but once.
    int open(const DirectoryCalls& calls, const std::int32_t* device) const;

    /// Nobody will call `open` again, whatever it came to: after the last of its siblings, their parent needs
    /// its descriptor no more. Called once.
    void endOpening() const;

    /// Takes over the folder's descriptor for the opening of its subfolders, of which there are
    /// `subfolderCount`. False when the budget has no room: the descriptor is still the caller's. Called at
    /// most once, by the worker that read the folder, before it hands the subfolders on. The budget must
    /// outlive every handle.
    bool keepOpen(int descriptor, std::size_t subfolderCount, DescriptorBudget& budget);

    /// The full path, built on demand.
    std::string path() const;

    /// Null for the root.
    const FolderHandle* parent() const { return parent_; }
    /// The root's is its whole path.
    std::string_view name() const { return name_; }

private:
    friend class FolderRef;
    friend class DescriptorBudget;

    FolderHandle(FolderHandle* parent, std::string_view name)
        : parent_(parent), depth_(parent->depth_ + 1), name_(name) {}
    FolderHandle(int descriptor, std::string_view path)
        : parent_(nullptr), depth_(0), descriptor_(descriptor), users_(1), name_(path) {}
    ~FolderHandle();

    int openBelowAncestor(const DirectoryCalls& calls, const std::int32_t* device) const;
    bool pin();
    void unpin();

    std::atomic<std::size_t> references_ = 1;
    FolderHandle* const parent_; // holds a reference
    const std::int64_t depth_;

    // The descriptor is open while it has users: those that open something below it, and the budget; for the
    // root itself, the handle.
    int descriptor_ = -1; // constant once the subfolders were handed on, as is budget_
    DescriptorBudget* budget_ = nullptr;
    std::atomic<int> users_ = 0;
    std::atomic<std::size_t> unopenedSubfolders_ = 0;
    bool isKept_ = false; // guarded by the budget's lock, as are its neighbours in the budget's list
    FolderHandle* previousKept_ = nullptr;
    FolderHandle* nextKept_ = nullptr;

    const std::string name_;
};

/// A counted reference to a folder. Letting go of the last one of a long chain takes no recursion.
class FolderRef {
public:
    FolderRef() = default;
    FolderRef(const FolderRef& other) : handle_(other.handle_) {
        if (handle_ != nullptr)
            handle_->references_.fetch_add(1, std::memory_order_relaxed);
    }
    FolderRef(FolderRef&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    FolderRef& operator=(FolderRef other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~FolderRef() { release(handle_); }

    /// The folder at the path, open at `descriptor`, which is not the caller's any more, also when this
    /// throws.
    static FolderRef root(int descriptor, std::string_view path);
    FolderRef child(std::string_view name) const;

    FolderHandle* operator->() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }

private:
    explicit FolderRef(FolderHandle* handle) : handle_(handle) {}
    static void release(FolderHandle* handle);

    FolderHandle* handle_ = nullptr;
};

} // namespace tarnwell
