// walk-floor: reads every folder below a path with getdents64 and asks statx once for each entry, on several
// threads, and keeps nothing but sums. No disk-usage scan that looks at every entry can be faster by much, so
// it is what the tool is measured against. Links are counted as often as they are met. A thread that finds no
// folder takes turns at the records of a large one that another one reads.
//
// With --extents 1 it also opens each file with blocks and asks for its first extents, which is what private
// sizes cost on a file system whose files may share blocks.

#include <dirent.h>
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Benchmarks/Arguments.hpp"

namespace tarnwell::benchmarks {
namespace {

constexpr std::string_view usage = "usage: walk-floor [--threads N] [--extents 0|1] FOLDER\n"
                                   "Walks FOLDER on N threads (one for each processor) and prints the sums;\n"
                                   "with --extents 1 it asks each file with blocks for its extents, too.\n";

constexpr unsigned statxMask =
    STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_INO | STATX_SIZE | STATX_BLOCKS | STATX_MTIME | STATX_ATIME;

/// An open folder; it is closed when the last of its subfolders has been opened relative to it.
struct Folder {
    explicit Folder(int opened) : descriptor(opened) {}
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { ::close(descriptor); }

    /// The next records; nothing more once it came to an end for anyone.
    ssize_t read(char* buffer, std::size_t size) {
        const std::lock_guard lock(turns);
        if (isAtEnd)
            return 0;
        const ssize_t count = ::getdents64(descriptor, buffer, size);
        isAtEnd = count <= 0;
        return count;
    }

