#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include "TarnwellCore/Platform/DurableFile.hpp"
#include "TarnwellCore/Platform/EntryNames.hpp"
#include "TarnwellCore/Platform/PrivateFile.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Snapshots/SnapshotCoding.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <exception>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

[[noreturn]] void fail(std::error_code error, const char* attempt, const fs::path& path) {
    throw std::system_error(error, attempt + path.string());
}

} // namespace

SnapshotStore::SnapshotStore(std::optional<fs::path> directory, FileCalls calls)
    : isOwnFolder_(!directory),
      directory_(directory ? std::move(*directory) : defaultDirectory()),
      calls_(std::move(calls)) {
    createFoldersDurably(directory_, calls_);
}

fs::path SnapshotStore::defaultDirectory() {
    const std::optional<fs::path> support = applicationSupportDirectory();
    return (support ? *support : homeDirectory() / "Library/Application Support") / "Tarnwell" / "Snapshots";
}

fs::path SnapshotStore::fileOf(const UUID& id) const {
    return directory_ / (id.text() + ".json");
}

void SnapshotStore::save(const ScanSnapshot& snapshot) {
    const std::lock_guard guard(lock_);
    replaceFileDurably(fileOf(snapshot.id), SnapshotCoding::encode(snapshot), calls_);
    makeOlderOnesPrivate();
}

/// Earlier versions let everybody read them.
void SnapshotStore::makeOlderOnesPrivate() const {
    if (isOwnFolder_)
        makePrivate(directory_, S_IFDIR);
    constexpr std::string_view extension = ".json";
    for (const std::string& name : entryNames(directory_)) {
        if (name.ends_with(extension) &&
            UUID::parse(std::string_view(name).substr(0, name.size() - extension.size())))
            makePrivate(directory_ / name, S_IFREG);
    }
}

std::vector<ScanSnapshot> SnapshotStore::list() const {
    const std::lock_guard guard(lock_);
    const std::vector<fs::path> files = snapshotFiles();
    std::vector<std::optional<ScanSnapshot>> found(files.size());
    std::atomic<std::size_t> nextFile = 0;
    const auto readFiles = [&](WorkerThreads::Place) {
        for (std::size_t index = nextFile++; index < files.size(); index = nextFile++)
            found[index] = read(files[index]);
    };
    const auto processors = static_cast<std::size_t>(activeProcessorCount());
    WorkerThreads(readFiles).run(static_cast<int>(std::min(processors, files.size())));

    std::vector<ScanSnapshot> snapshots;
    snapshots.reserve(found.size());
    for (std::optional<ScanSnapshot>& snapshot : found)
        if (snapshot)
            snapshots.push_back(std::move(*snapshot));
    std::ranges::stable_sort(snapshots, std::greater(), &ScanSnapshot::createdAt);
    return snapshots;
}

void SnapshotStore::deleteSnapshot(const UUID& id) {
    const std::lock_guard guard(lock_);
    const fs::path file = fileOf(id);
    if (calls_.unlink(file.c_str()) == -1 && errno != ENOENT)
        fail({errno, std::generic_category()}, "Could not remove ", file);
}

std::vector<fs::path> SnapshotStore::snapshotFiles() const {
    struct File {
        fs::file_time_type modified;
        fs::path path;
    };
    std::vector<File> files;
    std::error_code error;
    fs::directory_iterator entry;
    do
        entry = fs::directory_iterator(directory_, error);
    while (error == std::errc::interrupted);
    while (!error && entry != fs::directory_iterator()) {
        std::error_code unusable;
        // Opening a device may do something.
        if (entry->path().extension() == ".json" && entry->is_regular_file(unusable))
            files.push_back({entry->last_write_time(unusable), entry->path()});
        entry.increment(error);
    }
    if (error)
        fail(error, "Could not list ", directory_);

    // The system's own order means nothing. This one tells snapshots of the same second apart.
    std::ranges::stable_sort(files, std::greater(), &File::modified);
    std::vector<fs::path> paths;
    paths.reserve(files.size());
    for (File& file : files)
        paths.push_back(std::move(file.path));
    return paths;
}

std::optional<ScanSnapshot> SnapshotStore::read(const fs::path& file) const {
    // A pipe that took the file's place a moment ago must not block.
    const int descriptor = withoutInterruption(
        [&] { return calls_.open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0); });
    if (descriptor == -1)
        return std::nullopt;
    std::optional<ScanSnapshot> snapshot;
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        calls_.close(descriptor);
        return std::nullopt;
    }
    try {
        snapshot = SnapshotCoding::decode([&](std::span<char> piece) {
            return withoutInterruption(
                [&] { return std::ptrdiff_t{calls_.read(descriptor, piece.data(), piece.size())}; });
        });
    } catch (const std::exception&) {
        // More entries than there is memory for: this file is passed over like any other that cannot be read.
        snapshot.reset();
    }
    calls_.close(descriptor);
    return snapshot;
}

} // namespace tarnwell
