#include "TarnwellCore/Actions/PermanentRemoval.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/OpenDescriptor.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarnwell {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

/// A folder on the way down: what is still to be deleted in it.
struct Level {
    std::string name = {};
    dev_t device = 0;
    ino_t inode = 0;
    std::vector<std::string> pending = {};
    /// Whether something in it could not be deleted.
    bool hasFailures = false;
};

class Removal {
public:
    Removal(std::string path, const CancellationToken& token) : path_(std::move(path)), token_(token) {}

    /// What the folder holds.
    void empty(OpenDescriptor folder) {
        if (enter(std::move(folder), {}))
            work();
    }

    /// One entry of an open folder.
    void removeOnly(OpenDescriptor folder, const std::string& name) {
        struct stat status = {};
        if (::fstat(folder.number(), &status) != 0)
            return fail({}, errno);
        levels_.push_back({.device = status.st_dev, .inode = status.st_ino, .pending = {name}});
        current_ = std::move(folder);
        device_ = status.st_dev;
        work();
    }

    RemovalResult finish() {
        result_.isComplete = result_.failureCount == 0 && !result_.wasCancelled;
        return std::move(result_);
    }

    void fail(std::string_view name, int error) {
        ++result_.failureCount;
        if (!levels_.empty())
            levels_.back().hasFailures = true;
        if (result_.failures.size() == RemovalResult::mostFailures)
            return;
        std::string path = path_;
        const auto add = [&](std::string_view part) {
            if (part.empty())
                return;
            if (!path.ends_with('/'))
                path += '/';
            path += part;
        };
        for (const Level& level : levels_)
            add(level.name);
        add(name);
        result_.failures.push_back({std::move(path), std::generic_category().message(error)});
    }

private:
    void work() {
        for (;;) {
            if (token_.isCancelled()) {
                result_.wasCancelled = true;
                return;
            }
            Level& level = levels_.back();
            if (!level.pending.empty()) {
                const std::string name = std::move(level.pending.back());
                level.pending.pop_back();
                removeEntry(name);
            } else if (levels_.size() == 1 || !leave()) {
                return;
            }
        }
    }

    void removeEntry(const std::string& name) {
        const int folder = current_.number();
        if (::unlinkat(folder, name.c_str(), 0) == 0) {
            ++result_.removedCount;
            return;
        }
        // What a system says of a folder here: EISDIR or EPERM.
        const int error = errno;
        struct stat status = {};
        if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT)
                fail(name, errno);
            return;
        }
        if (!S_ISDIR(status.st_mode))
            return fail(name, error);
        if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0) {
            ++result_.removedCount;
            return;
        }
        if (status.st_dev != device_)
            return fail(name, EXDEV); // mounted there
        OpenDescriptor child(::openat(folder, name.c_str(), folderFlags));
        if (!child.isOpen() && errno == EACCES &&
            ::fchmodat(folder, name.c_str(), 0700, AT_SYMLINK_NOFOLLOW) == 0)
            child = OpenDescriptor(::openat(folder, name.c_str(), folderFlags));
        if (!child.isOpen())
            return fail(name, errno);
        (void)enter(std::move(child), name);
    }

    /// Makes an open folder the one that is worked in; false when it cannot be read.
    bool enter(OpenDescriptor folder, const std::string& name) {
        struct stat status = {};
        if (::fstat(folder.number(), &status) != 0) {
            fail(name, errno);
            return false;
        }
        if (levels_.empty())
            device_ = status.st_dev;
        else if (status.st_dev != device_) {
            fail(name, EXDEV);
            return false;
        }
        constexpr mode_t needed = S_IRWXU;
        if ((status.st_mode & needed) != needed && status.st_uid == ::geteuid())
            (void)::fchmod(folder.number(), (status.st_mode & 07777) | needed); // fails where it does no harm
        Level level{.name = name, .device = status.st_dev, .inode = status.st_ino};
        if (const int error = list(folder.number(), level.pending); error != 0) {
            fail(name, error);
            return false;
        }
        levels_.push_back(std::move(level));
        current_ = std::move(folder);
        return true;
    }

    static int list(int folder, std::vector<std::string>& names) {
        const int copy = ::openat(folder, ".", folderFlags); // a stream closes what it was given
        if (copy < 0)
            return errno;
        const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(copy), ::closedir);
        if (!stream) {
            const int error = errno;
            ::close(copy);
            return error;
        }
        for (;;) {
            errno = 0;
            const dirent* entry = ::readdir(stream.get());
            if (entry == nullptr)
                return errno;
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..")
                names.emplace_back(name);
        }
    }

    /// Goes back to the folder above and deletes this one there; false when the way is lost.
    bool leave() {
        const std::string name = levels_.back().name;
        const bool isSpoiled = levels_.back().hasFailures;
        levels_.pop_back();
        Level& above = levels_.back();
        above.hasFailures = above.hasFailures || isSpoiled;
        OpenDescriptor parent(::openat(current_.number(), "..", folderFlags));
        struct stat status = {};
        if (!parent.isOpen() || ::fstat(parent.number(), &status) != 0) {
            fail(name, errno);
            return false;
        }
        if (status.st_dev != above.device || status.st_ino != above.inode) {
            fail(name, ESTALE); // somebody moved it
            return false;
        }
        current_ = std::move(parent);
        if (::unlinkat(current_.number(), name.c_str(), AT_REMOVEDIR) == 0)
            ++result_.removedCount;
        else if (errno != ENOENT && !isSpoiled) // what is left in it has been told
            fail(name, errno);
        return true;
    }

    std::string path_;
    const CancellationToken& token_;
    RemovalResult result_;
    std::vector<Level> levels_;
    OpenDescriptor current_;
    dev_t device_ = 0;
};

} // namespace

RemovalResult PermanentRemoval::remove(const std::filesystem::path& item, const CancellationToken& token) {
    const std::string path(PathUtil::withoutTrailingSlashes(item.native()));
    const auto slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string parent = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    Removal removal(parent, token);
    if (name.empty() || name == "." || name == "..") {
        removal.fail(name, EINVAL);
        return removal.finish();
    }
    // Links in the way to the folder are the user's own words.
    OpenDescriptor folder(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen())
        removal.fail(name, errno);
    else
        removal.removeOnly(std::move(folder), name);
    return removal.finish();
}

RemovalResult PermanentRemoval::removeContents(const std::filesystem::path& folder,
                                               const CancellationToken& token) {
    Removal removal(folder.native(), token);
    OpenDescriptor opened(::open(folder.c_str(), folderFlags));
    if (!opened.isOpen())
        removal.fail({}, errno);
    else
        removal.empty(std::move(opened));
    return removal.finish();
}

RemovalResult PermanentRemoval::removeContents(int openFolder, const std::filesystem::path& path,
                                               const CancellationToken& token) {
    Removal removal(path.native(), token);
    OpenDescriptor own(::openat(openFolder, ".", folderFlags));
    if (!own.isOpen())
        removal.fail({}, errno);
    else
        removal.empty(std::move(own));
    return removal.finish();
}

} // namespace tarnwell
