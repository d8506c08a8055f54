#include "TarnwellCore/Platform/DurableFile.hpp"

#include "TarnwellCore/Platform/UUID.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
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

/// Makes a new file with these contents, on the disk; leaves none when that fails.
int writeNewFile(const fs::path& file, std::string_view contents, mode_t mode, const FileCalls& calls) {
    const int descriptor = withoutInterruption(
        [&] { return calls.open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode); });
    if (descriptor == -1)
        return errno;
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
    const fs::path temporary =
        file.parent_path() / ("." + file.filename().string() + "." + UUID::random().text() + ".tmp");
    std::error_code ignored;
    const fs::file_status replaced = fs::symlink_status(file, ignored);
    const bool replacesFile = fs::exists(replaced);
    // Nobody but its owner gets to read the new file who could not read the old one.
    const mode_t mode =
        fs::is_regular_file(replaced) ? 0600 | (static_cast<mode_t>(replaced.permissions()) & 0666) : 0666;
    if (const int error = writeNewFile(temporary, contents, mode, calls))
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

[[noreturn]] void fail(std::error_code error, const char* attempt, const fs::path& path) {
    throw std::system_error(error, attempt + path.string());
}

} // namespace

void replaceFileDurably(const fs::path& file, std::string_view contents, const FileCalls& calls) {
    if (const int error = replaceFile(file, contents, calls))
        fail({error, std::generic_category()}, "Could not write ", file);
}

void createFoldersDurably(const fs::path& folder, const FileCalls& calls) {
    std::error_code error;
    std::vector<fs::path> missing;
    // The root folder is its own parent: also where no folder answers, the way up ends.
    for (fs::path path = folder; path.has_relative_path() && isMissing(path); path = path.parent_path())
        missing.push_back(path);
    fs::create_directories(folder, error);
    if (error)
        fail(error, "Could not create ", folder);
    // Not being allowed to read the folder above is no reason to refuse the one in it.
    for (const fs::path& path : missing) {
        const OpenFolder parent(path.parent_path(), calls);
        if (const int failure = parent.error() == 0 ? parent.sync() : 0) {
            // Were they left, the next attempt would find them there and not sync again.
            for (const fs::path& made : missing)
                fs::remove(made, error);
            fail({failure, std::generic_category()}, "Could not create ", folder);
        }
    }
}

} // namespace tarnwell
