#include "TarnwellCore/Platform/DurableFile.hpp"

#include "TarnwellCore/Platform/EntryNames.hpp"
#include "TarnwellCore/Platform/FolderOwner.hpp"
#include "TarnwellCore/Platform/UUID.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

// Every function here that returns a plain `int` gives 0 or the number of the system's error.

/// Some systems refuse to write 2 GiB and more at once.
constexpr std::size_t largestWrite = std::size_t{1} << 30;

int errorOf(int result) {
    return result == -1 ? errno : 0;
}

int writeAll(int descriptor, std::string_view contents, const FileCalls& calls) {
    while (!contents.empty()) {
        const std::size_t count = std::min(contents.size(), largestWrite);
        const ssize_t written =
            withoutInterruption([&] { return calls.write(descriptor, contents.data(), count); });
        if (written == -1)
            return errno;
        if (written == 0)
            return EIO;
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

/// A file that is held open and locked: a sign that it is being written, for as long as this lives.
class BeingWritten {
public:
    BeingWritten() = default;
    ~BeingWritten() {
        if (descriptor_ != -1)
            ::close(descriptor_);
    }
    BeingWritten(const BeingWritten&) = delete;
    BeingWritten& operator=(const BeingWritten&) = delete;

    /// Where it cannot be shown, age alone has to tell a file that nobody writes any more.
    void show(int descriptor) {
        ::flock(descriptor, LOCK_EX | LOCK_NB);
        descriptor_ = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    }

private:
    int descriptor_ = -1;
};

/// Makes a new file with these contents, on the disk; leaves none when that fails.
int writeNewFile(const fs::path& file, std::string_view contents, BeingWritten& sign,
                 const FileCalls& calls) {
    const fs::path folder = file.parent_path(); // nothing may throw while the file is open
    const int descriptor = withoutInterruption(
        [&] { return calls.open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); });
    if (descriptor == -1)
        return errno;
    sign.show(descriptor);
    giveToOwnerOf(folder, descriptor);
    int error = writeAll(descriptor, contents, calls);
    if (error == 0)
        error = errorOf(withoutInterruption([&] { return calls.sync(descriptor); }));
    const int closeError = errorOf(calls.close(descriptor));
    if (error == 0 && closeError != EINTR)
        error = closeError;
    if (error != 0)
        calls.unlink(file.c_str());
    return error;
}

// --- What killed processes left ---------------------------------------------------------------------------

constexpr std::size_t uuidLength = 36;
constexpr std::string_view temporaryEnd = ".tmp";

std::string temporaryName(const std::string& name) {
    return "." + name + "." + UUID::random().text().append(temporaryEnd);
}

/// A name without the identity that it may begin with: files that differ there only are of one kind.
std::string_view kindOf(std::string_view name) {
    const bool hasIdentity = UUID::parse(name.substr(0, uuidLength)).has_value();
    return hasIdentity ? name.substr(uuidLength) : name;
}

/// Whether this is the name of a temporary file for a file like the one of this name.
bool isTemporaryNameFor(std::string_view name, std::string_view candidate) {
    constexpr std::size_t added = 2 + uuidLength + temporaryEnd.size(); // beside the file's name
    if (candidate.size() <= added || candidate.front() != '.' || !candidate.ends_with(temporaryEnd))
        return false;
    const std::string_view identity = candidate.substr(candidate.size() - added + 2, uuidLength);
    const std::string_view written = candidate.substr(1, candidate.size() - added);
    return candidate[candidate.size() - added + 1] == '.' && UUID::parse(identity) &&
           kindOf(written) == kindOf(name) && (written.size() == name.size());
}

/// Whether a temporary file was left by a process that is no more.
bool isLeftOver(const fs::path& file) {
    constexpr auto longestWriting = std::chrono::hours(24);
    struct stat status = {};
    // To open a device may do something.
    if (::lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (descriptor == -1)
        return false;
    const bool isOurs = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
                        (::geteuid() == 0 || status.st_uid == ::geteuid());
    const auto modified = std::chrono::system_clock::from_time_t(status.st_mtime);
    const bool isOld = std::chrono::system_clock::now() - modified > longestWriting;
    const bool isLeft =
        isOurs && isOld && (::flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK);
    ::close(descriptor);
    return isLeft;
}

/// Takes away what earlier writers of such a file left when they were killed. Never fails: it is no reason
/// not to write.
void removeLeftovers(const fs::path& file, const FileCalls& calls) {
    const fs::path folder = file.parent_path();
    const std::string name = file.filename().string();
    for (const std::string& candidate : entryNames(folder))
        if (isTemporaryNameFor(name, candidate) && isLeftOver(folder / candidate))
            calls.unlink((folder / candidate).c_str());
}

// --- Folders ----------------------------------------------------------------------------------------------

/// A folder that is open for as long as this lives.
class OpenFolder {
public:
    OpenFolder(const fs::path& folder, const FileCalls& calls)
        : calls_(calls),
          descriptor_(withoutInterruption([&] {
              return calls.open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
          })),
          error_(errorOf(descriptor_)) {}
    ~OpenFolder() {
        if (error_ == 0)
            calls_.close(descriptor_);
    }
    OpenFolder(const OpenFolder&) = delete;
    OpenFolder& operator=(const OpenFolder&) = delete;

    /// Why the folder is not open; 0 when it is.
    int error() const { return error_; }

    /// Where a file system has no way to sync a folder, renaming is as durable as it gets there.
    int sync() const {
        const int error = errorOf(withoutInterruption([&] { return calls_.sync(descriptor_); }));
        return error == EINVAL || error == ENOTSUP ? 0 : error;
    }

private:
    const FileCalls& calls_;
    int descriptor_;
    int error_;
};

int replaceFile(const fs::path& file, std::string_view contents, const FileCalls& calls) {
    // Opened first: a folder that could not be synced in the end is better refused at the start.
    const OpenFolder folder(file.parent_path(), calls);
    if (folder.error() != 0)
        return folder.error();
    removeLeftovers(file, calls);
    const fs::path temporary = file.parent_path() / temporaryName(file.filename().string());
    std::error_code ignored;
    const bool replacesFile = fs::exists(fs::symlink_status(file, ignored));
    BeingWritten sign;
    if (const int error = writeNewFile(temporary, contents, sign, calls))
        return error;
    if (calls.rename(temporary.c_str(), file.c_str()) == -1) {
        const int error = errno;
        calls.unlink(temporary.c_str());
        return error;
    }
    const int error = folder.sync();
    if (error != 0 && !replacesFile)
        calls.unlink(file.c_str());
    return error;
}

/// False also where that cannot be told.
bool isMissing(const fs::path& path) {
    std::error_code error;
    return fs::status(path, error).type() == fs::file_type::not_found;
}

bool isEmptyFolder(int descriptor) {
    const int own = ::openat(descriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const folder = own != -1 ? ::fdopendir(own) : nullptr;
    if (folder == nullptr)
        return own != -1 && ::close(own) != 0;
    std::size_t count = 0;
    while (count < 3 && ::readdir(folder) != nullptr)
        ++count;
    ::closedir(folder);
    return count == 2;
}

/// Makes one folder that nobody else may look into. Whether it is there is for the caller to see.
int makePrivateFolder(const fs::path& folder) {
    if (const int error = errorOf(withoutInterruption([&] { return ::mkdir(folder.c_str(), 0700); })))
        return error;
    if (::geteuid() != 0)
        return 0;
    const fs::path above = folder.parent_path(); // nothing may throw while the folder is open
    // Whoever owns the folder above may have put another one here by now; an empty one of root's is as good.
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status = {};
    if (descriptor == -1)
        return 0;
    if (::fstat(descriptor, &status) == 0 && status.st_uid == 0 && isEmptyFolder(descriptor))
        giveToOwnerOf(above, descriptor);
    ::close(descriptor);
    return 0;
}

[[noreturn]] void fail(std::error_code error, const char* attempt, const fs::path& path) {
    throw std::system_error(error, attempt + path.string());
}

} // namespace

void replaceFileDurably(const fs::path& file, std::string_view contents, const FileCalls& calls) {
    if (const int error = replaceFile(file, contents, calls))
        fail({error, std::generic_category()}, "Could not write ", file);
}

void createFoldersDurably(const fs::path& folder, const FileCalls& calls) {
    if (folder.empty())
        return;
    std::error_code error;
    std::vector<fs::path> missing;
    // The root folder is its own parent: also where no folder answers, the way up ends.
    for (fs::path path = folder; path.has_relative_path() && isMissing(path); path = path.parent_path())
        missing.push_back(path);
    int failure = 0;
    for (auto path = missing.rbegin(); path != missing.rend() && (failure == 0 || failure == EEXIST); ++path)
        failure = makePrivateFolder(*path);
    if (!fs::is_directory(folder, error)) {
        if (failure != 0 && failure != EEXIST)
            error = {failure, std::generic_category()};
        fail(error ? error : std::make_error_code(std::errc::not_a_directory), "Could not create ", folder);
    }
    // Not being allowed to read the folder above is no reason to refuse the one in it.
    for (const fs::path& path : missing) {
        const OpenFolder parent(path.parent_path(), calls);
        failure = parent.error() == 0 ? parent.sync() : 0;
        if (failure != 0) {
            // Were they left, the next attempt would find them there and not sync again.
            for (const fs::path& made : missing)
                fs::remove(made, error);
            fail({failure, std::generic_category()}, "Could not create ", folder);
        }
    }
}

} // namespace tarnwell
