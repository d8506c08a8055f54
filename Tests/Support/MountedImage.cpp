#include "Tests/Support/MountedImage.hpp"

#include "TarnwellCore/Analysis/Shell.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#ifdef __linux__
#include <sched.h>
#include <sys/mount.h>
#endif

#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell::test {

namespace {

/// Runs one of the system's administration tools; the reason when it failed, otherwise empty.
std::string failureOf(std::vector<std::string> command) {
    const std::string tool = command.front();
    // They are often beyond the path of a test runner.
    command.insert(command.begin(), "PATH=/usr/sbin:/sbin:/usr/bin:/bin");
    const auto result = Shell::run("/usr/bin/env", command, 60);
    if (!result)
        return "env cannot be started";
    if (result->succeeded())
        return {};
    return tool + " exited with code " + std::to_string(result->exitCode) + ": " + result->standardError;
}

/// Gives this thread a mount table of its own; false where that is not allowed.
#ifdef __linux__
bool separateMounts() {
    static const bool isSeparate =
        ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return isSeparate;
}
#endif

} // namespace

struct MountedImage::Content {
    explicit Content(const Request& wanted) : request(wanted) {}

    Request request;
    TemporaryFolder folder;
    fs::path image = folder / "image.dmg"; // the ending is for macOS
    bool isMounted = false;

    std::string mount(const fs::path& point) {
#ifdef __APPLE__
        std::string failure =
            failureOf({"hdiutil", "attach", "-quiet", "-nobrowse", "-mountpoint", point, image});
#else
        const std::string options = request.type == "tmpfs" ? "size=" + std::to_string(request.size) : "loop";
        const std::string source = request.type == "tmpfs" ? "tarnwell-test" : image.string();
        std::string failure = failureOf({"mount", "-t", request.type, "-o", options, "--", source, point});
#endif
        isMounted = failure.empty();
        return failure;
    }
};

std::expected<std::unique_ptr<MountedImage>, std::string> MountedImage::make(const Request& request) {
    auto content = std::make_unique<Content>(request);
#ifdef __APPLE__
    if (request.type != "tmpfs")
        return std::unexpected("macOS makes no " + request.type);
    if (std::string failure = failureOf({"hdiutil", "create", "-quiet", "-megabytes", "16", "-fs", "HFS+",
                                         "-volname", "tarnwell-test", content->image});
        !failure.empty())
        return std::unexpected(std::move(failure));
#else
    if (::geteuid() != 0)
        return std::unexpected("mounting needs the superuser");
    if (!separateMounts())
        return std::unexpected("this system gives no mount table of one's own");
    if (request.type != "tmpfs") {
        std::ofstream(content->image).close();
        fs::resize_file(content->image, request.size);
        std::vector<std::string> format = {"mkfs." + request.type};
        if (request.type.starts_with("ext"))
            format.emplace_back("-q");
        if (!request.formatOption.empty())
            format.push_back(request.formatOption);
        format.push_back(content->image);
        if (std::string failure = failureOf(format); !failure.empty())
            return std::unexpected(std::move(failure));
    }
#endif
    std::unique_ptr<MountedImage> mounted(new MountedImage(std::move(content)));
    if (std::string failure = mounted->content_->mount(mounted->path_); !failure.empty())
        return std::unexpected(std::move(failure));
    return mounted;
}

MountedImage::MountedImage(std::unique_ptr<Content> content) : content_(std::move(content)) {
    path_ = content_->folder.makeFolder(content_->request.name);
}

MountedImage::~MountedImage() {
    // What the test left open must not keep the folder from being removed.
    if (!content_->isMounted)
        return;
#ifdef __APPLE__
    failureOf({"hdiutil", "detach", "-quiet", "-force", path_});
#else
    failureOf({"umount", "--lazy", "--", path_});
#endif
}

void MountedImage::unmount() {
    if (const std::string failure = failureOf({"umount", "--", path_}); !failure.empty())
        throw std::runtime_error(failure);
    content_->isMounted = false;
}

void MountedImage::remount(const std::string& options) {
    const std::string failure = failureOf({"mount", "-o", "remount," + options, "--", path_});
    if (!failure.empty())
        throw std::runtime_error(failure);
}

} // namespace tarnwell::test
