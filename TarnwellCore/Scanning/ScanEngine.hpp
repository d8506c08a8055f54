#pragma once

// Walks one folder tree with several threads and returns its FileNode tree, or only its totals.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"
#include "TarnwellCore/Scanning/AtomicFlag.hpp"
#include "TarnwellCore/Scanning/ExclusionIndex.hpp"
#include "TarnwellCore/Scanning/HardlinkRegistry.hpp"
#include "TarnwellCore/Scanning/ScanQueue.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tarnwell {

struct DirectoryCalls;
class LiveTree;
struct ScanContext;
class TreeArena;

/// One scan. `run` is called once; `cancel` and `progress` may be called from any thread while it runs.
class ScanEngine {
public:
    /// `rootPath` names a folder, absolute or relative to the working directory, without a trailing "/"; a
    /// link is not followed. Without `buildsTree` the result has statistics but no root. `calls` must
    /// outlive the engine.
    ScanEngine(std::string rootPath, ScanOptions options, bool buildsTree = true);
    ScanEngine(std::string rootPath, ScanOptions options, bool buildsTree, const DirectoryCalls& calls);

    /// Lets others look at the tree while it is read. Before `run`, and only where a tree is built.
    void show(std::shared_ptr<LiveTree> live) { live_ = std::move(live); }

    /// Blocks until the tree is read. Throws ScanError for what is wrong with the root and when the scan was
    /// cancelled, std::bad_alloc when memory runs out. A sum of sizes beyond 64 bits is a fatal error.
    ScanResult run();

    /// Instead of `run`, with the root path and the options of a scan before: reads one folder of it again
    /// and returns what a scan of everything would, as far as nothing outside of the folder has changed by
    /// itself. Nothing when only scanning everything tells; `run` is then for another engine to call. Throws
    /// as `run` does.
    std::optional<ScanResult> rescan(const ScanResult& old, const FileNode& folder);

    /// Makes `run` throw soon; before `run`, at once.
    void cancel() { cancelFlag_.set(); }

    /// The totals up to now.
    ScanProgress progress() const;

    /// Worker threads for this many processors, when the options name none.
    static int defaultWorkerCount(int processors);

private:
    struct Workers;
    ScanContext contextFor(TreeArena* arena, std::int32_t rootDeviceID, std::atomic<int>& rootError);
    ScanResult read();
    void work(const ScanContext& context, const Workers& workers);
    Workers workers() const;
    /// Null when the root is dataless.
    FolderRef openRoot(RawDirectoryEntry& entry) const;

    const std::string rootPath_;
    const ScanOptions options_;
    const bool buildsTree_;
    const DirectoryCalls& calls_;
    const std::chrono::steady_clock::time_point startTime_;
    AtomicFlag cancelFlag_;
    ExclusionIndex exclusions_; // immutable while workers run
    HardlinkRegistry hardlinks_;
    ScanQueue queue_;
    std::shared_ptr<LiveTree> live_; // may be null
};

} // namespace tarnwell
