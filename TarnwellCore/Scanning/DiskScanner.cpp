#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/LiveTree.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"
#include "TarnwellCore/Scanning/ProgressPoller.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include <optional>
#include <stdexcept>
#include <utility>

namespace tarnwell {

namespace {

using ProgressHandler = DiskScanner::ProgressHandler;

/// What `body` makes of the engine, with reports and where it may be called off.
template <class Body>
auto watched(ScanEngine& engine, const ProgressHandler& progress, double interval,
             const CancellationToken& token, Body&& body) {
    const auto registration = token.onCancel([&] { engine.cancel(); });
    std::optional<ProgressPoller> poller;
    if (progress)
        poller.emplace(interval, [&] { progress(engine.progress()); });
    auto result = body(engine);
    if (poller)
        poller->finish();
    return result;
}

ScanResult runScan(const std::string& root, const ScanOptions& options, const ProgressHandler& progress,
                   const CancellationToken& token, const std::shared_ptr<LiveTree>& live = nullptr) {
    ScanEngine engine(root, options);
    engine.show(live);
    return watched(engine, progress, options.progressInterval, token,
                   [](ScanEngine& each) { return each.run(); });
}

ScanResult runRescan(const ScanResult& old, const FileNode& folder, const ProgressHandler& progress,
                     const CancellationToken& token) {
    const std::string root(old.root->name());
    ScanEngine engine(root, old.options);
    auto result = watched(engine, progress, old.options.progressInterval, token,
                          [&](ScanEngine& each) { return each.rescan(old, folder); });
    return result ? *std::move(result) : runScan(root, old.options, progress, token);
}

/// An empty path is the root's.
std::string withoutTrailingSlashes(const std::string& path) {
    return path.empty() ? "/" : std::string(PathUtil::withoutTrailingSlashes(path));
}

DirectoryMeasurement runMeasurement(const std::filesystem::path& url, const ScanOptions& options,
                                    const CancellationToken& token,
                                    const ProgressHandler& progress = nullptr) {
    DirectoryMeasurement measurement;
    const auto metadata = PathMetadata::lstat(withoutTrailingSlashes(url.string()));
    if (!metadata) {
        measurement.isMissing = true;
        return measurement;
    }
    if (!metadata->isDirectory) {
        measurement.logicalSize = metadata->logicalSize;
        measurement.allocatedSize = metadata->allocatedSize;
        measurement.reclaimableSize = metadata->allocatedSize;
        measurement.fileCount = 1;
        return measurement;
    }
    ScanEngine engine(DiskScanner::normalize(url), options, false);
    const auto registration = token.onCancel([&] { engine.cancel(); });
    std::optional<ProgressPoller> poller;
    if (progress)
        poller.emplace(options.progressInterval, [&] { progress(engine.progress()); });
    const ScanStats stats = engine.run().stats;
    if (poller)
        poller->finish();
    measurement.logicalSize = stats.totalSize;
    measurement.allocatedSize = stats.totalAllocatedSize;
    measurement.reclaimableSize = stats.totalReclaimableSize;
    measurement.fileCount = stats.fileCount;
    measurement.directoryCount = stats.directoryCount;
    return measurement;
}

ScanProgress finalProgress(const ScanResult& result) {
    ScanProgress progress;
    progress.fileCount = result.stats.fileCount;
    progress.directoryCount = result.stats.directoryCount;
    progress.bytesScanned = result.stats.totalSize;
    progress.allocatedBytesScanned = result.stats.totalAllocatedSize;
    progress.reclaimableBytesScanned = result.stats.totalReclaimableSize;
    progress.currentPath = result.root->path();
    progress.elapsed = result.duration;
    progress.isFinished = true;
    return progress;
}

} // namespace

std::string DiskScanner::normalize(const std::filesystem::path& url) {
    return withoutTrailingSlashes(resolveLinks(url));
}

std::future<ScanResult> DiskScanner::scan(const std::filesystem::path& url, ScanOptions options,
                                          ProgressHandler progress, CancellationToken token,
                                          std::shared_ptr<LiveTree> live) const {
    return runInBackground(
        [url, options = std::move(options), progress = std::move(progress), token, live = std::move(live)] {
            return runScan(normalize(url), options, progress, token, live);
        });
}

std::future<ScanResult> DiskScanner::rescan(ScanResult old, const FileNode& folder, ProgressHandler progress,
                                            CancellationToken token) const {
    if (old.root == nullptr || !folder.isDirectory() || &folder.root() != old.root.get())
        throw std::invalid_argument("only a folder of the scan can be read again");
    return runInBackground([old = std::move(old), &folder, progress = std::move(progress), token] {
        return runRescan(old, folder, progress, token);
    });
}

std::future<DirectoryMeasurement> DiskScanner::measure(const std::filesystem::path& url, ScanOptions options,
                                                       CancellationToken token,
                                                       ProgressHandler progress) const {
    return runInBackground([url, options = std::move(options), token, progress = std::move(progress)] {
        return runMeasurement(url, options, token, progress);
    });
}

std::future<std::map<std::filesystem::path, DirectoryMeasurement>>
DiskScanner::measure(std::vector<std::filesystem::path> urls, ScanOptions options,
                     CancellationToken token) const {
    return runInBackground([urls = std::move(urls), options = std::move(options), token] {
        std::map<std::filesystem::path, DirectoryMeasurement> measurements;
        for (const auto& url : urls)
            measurements[url] = runMeasurement(url, options, token);
        return measurements;
    });
}

std::unique_ptr<ScanSession> DiskScanner::session(const std::filesystem::path& url,
                                                  ScanOptions options) const {
    return std::make_unique<ScanSession>(url, std::move(options));
}

ScanSession::ScanSession(const std::filesystem::path& url, ScanOptions options,
                         std::shared_ptr<LiveTree> live) {
    result_ =
        runInBackground([url, options = std::move(options), stream = progress_, token = token_,
                         live = std::move(live)]() -> ScanResult {
            struct Finisher {
                AsyncStream<ScanProgress> stream;
                ~Finisher() { stream.finish(); }
            } const finisher{stream};
            ScanResult result = runScan(
                url, options, [&](const ScanProgress& progress) { stream.yield(progress); }, token, live);
            stream.yield(finalProgress(result));
            return result;
        }).share();
}

ScanSession::~ScanSession() {
    cancel();
    result_.wait();
}

ScanResult ScanSession::result() const {
    return result_.get();
}

} // namespace tarnwell
