#include "TarnwellCore/Platform/CloneReplacement.hpp"

#include "TarnwellCore/Platform/ContentReading.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/UUID.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

using Kind = SharingFault::Kind;

std::unexpected<SharingFault> failed(int error) {
    const Kind kind = error == ENOTSUP || error == EOPNOTSUPP ? Kind::unsupported
                      : error == EXDEV                        ? Kind::otherFileSystem
                                                              : Kind::failed;
    return std::unexpected(SharingFault{kind, error});
}

std::expected<void, SharingFault> compareContents(const SharingFile& first, const SharingFile& further,
                                                  const std::function<bool()>& isCancelled) {
    const std::unique_ptr<std::byte[]> others(new std::byte[ContentReader::pieceLength]);
    std::int64_t offset = 0;
    SharingFault fault{Kind::different};
    ContentReader reader;
    const int error = reader.read(first.file, first.version.size, [&](std::span<const std::byte> bytes) {
        if (isCancelled()) {
            fault.kind = Kind::cancelled;
            return false;
        }
        for (std::size_t filled = 0; filled < bytes.size();) {
            const ssize_t count = withoutInterruption([&] {
                return ::pread(further.file, others.get() + filled, bytes.size() - filled,
                               offset + static_cast<std::int64_t>(filled));
            });
            if (count < 0)
                fault = {Kind::failed, errno};
            if (count <= 0)
                return false;
            filled += static_cast<std::size_t>(count);
        }
        offset += static_cast<std::int64_t>(bytes.size());
        return std::memcmp(bytes.data(), others.get(), bytes.size()) == 0;
    });
    if (error == ECANCELED || error == ESTALE)
        return std::unexpected(fault);
    if (error != 0)
        return failed(error);
    return {};
}

/// Whether the name still leads to the file, which has no other and was not touched.
bool isUntouched(const SharingFile& file) {
    const auto named = measureFile(file.folder, file.name);
    return named && named->version == file.version && requireVersion(file.file, file.version);
}

/// As far as can be told of a file that got another name, which counts as a change of it.
bool hasSameContents(int file, const FileVersion& version) {
    const auto found = measureFile(file);
    return found && found->version.size == version.size && found->version.modified == version.modified;
}

/// A descriptor that shows others that a file is being worked on, as long as this lives.
class Held {
public:
    explicit Held(int descriptor) : descriptor_(descriptor) {
        if (descriptor_ >= 0)
            ::flock(descriptor_, LOCK_EX | LOCK_NB);
    }
    ~Held() { release(); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    void release() {
        if (descriptor_ >= 0)
            ::close(std::exchange(descriptor_, -1));
    }

private:
    int descriptor_;
};

int openForLooking(int folder, const char* name) {
    return withoutInterruption(
        [&] { return ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
}

bool isTemporaryName(std::string_view name) {
    return name.starts_with(temporaryNameStart) && UUID::parse(name.substr(temporaryNameStart.size()));
}

/// What a file and its clone have in common.
using Likeness = std::pair<std::int64_t, std::int64_t>; // length, time of modification

/// Whether a killed process has left it, and nothing is lost with it.
bool isLeftOver(int folder, const char* name, std::int64_t now, const std::set<Likeness>& others) {
    constexpr std::int64_t longestSharing = 86'400; // seconds
    struct stat status = {};
    // To open a device may do something.
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode))
        return false;
    const int file = openForLooking(folder, name);
    if (file < 0)
        return false;
    const auto found = measureFile(file);
    const bool isOwn = ::fstat(file, &status) == 0 && (::geteuid() == 0 || status.st_uid == ::geteuid());
    // What was written to has changed in its contents when it changed at all; what was made a clone or
    // renamed has not.
    const bool isLeft = isOwn && found && found->kind == VnodeType::regular && status.st_nlink == 1 &&
                        status.st_ctime < now - longestSharing &&
                        found->version.modified < found->version.changed &&
                        others.contains({found->version.size, found->version.modified}) &&
                        (::flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK);
    ::close(file);
    return isLeft;
}

/// The first time that this process comes to a folder, it tidies it.
void tidyOnce(int folder, const CloneCalls& calls) noexcept {
    constexpr std::size_t mostFolders = 10'000;
    struct stat status = {};
    if (::fstat(folder, &status) != 0)
        return;
    try {
        static std::mutex mutex;
        static std::set<std::pair<dev_t, ino_t>> seen; // guarded by mutex
        const std::lock_guard guard(mutex);
        if (seen.size() >= mostFolders || !seen.emplace(status.st_dev, status.st_ino).second)
            return;
    } catch (const std::exception&) {
        return;
    }
    removeSharingLeftovers(folder, std::time(nullptr), calls);
}

} // namespace

