#pragma once

// The front door of the scanner: asynchronous scans and measurements, with progress and cancellation.

#include "TarnwellCore/Scanning/AsyncStream.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellCore/Scanning/DirectoryMeasurement.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"

#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tarnwell {

class LiveTree;
class ScanSession;

/// Stateless; may be used from any thread. A future that is dropped waits for its operation to end. Where the
/// system has no thread to give, the operation runs to its end on the calling thread, without progress.
class DiskScanner {
public:
    using ProgressHandler = std::function<void(const ScanProgress&)>;

    /// Scans the folder on background threads. `progress` is called from another thread, every
    /// `options.progressInterval` seconds, never after the future is ready; an exception that it throws ends
    /// the reports and, once the scan is done, leaves the future. The future throws ScanError. `live`, of
    /// this scan alone, lets others look at the tree meanwhile (LiveTree.hpp).
    std::future<ScanResult> scan(const std::filesystem::path& url, ScanOptions options = {},
                                 ProgressHandler progress = nullptr, CancellationToken token = {},
                                 std::shared_ptr<LiveTree> live = nullptr) const;

    /// Reads one folder of a scan again: a result of its own, node by node what scanning the same root with
    /// the same options would give, as far as only what is in and of the folder has changed since; the old
    /// tree stays as it is, for as long as somebody holds it. `folder` is a folder of `old`, which must have
    /// a tree (std::invalid_argument). The folder may have gone, or have become something else. Where what it
    /// holds tells that files elsewhere changed with it (a new link to one of them, blocks newly shared), and
    /// for the root itself, and after scans that did not keep what files share or have folders with sums
    /// alone, everything is scanned again. `folderBytes` is known only then. Otherwise as `scan`.
    std::future<ScanResult> rescan(ScanResult old, const FileNode& folder, ProgressHandler progress = nullptr,
                                   CancellationToken token = {}) const;

    /// The totals of a folder without building a tree. Links are not followed: a missing path gives zeros
    /// with `isMissing`, a file its own sizes. `progress` as in a scan. The future throws ScanError.
    std::future<DirectoryMeasurement> measure(const std::filesystem::path& url, ScanOptions options = {},
                                              CancellationToken token = {},
                                              ProgressHandler progress = nullptr) const;

    /// Measures several paths, one after another.
    std::future<std::map<std::filesystem::path, DirectoryMeasurement>>
    measure(std::vector<std::filesystem::path> urls, ScanOptions options = {},
            CancellationToken token = {}) const;

    /// Starts a scan whose progress is read as a stream.
    std::unique_ptr<ScanSession> session(const std::filesystem::path& url, ScanOptions options = {}) const;

    /// The root path that the engine gets: absolute, links resolved, without a trailing "/" (but "/").
    static std::string normalize(const std::filesystem::path& url);
};

/// One running scan. Destroying it cancels the scan and waits for it to end.
class ScanSession {
public:
    /// `live` as in `DiskScanner::scan`.
    ScanSession(const std::filesystem::path& url, ScanOptions options,
                std::shared_ptr<LiveTree> live = nullptr);
    ~ScanSession();
    ScanSession(const ScanSession&) = delete;
    ScanSession& operator=(const ScanSession&) = delete;

    /// Keeps the newest 4 unread reports. After a successful scan the last one has `isFinished` set; then
    /// the stream ends.
    AsyncStream<ScanProgress> progress() const { return progress_; }

    /// Waits for the result; throws ScanError. May be called more than once, from any thread.
    ScanResult result() const;

    void cancel() const { token_.cancel(); }

private:
    CancellationToken token_;
    AsyncStream<ScanProgress> progress_{4};
    std::shared_future<ScanResult> result_;
};

} // namespace tarnwell
