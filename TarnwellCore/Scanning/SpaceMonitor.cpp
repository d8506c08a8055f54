#include "TarnwellCore/Scanning/SpaceMonitor.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/DiskInfo.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <optional>
#include <utility>

namespace tarnwell {

namespace {

constexpr double shortestInterval = 0.1;
/// Decades; what is longer than the clock can count is no different.
constexpr double longestInterval = 1e9;

std::map<std::string, std::int64_t> changes(const std::vector<VolumeInfo>& before,
                                            const std::vector<VolumeInfo>& now) {
    std::map<std::string_view, std::int64_t> available;
    for (const VolumeInfo& volume : before)
        available.emplace(volume.path, volume.availableCapacity);
    std::map<std::string, std::int64_t> delta;
    for (const VolumeInfo& volume : now) {
        if (const auto found = available.find(volume.path); found != available.end())
            delta.emplace(volume.path, checkedSubtract(volume.availableCapacity, found->second));
    }
    return delta;
}

} // namespace

std::int64_t SpaceUpdate::totalFreed() const {
    std::int64_t total = 0;
    for (const auto& [path, change] : availableDelta)
        addChecked(total, change);
    return total;
}

/// What the monitor and its thread share.
struct SpaceMonitor::Control {
    std::mutex mutex;
    std::condition_variable stopped;
    bool isStopped = false;              // guarded by mutex
    std::atomic<std::thread::id> looker; // the monitor's thread, once it runs

    /// Returns whether the monitor was stopped meanwhile.
    bool waitFor(std::chrono::duration<double> interval) {
        std::unique_lock lock(mutex);
        return stopped.wait_for(lock, interval, [&] { return isStopped; });
    }
};

SpaceMonitor::SpaceMonitor(double interval, Target target, bool emitOnlyOnChange, VolumeReader readVolumes)
    : control_(std::make_shared<Control>()) {
    const std::chrono::duration<double> pause(
        interval > shortestInterval ? std::min(interval, longestInterval) : shortestInterval);
    // The thread owns all it uses, so that a reader that destroys the monitor does it no harm.
    task_ = std::thread([control = control_, updates = updates_, pause, target = std::move(target),
                         emitOnlyOnChange, readVolumes = std::move(readVolumes)] {
        control->looker = std::this_thread::get_id();
        std::optional<std::vector<VolumeInfo>> previous;
        do {
            SpaceUpdate update;
            update.volumes = readVolumes(target);
            update.timestamp = currentDate();
            if (!emitOnlyOnChange || !previous || *previous != update.volumes) {
                std::vector<VolumeInfo> current = update.volumes;
                if (previous)
                    update.availableDelta = changes(*previous, current);
                updates.yield(std::move(update));
                previous = std::move(current);
            }
        } while (!control->waitFor(pause));
    });
}

SpaceMonitor::~SpaceMonitor() {
    stop();
    // Still there only when this is the thread itself.
    if (task_.joinable())
        task_.detach();
}

void SpaceMonitor::stop() {
    {
        const std::lock_guard guard(control_->mutex);
        control_->isStopped = true;
    }
    control_->stopped.notify_all();
    updates_.finish();
    if (control_->looker.load() == std::this_thread::get_id())
        return;
    const std::lock_guard guard(taskMutex_);
    if (task_.joinable())
        task_.join();
}

std::vector<VolumeInfo> SpaceMonitor::liveVolumes(const Target& target) {
    if (std::holds_alternative<AllVolumes>(target))
        return DiskInfo::mountedVolumes(false);
    std::vector<VolumeInfo> volumes;
    if (const auto* wanted = std::get_if<Paths>(&target)) {
        for (const std::string& path : wanted->paths) {
            auto volume = DiskInfo::volumeContaining(path);
            if (volume && std::ranges::count(volumes, volume->path, &VolumeInfo::path) == 0)
                volumes.push_back(std::move(*volume));
        }
    } else if (auto volume = DiskInfo::bootVolume()) {
        volumes.push_back(std::move(*volume));
    }
    return volumes;
}

} // namespace tarnwell
