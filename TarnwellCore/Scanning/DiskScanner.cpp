#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/PathMetadata.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace tarnwell {

namespace {

using ProgressHandler = DiskScanner::ProgressHandler;

/// Hands out the engine's totals at intervals, from a thread of its own; where there is none, not at all.
class ProgressPoller {
public:
    ProgressPoller(const ScanEngine& engine, double interval, const ProgressHandler& handler) {
        // Whatever the number, NaN included, the thread neither spins nor sleeps beyond reason.
        const double seconds = interval > 0.001 ? std::min(interval, 86'400.0) : 0.001;
        try {
            thread_ = std::thread([this, &engine, seconds, &handler] {
                try {
                    poll(engine, seconds, handler);
                } catch (...) {
                    failure_ = std::current_exception();
                }
            });
        } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch)
        }
    }

    ~ProgressPoller() { stop(); }

    /// Ends the reports; throws what the handler threw.
    void finish() {
        stop();
        if (failure_)
            std::rethrow_exception(failure_);
    }

private:
    void poll(const ScanEngine& engine, double seconds, const ProgressHandler& handler) {
        std::unique_lock guard(mutex_);
        while (
            !changed_.wait_for(guard, std::chrono::duration<double>(seconds), [&] { return isStopped_; })) {
            guard.unlock();
            handler(engine.progress());
            guard.lock();
        }
    }

    void stop() {
        {
            const std::lock_guard guard(mutex_);
            isStopped_ = true;
        }
        changed_.notify_all();
        if (thread_.joinable())
            thread_.join();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isStopped_ = false; // guarded by mutex_
    std::thread thread_;
    std::exception_ptr failure_; // read once the thread has ended
};

ScanResult runScan(const std::filesystem::path& url, const ScanOptions& options,
                   const ProgressHandler& progress, const CancellationToken& token) {
    ScanEngine engine(DiskScanner::normalize(url), options);
    const auto registration = token.onCancel([&] { engine.cancel(); });
    std::optional<ProgressPoller> poller;
    if (progress)
        poller.emplace(engine, options.progressInterval, progress);
    ScanResult result = engine.run();
    if (poller)
        poller->finish();
    return result;
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
        poller.emplace(engine, options.progressInterval, progress);
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
                                          ProgressHandler progress, CancellationToken token) const {
    return runInBackground([url, options = std::move(options), progress = std::move(progress), token] {
        return runScan(url, options, progress, token);
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

ScanSession::ScanSession(const std::filesystem::path& url, ScanOptions options) {
    result_ = runInBackground([url, options = std::move(options), stream = progress_,
                               token = token_]() -> ScanResult {
                  struct Finisher {
                      AsyncStream<ScanProgress> stream;
                      ~Finisher() { stream.finish(); }
                  } const finisher{stream};
                  ScanResult result = runScan(
                      url, options, [&](const ScanProgress& progress) { stream.yield(progress); }, token);
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
