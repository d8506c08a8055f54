#include "TarnwellCore/Platform/JSONFileDefaults.hpp"

#include "TarnwellCore/Platform/DefaultsDocument.hpp"
#include "TarnwellCore/Platform/DurableFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <string>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// A descriptor that is closed with its owner.
class OpenFile {
public:
    OpenFile(const fs::path& path, int flags, const FileCalls& calls) : calls_(calls) {
        do
            descriptor_ = calls.open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, 0666);
        while (descriptor_ == -1 && errno == EINTR);
    }
    ~OpenFile() {
        if (descriptor_ != -1)
            calls_.close(descriptor_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    bool isOpen() const { return descriptor_ != -1; }
    int descriptor() const { return descriptor_; }

    /// Everything from here on; nothing when reading fails.
    std::optional<std::string> contents() const {
        std::string text;
        std::array<char, 16'384> buffer;
        for (;;) {
            const ssize_t count = calls_.read(descriptor_, buffer.data(), buffer.size());
            if (count == -1 && errno == EINTR)
                continue;
            if (count == -1)
                return std::nullopt;
            if (count == 0)
                return text;
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

private:
    const FileCalls& calls_;
    int descriptor_ = -1;
};

/// What tells one state of a file from another.
struct FileState {
    dev_t device;
    ino_t inode;
    off_t size;
    timespec modified;
    timespec changed; // cannot be set back

    explicit FileState(const struct stat& status)
        : device(status.st_dev),
          inode(status.st_ino),
          size(status.st_size),
#ifdef __APPLE__
          modified(status.st_mtimespec),
          changed(status.st_ctimespec) {
    }
#else
          modified(status.st_mtim),
          changed(status.st_ctim) {
    }
#endif

    /// Whether a change from `now` on is certain to bring another state. A file system tells times apart that
    /// lie 2 seconds and a tick from each other, the coarsest of them; where a clock is wrong, never.
    bool isSettled(Date now) const {
        constexpr double coarsest = 3;
        const auto seconds = static_cast<double>(std::max(modified.tv_sec, changed.tv_sec));
        return now.time_since_epoch().count() - seconds > coarsest;
    }

    bool operator==(const FileState& other) const {
        const auto isSame = [](const timespec& a, const timespec& b) {
            return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
        };
        return device == other.device && inode == other.inode && size == other.size &&
               isSame(modified, other.modified) && isSame(changed, other.changed);
    }
};

struct Reading {
    enum class Outcome {
        missing,
        read,
        damaged,     ///< not what a settings file holds, or not for this user to read
        unavailable, ///< cannot be told now, or nothing that may be replaced (a device, a folder)
    };
    Outcome outcome = Outcome::unavailable;
    /// The system's error that makes it unavailable.
    int error = 0;
    DefaultsDocument document = {};
    /// Where its bytes could be read.
    std::unique_ptr<OpenFile> file = nullptr;
    /// Of a file that is not damaged.
    std::optional<FileState> state = std::nullopt;
    bool isSettled = false;
};

Reading readSettings(const fs::path& path, const FileCalls& calls) {
    const Date now = currentDate();
    // Opening must not wait, whatever lies there.
    auto file = std::make_unique<OpenFile>(path, O_RDONLY | O_NONBLOCK, calls);
    if (!file->isOpen()) {
        if (errno == ENOENT)
            return {.outcome = Reading::Outcome::missing};
        if (errno == EACCES || errno == EPERM)
            return {.outcome = Reading::Outcome::damaged};
        return {.error = errno};
    }
    struct stat status = {};
    if (::fstat(file->descriptor(), &status) != 0)
        return {.error = errno};
    if (!S_ISREG(status.st_mode))
        return {.error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL};
    const std::optional<std::string> text = file->contents();
    if (!text)
        return {.error = errno};
    std::optional<DefaultsDocument> document = DefaultsDocument::parse(*text);
    if (!document)
        return {.outcome = Reading::Outcome::damaged, .file = std::move(file)};
    const FileState state(status);
    return {Reading::Outcome::read, 0, std::move(*document), std::move(file), state, state.isSettled(now)};
}

/// With a link of their own other users could have root replace any file.
void requireFollowable(const fs::path& link) {
    struct stat status = {};
    if (::geteuid() == 0 && ::lstat(link.c_str(), &status) == 0 && status.st_uid != 0)
        throw std::system_error(EPERM, std::generic_category(), "Could not follow " + link.string());
}

/// The file that a chain of symbolic links ends at, also where there is none yet. Throws std::system_error
/// for a link that is not to be followed.
fs::path behindLinks(fs::path path) {
    std::error_code error;
    for (int links = 0; links < 40; ++links) {
        const fs::path target = fs::read_symlink(path, error);
        if (error)
            break;
        requireFollowable(path);
        path = target.is_absolute() ? target : path.parent_path() / target;
    }
    return path;
}

fs::path withSuffix(const fs::path& path, const std::string& suffix) {
    return fs::path(path.native() + suffix);
}

/// A second name for a damaged file, while another one takes its place.
class KeptAside {
public:
    /// Throws std::system_error when there is no such name to be had.
    KeptAside(const fs::path& file, const FileCalls& calls) : file_(file), calls_(calls) {
        std::error_code error = std::make_error_code(std::errc::file_exists);
        for (int number = 1; number < 1000; ++number) {
            name_ = withSuffix(file, number == 1 ? ".damaged" : ".damaged-" + std::to_string(number));
            fs::create_hard_link(file, name_, error);
            if (!error)
                return;
            std::error_code unknown;
            if (fs::exists(fs::symlink_status(name_, unknown)))
                continue;
            // No hard links here, or none to this file.
            isRenamed_ = calls.rename(file.c_str(), name_.c_str()) == 0;
            if (isRenamed_)
                return;
            error = {errno, std::generic_category()};
            break;
        }
        throw std::system_error(error, "Could not keep aside the damaged file " + file.string());
    }

    /// Takes the second name away again where no other file took the first.
    void undoUnlessReplaced() const {
        std::error_code error;
        if (!isRenamed_ && fs::equivalent(file_, name_, error))
            calls_.unlink(name_.c_str());
        else if (isRenamed_ && !fs::exists(fs::symlink_status(file_, error)))
            calls_.rename(name_.c_str(), file_.c_str());
    }

private:
    const fs::path& file_;
    const FileCalls& calls_;
    fs::path name_;
    bool isRenamed_ = false;
};

/// Whether a change makes a difference to the document, which it is put into.
bool putInto(DefaultsDocument& document, const UserDefaults::Changes& changes) {
    bool makesDifference = false;
    for (const auto& [key, value] : changes) {
        if (value ? document.value(key) == value : !document.hasMember(key))
            continue;
        if (value)
            document.set(key, *value);
        else
            document.remove(key);
        makesDifference = true;
    }
    return makesDifference;
}

} // namespace

struct JSONFileDefaults::CachedFile {
    /// Open for as long as the values are in use: no other file can get the same inode number meanwhile.
    std::unique_ptr<OpenFile> file;
    FileState state;
    /// Whether a change since would show in the state.
    bool isSettled;
    Values values;
};

JSONFileDefaults::JSONFileDefaults(fs::path file, FileCalls calls, std::chrono::milliseconds patience)
    : file_(std::move(file)), calls_(std::move(calls)), patience_(patience) {}

JSONFileDefaults::~JSONFileDefaults() {
    try {
        synchronize();
    } catch (...) { // NOLINT(bugprone-empty-catch)
        // Out of memory: the changes are lost, as those of a program that ended a moment earlier.
    }
}

/// Brings `cached_` up to date; null when there are no values to be had. The caller holds `mutex_`.
void JSONFileDefaults::refresh() const {
    struct stat status = {};
    if (cached_ && cached_->isSettled && ::stat(file_.c_str(), &status) == 0 &&
        FileState(status) == cached_->state)
        return;
    Reading reading = readSettings(file_, calls_);
    // For want of a descriptor, say: what was read last is nearer to the truth than nothing.
    if (reading.outcome == Reading::Outcome::unavailable)
        return;
    cached_.reset();
    if (reading.outcome == Reading::Outcome::read)
        cached_ = std::make_unique<CachedFile>(std::move(reading.file), *reading.state, reading.isSettled,
                                               reading.document.values());
}

std::optional<UserDefaultsValue> JSONFileDefaults::storedValue(std::string_view key) const {
    const std::lock_guard guard(mutex_);
    if (const auto change = pending_.find(key); change != pending_.end())
        return change->second.value;
    refresh();
    if (!cached_)
        return std::nullopt;
    const auto found = cached_->values.find(key);
    return found != cached_->values.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<std::string> JSONFileDefaults::storingFailure() const {
    const std::lock_guard guard(mutex_);
    return failure_;
}

void JSONFileDefaults::store(Changes changes) {
    std::erase_if(changes, [](const auto& change) { return !DefaultsDocument::canHold(change.first); });
    {
        const std::lock_guard guard(mutex_);
        ++lastSerial_;
        for (auto& [key, value] : changes)
            pending_.insert_or_assign(key, PendingChange{std::move(value), lastSerial_});
    }
    const std::lock_guard writingGuard(writing_);
    storePending(isHeldUp_ ? std::chrono::milliseconds(0) : patience_);
}

bool JSONFileDefaults::synchronize() {
    const std::lock_guard writingGuard(writing_);
    return storePending(patience_);
}

/// The caller holds `writing_`.
bool JSONFileDefaults::storePending(std::chrono::milliseconds patience) {
    Changes changes;
    std::uint64_t serial = 0;
    {
        const std::lock_guard guard(mutex_);
        for (const auto& [key, change] : pending_)
            changes.emplace(key, change.value);
        serial = lastSerial_;
    }
    if (changes.empty())
        return true;
    std::optional<std::string> failure;
    isHeldUp_ = false;
    try {
        write(changes, patience);
    } catch (const std::system_error& error) {
        isHeldUp_ = error.code() == std::errc::device_or_resource_busy;
        failure = error.what();
    }
    const std::lock_guard guard(mutex_);
    failure_ = std::move(failure);
    if (failure_)
        return false;
    std::erase_if(pending_, [&](const auto& change) { return change.second.serial <= serial; });
    return pending_.empty();
}

/// Puts the changes into the file as it is now. Throws std::system_error when that failed and the file is as
/// it was.
void JSONFileDefaults::write(const Changes& changes, std::chrono::milliseconds patience) const {
    const fs::path target = behindLinks(file_);
    if (!target.parent_path().empty())
        createFoldersDurably(target.parent_path(), calls_);
    const FileLock lock(target, calls_, patience);
    Reading reading = readSettings(target, calls_);
    if (reading.outcome == Reading::Outcome::unavailable)
        throw std::system_error(reading.error, std::generic_category(), "Could not read " + target.string());
    if (!putInto(reading.document, changes))
        return;
    std::optional<KeptAside> damaged;
    struct stat status = {};
    const bool isKnown = reading.file && ::fstat(reading.file->descriptor(), &status) == 0;
    const nlink_t linkCount = isKnown ? status.st_nlink : 0;
    if (reading.outcome == Reading::Outcome::damaged)
        damaged.emplace(target, calls_);
    // What is kept aside is nobody else's to read either; where it had a second name before, it may be a file
    // of elsewhere.
    if (damaged && reading.file && linkCount == 1)
        ::fchmod(reading.file->descriptor(), 0600);
    try {
        replaceFileDurably(target, reading.document.text(), calls_);
    } catch (const std::system_error&) {
        if (damaged)
            damaged->undoUnlessReplaced();
        throw;
    }
}

} // namespace tarnwell
