#pragma once

// A folder on its way through a scan: from its parent finding it to the last of its subfolders being opened.
//
// Folders are opened below their parent's descriptor, by name alone: no path is built, no path can be too
// long, and no link that is put in the place of a folder can lead the scan elsewhere. A folder that has
// subfolders keeps its descriptor open until they have been opened. As descriptors are few, a scan has a
// budget of them; a folder that gets none is closed after it was read, and its subfolders are opened from the
// nearest ancestor that is still open, component by component.

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace tarnwell {

struct DirectoryCalls;

/// How many descriptors a scan may keep open for later. Safe from any thread.
class DescriptorBudget {
public:
    /// Half of what the process may open: the rest is for the workers' reading and for everyone else.
    DescriptorBudget();
    explicit DescriptorBudget(int count) : remaining_(count) {}

    bool take() {
        if (remaining_.fetch_sub(1, std::memory_order_relaxed) > 0)
            return true;
        giveBack();
        return false;
    }
    void giveBack() { remaining_.fetch_add(1, std::memory_order_relaxed); }

private:
    std::atomic<int> remaining_;
};

/// Shared by the workers through FolderRef. Immutable once it was handed to another worker.
class FolderHandle {
public:
    FolderHandle(const FolderHandle&) = delete;
    FolderHandle& operator=(const FolderHandle&) = delete;

    /// Opens the folder for reading. The descriptor is the caller's; -1 and errno on failure.
    int open(const DirectoryCalls& calls) const;

    /// Takes over the folder's descriptor for the opening of its subfolders. False when the budget is spent:
    /// the descriptor is still the caller's. Called by the worker that read the folder, before it hands the
    /// subfolders on. The budget must outlive every handle.
    bool keepOpen(int descriptor, DescriptorBudget& budget);

    /// The full path, built on demand.
    std::string path() const;

private:
    friend class FolderRef;

    FolderHandle(FolderHandle* parent, std::string_view name) : parent_(parent), name_(name) {}
    ~FolderHandle();

    std::atomic<std::size_t> references_ = 1;
    FolderHandle* parent_; // holds a reference
    int descriptor_ = -1;
    DescriptorBudget* budget_ = nullptr;
    std::string name_; // the root's is its whole path
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

    static FolderRef root(std::string_view path) { return FolderRef(new FolderHandle(nullptr, path)); }
    FolderRef child(std::string_view name) const;

    FolderHandle* operator->() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }

private:
    explicit FolderRef(FolderHandle* handle) : handle_(handle) {}
    static void release(FolderHandle* handle);

    FolderHandle* handle_ = nullptr;
};

} // namespace tarnwell