void removeSharingLeftovers(int folder, std::int64_t now, const CloneCalls& calls) noexcept {
    const int own = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const listing = own < 0 ? nullptr : ::fdopendir(own);
    if (listing == nullptr) {
        if (own >= 0)
            ::close(own);
        return;
    }
    // Names are gathered first: what is removed while a folder is read may hide what comes after it.
    std::vector<std::string> names;
    // What was written into an old file that its clone took the place of is nowhere else.
    std::set<Likeness> others;
    try {
        while (const dirent* entry = ::readdir(listing))
            if (isTemporaryName(entry->d_name))
                names.emplace_back(entry->d_name);
        if (!names.empty())
            ::rewinddir(listing);
        while (const dirent* entry = names.empty() ? nullptr : ::readdir(listing)) {
            if (isTemporaryName(entry->d_name))
                continue;
            if (const auto found = measureFile(folder, entry->d_name))
                others.emplace(found->version.size, found->version.modified);
        }
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // Without memory, the next time.
    }
    ::closedir(listing);
    for (const std::string& name : names)
        if (isLeftOver(folder, name.c_str(), now, others))
            calls.remove(folder, name.c_str());
}

std::expected<std::int64_t, SharingFault> replaceByClone(const SharingFile& first, const SharingFile& further,
                                                         std::int64_t bytesToFree, const CloneCalls& calls,
                                                         const std::function<bool()>& isCancelled) {
    const auto found = measureFile(further.file);
    if (found && found->linkCount > 1)
        return std::unexpected(SharingFault{Kind::hasOtherLinks});
    if (first.version.size != further.version.size || !isUntouched(first) || !isUntouched(further))
        return std::unexpected(SharingFault{Kind::different});
    if (const auto isEqual = compareContents(first, further, isCancelled); !isEqual)
        return std::unexpected(isEqual.error());

    tidyOnce(further.folder, calls);
    const std::string temporaryName = std::string(temporaryNameStart) + UUID::random().text();
    const char* const temporary = temporaryName.c_str();
    if (calls.clone(first.file, further.folder, temporary) != 0)
        return failed(errno);
    Held clone(openForLooking(further.folder, temporary));
    const auto withdraw = [&](SharingFault fault) {
        calls.remove(further.folder, temporary);
        return std::unexpected(fault);
    };
    if (calls.copyMetadata(further.file, further.folder, temporary) != 0)
        return withdraw({Kind::failed, errno});
    if (!isUntouched(first) || !isUntouched(further))
        return withdraw({Kind::different});
    if (calls.exchange(further.folder, temporary, further.name) != 0)
        return withdraw(failed(errno).error());
    // From here on the temporary name is the old file's. Only what is known to be that is removed.
    clone.release();
    const Held holdsOld(openForLooking(further.folder, temporary));
    const auto old = measureFile(further.folder, temporary);
    if (!old || !old->version.isSameFile(further.version) || old->linkCount > 1 ||
        !hasSameContents(further.file, further.version)) {
        if (calls.exchange(further.folder, temporary, further.name) != 0)
            return std::unexpected(SharingFault{Kind::failed, errno});
        return withdraw({Kind::different});
    }
    if (calls.remove(further.folder, temporary) != 0)
        return std::unexpected(SharingFault{Kind::failed, errno});
    return bytesToFree;
}

} // namespace tarnwell