    const int descriptor;
    /// One for each queued subfolder and one for each thread that reads it.
    std::atomic<std::uint32_t> users{1};
    std::mutex turns;
    bool isAtEnd = false; // guarded by turns
    std::atomic<bool> isOffered{false};
};

void release(Folder* folder) {
    if (folder->users.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete folder;
}

/// A subfolder that waits to be read. It holds a share of its parent.
struct Work {
    Folder* parent;
    std::string name;
};

struct alignas(64) Sums {
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::uint64_t links = 0;
    std::uint64_t others = 0;
    std::uint64_t errors = 0;
    std::uint64_t apparentBytes = 0;
    std::uint64_t allocatedBytes = 0;
    std::uint64_t newestSecond = 0;
};

/// Threads walk depth first on stacks of their own and share through the queue only when someone has nothing.
class Walk {
public:
    Walk(unsigned threadCount, bool asksForExtents)
        : threadCount_(threadCount), asksForExtents_(asksForExtents), sums_(threadCount) {}

    Sums run(const char* path) {
        const int root = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (root < 0)
            failCall(path);
        // The root is its own parent's only entry, so that it is read like every other folder.
        queue_.push_back({new Folder(root), "."});
        std::vector<std::thread> threads;
        for (unsigned index = 1; index < threadCount_; ++index)
            threads.emplace_back([this, index] { work(sums_[index]); });
        work(sums_[0]);
        for (std::thread& thread : threads)
            thread.join();
        Sums total;
        for (const Sums& sums : sums_) {
            total.files += sums.files;
            total.folders += sums.folders;
            total.links += sums.links;
            total.others += sums.others;
            total.errors += sums.errors;
            total.apparentBytes += sums.apparentBytes;
            total.allocatedBytes += sums.allocatedBytes;
            total.newestSecond = std::max(total.newestSecond, sums.newestSecond);
        }
        return total;
    }

private:
    static constexpr std::size_t bufferSize = 32 * 1024; // of one turn
    static constexpr std::size_t sharedAtOnce = 16;

    void work(Sums& sums) {
        const auto buffer = std::make_unique_for_overwrite<char[]>(bufferSize);
        std::vector<Work> stack;
        Folder* joined = nullptr;
        while (takeShared(stack, joined)) {
            if (joined != nullptr)
                readRecords(std::exchange(joined, nullptr), buffer.get(), stack, sums);
            while (!stack.empty()) {
                const Work item = std::move(stack.back());
                stack.pop_back();
                readFolder(item, buffer.get(), stack, sums);
                if (stack.size() > 1 && idle_.load(std::memory_order_relaxed) > 0)
                    share(stack);
            }
        }
    }

    /// Waits for work, or for a folder to help with; false when all threads wait, which is the end.
    bool takeShared(std::vector<Work>& stack, Folder*& joined) {
        std::unique_lock lock(mutex_);
        const unsigned idle = idle_.fetch_add(1, std::memory_order_relaxed) + 1;
        if (idle == threadCount_ && queue_.empty() && offered_.empty()) {
            isDone_ = true;
            changed_.notify_all();
        }
        changed_.wait(lock, [this] { return isDone_ || !queue_.empty() || !offered_.empty(); });
        if (queue_.empty() && offered_.empty())
            return false;
        idle_.fetch_sub(1, std::memory_order_relaxed);
        if (queue_.empty()) {
            joined = offered_.back();
            joined->users.fetch_add(1, std::memory_order_relaxed);
            return true;
        }
        const std::size_t count = std::min(sharedAtOnce, (queue_.size() + 1) / 2);
        std::move(queue_.end() - static_cast<std::ptrdiff_t>(count), queue_.end(), std::back_inserter(stack));
        queue_.resize(queue_.size() - count);
        return true;
    }

    /// Gives away the older half of the stack, where the larger subtrees are.
    void share(std::vector<Work>& stack) {
        const std::lock_guard lock(mutex_);
        if (!queue_.empty())
            return;
        const auto end =
            stack.begin() + static_cast<std::ptrdiff_t>(std::min(stack.size() / 2, sharedAtOnce));
        queue_.insert(queue_.end(), std::move_iterator(stack.begin()), std::move_iterator(end));
        stack.erase(stack.begin(), end);
        changed_.notify_all();
    }

    void readFolder(const Work& item, char* buffer, std::vector<Work>& stack, Sums& sums) {
        const int descriptor = ::openat(item.parent->descriptor, item.name.c_str(),
                                        O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        release(item.parent);
        if (descriptor < 0) {
            sums.errors += 1;
            return;
        }
        auto* folder = new Folder(descriptor);
        readRecords(folder, buffer, stack, sums);
    }

    /// Until there are no more for anyone.
    void readRecords(Folder* folder, char* buffer, std::vector<Work>& stack, Sums& sums) {
        for (int turn = 1;; ++turn) {
            const ssize_t count = folder->read(buffer, bufferSize);
            if (count <= 0) {
                sums.errors += count < 0;
                break;
            }
            if (turn > 1 && idle_.load(std::memory_order_relaxed) > 0 && !folder->isOffered.exchange(true)) {
                const std::lock_guard lock(mutex_);
                offered_.push_back(folder);
                changed_.notify_all();
            }
            for (ssize_t offset = 0; offset < count;) {
                const auto* entry = reinterpret_cast<const dirent64*>(buffer + offset);
                offset += entry->d_reclen;
                readEntry(folder, entry->d_name, stack, sums);
            }
        }
        if (folder->isOffered.load()) {
            const std::lock_guard lock(mutex_);
            std::erase(offered_, folder);
        }
        release(folder);
    }

    void readEntry(Folder* folder, const char* name, std::vector<Work>& stack, Sums& sums) {
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            return;
        struct statx facts;
        if (::statx(folder->descriptor, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, statxMask, &facts) !=
            0) {
            sums.errors += 1;
            return;
        }
        sums.newestSecond = std::max(sums.newestSecond, static_cast<std::uint64_t>(facts.stx_mtime.tv_sec));
        if (S_ISDIR(facts.stx_mode)) {
            sums.folders += 1;
            folder->users.fetch_add(1, std::memory_order_relaxed);
            stack.push_back({folder, name});
            return;
        }
        // The sizes of folders themselves are left out, as in every sum of this project.
        sums.apparentBytes += facts.stx_size;
        sums.allocatedBytes += facts.stx_blocks * 512;
        if (S_ISREG(facts.stx_mode)) {
            sums.files += 1;
            if (asksForExtents_ && facts.stx_blocks > 0)
                readExtents(folder, name, sums);
        } else if (S_ISLNK(facts.stx_mode)) {
            sums.links += 1;
        } else {
            sums.others += 1;
        }
    }

    static void readExtents(const Folder* folder, const char* name, Sums& sums) {
        constexpr std::uint32_t extentsPerCall = 250;
        alignas(
            struct fiemap) char bytes[sizeof(struct fiemap) + extentsPerCall * sizeof(struct fiemap_extent)];
        std::memset(bytes, 0, sizeof(struct fiemap));
        auto& map = *reinterpret_cast<struct fiemap*>(bytes);
        map.fm_length = FIEMAP_MAX_OFFSET;
        map.fm_extent_count = extentsPerCall;
        const int file = ::openat(folder->descriptor, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (file < 0 || ::ioctl(file, FS_IOC_FIEMAP, &map) != 0)
            sums.errors += 1;
        if (file >= 0)
            ::close(file);
    }

    const unsigned threadCount_;
    const bool asksForExtents_;
    std::vector<Sums> sums_; // one a thread
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Work> queue_;       // guarded by mutex_
    std::vector<Folder*> offered_;  // likewise: large ones that others may help with
    bool isDone_ = false;           // guarded by mutex_
    std::atomic<unsigned> idle_{0}; // written under mutex_; read without it as a hint
};

/// Every queued folder keeps its parent open.
void raiseDescriptorLimit() {
    rlimit limit;
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

unsigned processorCount() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        return 1;
    return static_cast<unsigned>(CPU_COUNT(&allowed));
}

int run(int count, char** values) {
    std::uint64_t threadCount = processorCount();
    std::uint64_t asksForExtents = 0;
    const std::string path =
        parseArguments(count, values, {{"--threads", &threadCount}, {"--extents", &asksForExtents}}, usage);
    raiseDescriptorLimit();
    const Sums sums =
        Walk(static_cast<unsigned>(std::clamp<std::uint64_t>(threadCount, 1, 1024)), asksForExtents != 0)
            .run(path.c_str());
    const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf("%llu files, %llu links, %llu others, %llu folders, %llu errors\n", number(sums.files),
                number(sums.links), number(sums.others), number(sums.folders), number(sums.errors));
    std::printf("%llu bytes, %llu allocated, newest second %llu\n", number(sums.apparentBytes),
                number(sums.allocatedBytes), number(sums.newestSecond));
    return sums.errors == 0 ? 0 : 1;
}

} // namespace
} // namespace tarnwell::benchmarks

int main(int count, char** values) {
    return tarnwell::benchmarks::run(count, values);
}
