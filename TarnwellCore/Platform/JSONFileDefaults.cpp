#include "TarnwellCore/Platform/JSONFileDefaults.hpp"

#include "TarnwellCore/Platform/DefaultsDocument.hpp"
#include "TarnwellCore/Platform/DurableFile.hpp"
#include "TarnwellCore/Platform/FileStatus.hpp"
#include "TarnwellCore/Platform/KeptAside.hpp"
#include "TarnwellCore/Platform/WholeFile.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// What tells one state of a file from another.
struct FileState {
    dev_t device;
    ino_t inode;
    off_t size;
    FileTimes times;

    explicit FileState(const struct stat& status)
        : device(status.st_dev), inode(status.st_ino), size(status.st_size), times(timesFromStatus(status)) {}

    /// Whether a change from `now` on is certain to bring another state. A file system tells times apart that
    /// lie 2 seconds and a tick from each other, the coarsest of them; where a clock is wrong, never.
    bool isSettled(Date now) const {
        constexpr double coarsest = 3;
        const auto seconds = static_cast<double>(std::max(times.modifiedSeconds, times.changedSeconds));
        return now.time_since_epoch().count() - seconds > coarsest;
    }

    bool operator==(const FileState&) const = default;
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
    /// Of a file that was read.
    std::optional<FileState> state = std::nullopt;
    bool isSettled = false;
};

Reading readSettings(const fs::path& path, const FileCalls& calls) {
    const Date now = currentDate();
    const WholeFile file = WholeFile::read(path, calls);
    switch (file.outcome) {
    case WholeFile::Outcome::missing:
        return {.outcome = Reading::Outcome::missing};
    case WholeFile::Outcome::forbidden:
        return {.outcome = Reading::Outcome::damaged};
    case WholeFile::Outcome::unavailable:
        return {.error = file.error};
    case WholeFile::Outcome::read:
        break;
    }
    std::optional<DefaultsDocument> document = DefaultsDocument::parse(file.text);
    if (!document)
        return {.outcome = Reading::Outcome::damaged};
    const FileState state(file.status);
    return {Reading::Outcome::read, 0, std::move(*document), state, state.isSettled(now)};
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
        cached_ = std::make_unique<CachedFile>(*reading.state, reading.isSettled, reading.document.values());
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

void JSONFileDefaults::change(std::string_view key, const Change& change) {
    if (!DefaultsDocument::canHold(key))
        return;
    const std::lock_guard writingGuard(writing_);
    std::uint64_t serial = 0;
    std::string failure;
    try {
        write(
            [&](const DefaultsDocument& document) {
                const std::lock_guard guard(mutex_);
                const auto pending = pending_.find(key);
                const auto present = pending != pending_.end() ? pending->second.value : document.value(key);
                serial = lastSerial_;
                Changes changes = pendingChanges();
                changes.insert_or_assign(std::string(key), storable(change(present)));
                return changes;
            },
            isHeldUp_ ? std::chrono::milliseconds(0) : patience_);
        isHeldUp_ = false;
        const std::lock_guard guard(mutex_);
        failure_.reset();
        std::erase_if(pending_, [&](const auto& each) { return each.second.serial <= serial; });
        return;
    } catch (const std::system_error& error) {
        isHeldUp_ = error.code() == std::errc::device_or_resource_busy;
        failure = error.what();
    }
    // As any change that cannot be stored now, made from what is seen.
    std::optional<UserDefaultsValue> made = storable(change(storedValue(key)));
    const std::lock_guard guard(mutex_);
    failure_ = std::move(failure);
    pending_.insert_or_assign(std::string(key), PendingChange{std::move(made), ++lastSerial_});
}

bool JSONFileDefaults::synchronize() {
    const std::lock_guard writingGuard(writing_);
    return storePending(patience_);
}

/// The caller holds `mutex_`.
UserDefaults::Changes JSONFileDefaults::pendingChanges() const {
    Changes changes;
    for (const auto& [key, change] : pending_)
        changes.emplace(key, change.value);
    return changes;
}

/// The caller holds `writing_`.
bool JSONFileDefaults::storePending(std::chrono::milliseconds patience) {
    Changes changes;
    std::uint64_t serial = 0;
    {
        const std::lock_guard guard(mutex_);
        changes = pendingChanges();
        serial = lastSerial_;
    }
    if (changes.empty())
        return true;
    std::optional<std::string> failure;
    isHeldUp_ = false;
    try {
        write([&](const DefaultsDocument&) { return changes; }, patience);
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
void JSONFileDefaults::write(const Making& changes, std::chrono::milliseconds patience) const {
    const fs::path target = behindLinks(file_);
    createFoldersDurably(target.parent_path(), calls_);
    const FileLock lock(target, calls_, patience);
    Reading reading = readSettings(target, calls_);
    if (reading.outcome == Reading::Outcome::unavailable)
        throw std::system_error(reading.error, std::generic_category(), "Could not read " + target.string());
    if (!putInto(reading.document, changes(reading.document)))
        return;
    std::optional<KeptAside> damaged;
    if (reading.outcome == Reading::Outcome::damaged)
        damaged.emplace(target, calls_);
    try {
        replaceFileDurably(target, reading.document.text(), calls_);
    } catch (const std::system_error&) {
        if (damaged)
            damaged->undoUnlessReplaced();
        throw;
    }
}

} // namespace tarnwell
