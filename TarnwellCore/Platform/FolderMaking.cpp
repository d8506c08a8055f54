#include "TarnwellCore/Platform/FolderMaking.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

constexpr int mostLinks = 40;

class Way {
public:
    explicit Way(int start) : folder_(::fcntl(start, F_DUPFD_CLOEXEC, 0)) {}
    ~Way() {
        const int error = errno;
        if (folder_ >= 0)
            ::close(folder_);
        errno = error;
    }
    Way(const Way&) = delete;
    Way& operator=(const Way&) = delete;

    bool go(std::string_view path, LinksOnTheWay links) {
        push(path);
        while (folder_ >= 0 && !names_.empty()) {
            const std::string name = std::move(names_.back());
            names_.pop_back();
            if (!enter(name, links))
                return false;
        }
        return folder_ >= 0;
    }
    int take() { return std::exchange(folder_, -1); }

private:
    /// The names of a path come before those that are left.
    void push(std::string_view path) {
        std::vector<std::string> names;
        while (!path.empty()) {
            const std::size_t length = std::min(path.find('/'), path.size());
            if (length > 0 && path.substr(0, length) != ".")
                names.emplace_back(path.substr(0, length));
            path.remove_prefix(std::min(length + 1, path.size()));
        }
        names_.insert(names_.end(), std::make_move_iterator(names.rbegin()),
                      std::make_move_iterator(names.rend()));
    }

    bool enter(const std::string& name, LinksOnTheWay links) {
        if (name == ".." && links == LinksOnTheWay::none) {
            errno = EINVAL;
            return false;
        }
        // Others may make and remove it meanwhile, but not for ever.
        for (int attempt = 0; attempt < 8; ++attempt) {
            const int next =
                withoutInterruption([&] { return openSubfolderForTraversal(folder_, name.c_str()); });
            if (next >= 0) {
                ::close(std::exchange(folder_, next));
                return true;
            }
            if (errno == ELOOP || errno == ENOTDIR)
                return follow(name, links);
            if (errno != ENOENT || (::mkdirat(folder_, name.c_str(), 0777) != 0 && errno != EEXIST))
                return false;
        }
        return false;
    }

    bool follow(const std::string& name, LinksOnTheWay links) {
        struct stat status = {};
        if (::fstatat(folder_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        if (!S_ISLNK(status.st_mode)) {
            errno = ENOTDIR;
            return false;
        }
        if (links == LinksOnTheWay::none || ++linksFollowed_ > mostLinks) {
            errno = ELOOP;
            return false;
        }
        if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
            errno = EACCES;
            return false;
        }
        char target[PATH_MAX];
        const ssize_t length = ::readlinkat(folder_, name.c_str(), target, sizeof target);
        if (length <= 0 || length == static_cast<ssize_t>(sizeof target)) {
            errno = length < 0 ? errno : ELOOP;
            return false;
        }
        const std::string_view text(target, static_cast<std::size_t>(length));
        if (text.starts_with('/')) {
            const int root = FolderOpeningDetail::openForTraversal(AT_FDCWD, "/");
            if (root < 0)
                return false;
            ::close(std::exchange(folder_, root));
        }
        push(text);
        return true;
    }

    int folder_;
    std::vector<std::string> names_; // the next one last
    int linksFollowed_ = 0;
};

} // namespace

int openOrMakeFolder(int start, std::string_view path, LinksOnTheWay links) {
    Way way(start);
    return way.go(path, links) ? way.take() : -1;
}

} // namespace tarnwell
