#pragma once

// What one thread of a search for duplicates works with.

#include "TarnwellCore/Analysis/DuplicateSearch.hpp"
#include "TarnwellCore/Platform/NoFetching.hpp"
#include "TarnwellCore/Platform/SHA256.hpp"

#include <unistd.h>

#include <cerrno>
#include <expected>
#include <memory>
#include <utility>
#include <vector>

namespace tarnwell {

/// A file that is open, and closed in the end.
class DuplicateSearch::OpenFile {
public:
    OpenFile(int descriptor, const FileVersion& version) : descriptor_(descriptor), version_(version) {}
    ~OpenFile() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    OpenFile(OpenFile&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)), version_(other.version_) {}
    OpenFile& operator=(OpenFile&&) = delete;

    int descriptor() const { return descriptor_; }
    /// Nothing when it still is what was opened.
    std::expected<void, FileFault> requireVersion() const {
        return tarnwell::requireVersion(descriptor_, version_);
    }

private:
    int descriptor_;
    FileVersion version_;
};

/// The folder where a thread is, and what it reads and digests with. Confined to it.
class DuplicateSearch::Worker {
public:
    explicit Worker(const DuplicateSearch& search) : search_(search) {}
    ~Worker() { leaveFolder(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// The open folder of a node, until the next is asked for.
    std::expected<int, FileFault> folderOf(const FileNode& node);

    /// One for each of the files that are read at a time. They stay where they are.
    ContentReader& reader(std::size_t number) {
        while (readers_.size() <= number)
            readers_.push_back(std::make_unique<ContentReader>());
        return *readers_[number];
    }
    SHA256& hash() {
        if (!hash_)
            hash_ = std::make_unique<SHA256>();
        return *hash_;
    }

    static bool isForWantOfDescriptors(const FileFault& fault) {
        return fault.error == EMFILE || fault.error == ENFILE;
    }

private:
    void leaveFolder();

    const DuplicateSearch& search_;
    const NoFetching noFetching_;
    const FileNode* current_ = nullptr;
    int folder_ = -1;
    bool isRoot_ = false;
    FileFault fault_{FileFault::Kind::failed};
    std::vector<std::unique_ptr<ContentReader>> readers_; // not every worker reads
    std::unique_ptr<SHA256> hash_;
};

} // namespace tarnwell
