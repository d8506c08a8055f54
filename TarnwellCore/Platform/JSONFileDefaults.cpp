#include "TarnwellCore/Platform/JSONFileDefaults.hpp"

#include "TarnwellCore/Platform/DefaultsDocument.hpp"
#include "TarnwellCore/Platform/DurableFile.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
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
struct FileIdentity {
    std::int32_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    double modified = 0;

    explicit FileIdentity(const struct stat& status) {
        const RawDirectoryEntry entry = entryFromStatus(status);
        device = entry.deviceID;
        inode = entry.fileID;
        size = entry.logicalSize;
        modified = entry.modificationSeconds;
    }
    bool operator==(const FileIdentity&) const = default;
};

struct Reading {
    enum class Outcome {
        missing,
        read,
        damaged,     ///< not what a settings file holds, or not to be read by this user
        unavailable, ///< cannot be told now, or nothing that may be replaced (a device, a folder)
    };
    Outcome outcome = Outcome::unavailable;
    DefaultsDocument document = {};
    /// Of a file that was read.
    std::unique_ptr<OpenFile> file = nullptr;
    std::optional<FileIdentity> identity = std::nullopt;
};

Reading readSettings(const fs::path& path, const FileCalls& calls) {
    // Opening must not wait, whatever lies there.
    auto file = std::make_unique<OpenFile>(path, O_RDONLY | O_NONBLOCK, calls);
    if (!file->isOpen()) {
        if (errno == ENOENT)
            return {.outcome = Reading::Outcome::missing};
        if (errno == EACCES || errno == EPERM)
            return {.outcome = Reading::Outcome::damaged};
        return {};
    }
    struct stat status = {};
    if (::fstat(file->descriptor(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    const std::optional<std::string> text = file->contents();
    std::optional<DefaultsDocument> document = text ? DefaultsDocument::parse(*text) : std::nullopt;
    if (!document)
        return {.outcome = Reading::Outcome::damaged};
    return {Reading::Outcome::read, std::move(*document), std::move(file), FileIdentity(status)};
}

/// The file that a chain of symbolic links ends at, also where there is none yet.
fs::path behindLinks(fs::path path) {
    std::error_code error;
    for (int links = 0; links < 40; ++links) {
        const fs::path target = fs::read_symlink(path, error);
        if (error)
            break;
        path = target.is_absolute() ? target : path.parent_path() / target;
    }
    return path;
}

fs::path withSuffix(const fs::path& path, const std::string& suffix) {
    return fs::path(path.native() + suffix);
}

/// The file by which the writers of a settings file take turns; locked for as long as this lives.
class WritersLock {
public:
    /// Waits for its turn.
    WritersLock(const fs::path& path, const FileCalls& calls) : writable_(path, O_RDWR | O_CREAT, calls) {
        if (writable_.isOpen()) {
            isHeld_ = lock(writable_);
        } else if (errno == EACCES || errno == EPERM || errno == EROFS) {
            // Another user's, for instance root's. Network file systems lock only what is open for writing.
            readOnly_.emplace(path, O_RDONLY, calls);
            isHeld_ = readOnly_->isOpen() && (lock(*readOnly_) || errno == EBADF);
        }
    }

    /// Also true where the file system has no locks to give: the writer goes on all the same.
    bool isHeld() const { return isHeld_; }

private:
    static bool lock(const OpenFile& file) {
        const int result = withoutInterruption([&] { return ::flock(file.descriptor(), LOCK_EX); });
        return result == 0 || errno == ENOLCK || errno == ENOTSUP || errno == ENOSYS || errno == EINVAL;
    }

    OpenFile writable_;
    std::optional<OpenFile> readOnly_;
    bool isHeld_ = false;
};

/// A second name for a damaged file, while another one takes its place.
class KeptAside {
public:
    KeptAside(const fs::path& file, const FileCalls& calls) : file_(file), calls_(calls) {
        for (int number = 1; number < 1000; ++number) {
            name_ = withSuffix(file, number == 1 ? ".damaged" : ".damaged-" + std::to_string(number));
            std::error_code error;
            fs::create_hard_link(file, name_, error);
            if (!error) {
                state_ = State::linked;
                return;
            }
            if (fs::exists(fs::symlink_status(name_, error)))
                continue;
            // No hard links here, or none to this file.
            if (calls.rename(file.c_str(), name_.c_str()) == 0)
                state_ = State::renamed;
            return;
        }
    }

    bool isKept() const { return state_ != State::failed; }

    /// Takes the second name away again where no other file took the first.
    void undoUnlessReplaced() const {
        std::error_code error;
        if (state_ == State::linked && fs::equivalent(file_, name_, error))
            calls_.unlink(name_.c_str());
        else if (state_ == State::renamed && !fs::exists(fs::symlink_status(file_, error)))
            calls_.rename(name_.c_str(), file_.c_str());
    }

private:
    enum class State { failed, linked, renamed };
    const fs::path& file_;
    const FileCalls& calls_;
    fs::path name_;
    State state_ = State::failed;
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
    FileIdentity identity;
    Values values;
};

JSONFileDefaults::JSONFileDefaults(fs::path file, FileCalls calls)
    : file_(std::move(file)), calls_(std::move(calls)) {}

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
    if (cached_ && ::stat(file_.c_str(), &status) == 0 && FileIdentity(status) == cached_->identity)
        return;
    Reading reading = readSettings(file_, calls_);
    // For want of a descriptor, say: what was read last is nearer to the truth than nothing.
    if (reading.outcome == Reading::Outcome::unavailable)
        return;
    cached_.reset();
    if (reading.outcome == Reading::Outcome::read)
        cached_ = std::make_unique<CachedFile>(std::move(reading.file), *reading.identity,
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

void JSONFileDefaults::store(Changes changes) {
    std::erase_if(changes, [](const auto& change) { return !DefaultsDocument::canHold(change.first); });
    {
        const std::lock_guard guard(mutex_);
        ++lastSerial_;
        for (auto& [key, value] : changes)
            pending_.insert_or_assign(key, PendingChange{std::move(value), lastSerial_});
    }
    synchronize();
}

bool JSONFileDefaults::synchronize() {
    const std::lock_guard writingGuard(writing_);
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
    if (!write(changes))
        return false;
    const std::lock_guard guard(mutex_);
    std::erase_if(pending_, [&](const auto& change) { return change.second.serial <= serial; });
    return pending_.empty();
}

/// Puts the changes into the file as it is now; false when that failed and the file is as it was.
bool JSONFileDefaults::write(const Changes& changes) const {
    const fs::path target = behindLinks(file_);
    try {
        if (!target.parent_path().empty())
            createFoldersDurably(target.parent_path(), calls_);
    } catch (const std::system_error&) {
        return false;
    }
    const WritersLock lock(withSuffix(target, ".lock"), calls_);
    if (!lock.isHeld())
        return false;
    Reading reading = readSettings(target, calls_);
    if (reading.outcome == Reading::Outcome::unavailable)
        return false;
    if (!putInto(reading.document, changes))
        return true;
    std::optional<KeptAside> damaged;
    if (reading.outcome == Reading::Outcome::damaged && !damaged.emplace(target, calls_).isKept())
        return false;
    try {
        replaceFileDurably(target, reading.document.text(), calls_);
        return true;
    } catch (const std::system_error&) {
        if (damaged)
            damaged->undoUnlessReplaced();
        return false;
    }
}

} // namespace tarnwell
