// What the tool does not do itself, as a program: settings, other programs, the Trash, volumes, measuring,
// deleting. Prints what came of it; the exit code is 1 where something failed.

#include "TarnwellCore/Actions/BlockSharing.hpp"
#include "TarnwellCore/Actions/TrashService.hpp"
#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Platform/CloneReplacement.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/UserDefaults.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {
namespace {

using Words = std::vector<std::string>;

int set(const Words& words) {
    const auto defaults = UserDefaults::suite("com.tarnwell");
    defaults->set(words.at(0), words.at(1));
    const bool isStored = defaults->synchronize();
    std::puts(isStored ? "stored" : "kept");
    return isStored ? 0 : 1;
}

int get(const Words& words) {
    const auto value = UserDefaults::suite("com.tarnwell")->string(words.at(0));
    std::puts(value ? value->c_str() : "none");
    return value ? 0 : 1;
}

int trash(const Words& words) {
    const std::vector<std::filesystem::path> items(words.begin(), words.end());
    int exitCode = 0;
    for (const TrashOutcome& outcome : TrashService(std::getenv("HOME")).moveToTrash(items).get()) {
        std::printf("%s %s\n", outcome.succeeded() ? "moved" : "failed", outcome.source.c_str());
        exitCode |= outcome.succeeded() ? 0 : 1;
    }
    return exitCode;
}

void show(const std::optional<CommandResult>& result) {
    if (!result)
        std::puts("not started");
    else
        std::printf("%d [%s] [%s]\n", result->exitCode, result->standardOutput.c_str(),
                    result->standardError.c_str());
}

/// Runs the first script in two ways, and another for longer than it may run.
int shell(const Words& words) {
    show(Shell::run("/bin/sh", {"-c", words.at(0)}, 20));
    show(Shell::runAsync("/bin/sh", {"-c", words.at(0)}, 20, 1).get());
    show(Shell::runAsync("/bin/sh", {"-c", words.at(1)}, 0.05, 30).get());
    return 0;
}

int volumes(const Words&) {
    for (const VolumeInfo& volume : DiskInfo::mountedVolumes(false))
        std::printf("%s\n", volume.path.c_str());
    const auto statistics = DiskInfo::fileSystemStatistics("/dev/null");
    std::printf("%s\n", statistics && statistics->total >= statistics->available ? "figures" : "no figures");
    return 0;
}

int measure(const Words& words) {
    const DirectoryMeasurement measurement = DiskScanner().measure(words.at(0)).get();
    std::printf(
        "%d %lld %lld %lld\n", measurement.isMissing ? 1 : 0, static_cast<long long>(measurement.logicalSize),
        static_cast<long long>(measurement.fileCount), static_cast<long long>(measurement.directoryCount));
    return 0;
}

int deleteSnapshot(const Words& words) {
    SnapshotStore().deleteSnapshot(UUID::parse(words.at(0)).value());
    return 0;
}

/// A clone as a file system without clones has it.
int copyFile(int from, int folder, const char* name) {
    const int to = ::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (to < 0)
        return -1;
    std::array<char, 4096> buffer;
    ssize_t count = 0;
    for (off_t offset = 0; count >= 0; offset += count) {
        count = withoutInterruption([&] { return ::pread(from, buffer.data(), buffer.size(), offset); });
        if (count == 0)
            break;
        for (ssize_t done = 0, written = 0; done < count; done += written) {
            written = withoutInterruption(
                [&] { return ::write(to, buffer.data() + done, static_cast<std::size_t>(count - done)); });
            if (written <= 0) {
                count = -1;
                break;
            }
        }
    }
    ::close(to);
    if (count < 0)
        ::unlinkat(folder, name, 0);
    return count < 0 ? -1 : 0;
}

int copyLooks(int from, int folder, const char* name) {
    struct stat status = {};
    const int to = ::openat(folder, name, O_RDWR | O_CLOEXEC);
    if (to < 0)
        return -1;
    bool isDone = ::fstat(from, &status) == 0 && ::fchmod(to, status.st_mode & 07777) == 0;
    const struct timespec own[2] = {status.st_atim, status.st_mtim};
    isDone = isDone && ::futimens(to, own) == 0;
    ::close(to);
    return isDone ? 0 : -1;
}

/// Makes the second file share with the first: as the platform does, or by "clones".
int share(const Words& words) {
    BlockSharing sharing;
    static const CloneCalls calls{
        .clone = copyFile,
        .copyMetadata = copyLooks,
        .exchange =
            [](int folder, const char* one, const char* other) {
                return ::renameat2(folder, one, folder, other, RENAME_EXCHANGE);
            },
        .remove = [](int folder, const char* name) { return ::unlinkat(folder, name, 0); }};
    if (words.at(0) == "clones")
        sharing.shareExtents = [](const SharingFile& first, const SharingFile& further,
                                  const auto& isCancelled) {
            return replaceByClone(first, further, 1, calls, isCancelled);
        };
    SharingRequest request;
    for (const std::string& path : {words.at(1), words.at(2)}) {
        const auto measured = measureFile(AT_FDCWD, path.c_str());
        if (!measured)
            return 1;
        request.items.push_back({path, measured->version});
    }
    const SharingOutcome outcome = sharing.share(std::move(request)).get().front();
    const bool isDone = std::holds_alternative<SharingDone>(outcome);
    std::puts(isDone ? "shared" : "not shared");
    return isDone ? 0 : 1;
}

/// Forgets memory, and ends as the tool does. Of one block alone a register might know.
int leak(const Words&) {
    for (int count = 0; count < 100; ++count) {
        char* volatile block = new char[50];
        (void)block;
    }
    ::_exit(0);
}

constexpr struct {
    std::string_view name;
    int (*run)(const Words&);
} commands[] = {
    {"set", set},   {"get", get},         {"trash", trash},           {"shell", shell}, {"volumes", volumes},
    {"leak", leak}, {"measure", measure}, {"delete", deleteSnapshot}, {"share", share},
};

int run(const std::string& name, const Words& words) {
    for (const auto& command : commands)
        if (command.name == name)
            return command.run(words);
    std::fprintf(stderr, "no such command: %s\n", name.c_str());
    return 2;
}

} // namespace
} // namespace tarnwell

int main(int count, char** values) {
    try {
        return tarnwell::run(values[1], {values + 2, values + count});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
