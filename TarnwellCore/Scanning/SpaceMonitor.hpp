#pragma once

// Watches the free space of volumes and tells how it changes.

#include "TarnwellCore/Platform/Date.hpp"
#include "TarnwellCore/Scanning/AsyncStream.hpp"
#include "TarnwellCore/Scanning/VolumeInfo.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace tarnwell {

/// What one look at the volumes found.
struct SpaceUpdate {
    std::vector<VolumeInfo> volumes;
    /// Bytes by which `availableCapacity` has grown (or, below 0, shrunk) since the look before, by volume
    /// path. A volume that was not there then has no entry.
    std::map<std::string, std::int64_t> availableDelta;
    Date timestamp;

    /// The sum of all changes in bytes.
    std::int64_t totalFreed() const;
};

/// Looks at the volumes on a thread of its own, at once and then at every interval, until it is stopped or
/// destroyed. Every function is safe from any thread.
class SpaceMonitor {
public:
    /// The volumes that hold these paths, each once. A path that does not exist counts for nothing.
    struct Paths {
        std::vector<std::string> paths;
    };
    /// The browsable volumes.
    struct AllVolumes {};
    struct BootVolume {};
    using Target = std::variant<Paths, AllVolumes, BootVolume>;

    /// Reads the volumes of a target; called on the monitor's thread only.
    using VolumeReader = std::function<std::vector<VolumeInfo>(const Target&)>;

    /// `interval` is in seconds, at least 0.1 (also for NaN). With `emitOnlyOnChange` a look that finds what
    /// the one before found is passed over; the first look is never. `readVolumes` must not
    /// throw. Throws std::system_error when the system has no thread to give.
    SpaceMonitor(double interval, Target target, bool emitOnlyOnChange,
                 VolumeReader readVolumes = liveVolumes);
    ~SpaceMonitor();
    SpaceMonitor(const SpaceMonitor&) = delete;
    SpaceMonitor& operator=(const SpaceMonitor&) = delete;

    /// Ends when the monitor is stopped or destroyed; the handle may outlive the monitor. Keeps the newest
    /// 100 updates that nobody has read.
    AsyncStream<SpaceUpdate> updates() const { return updates_; }

    /// Ends the watch and the stream, and waits for a look that is under way (unless it is that look that
    /// calls). Further calls do nothing.
    void stop();

    /// The volumes of a target as they are now.
    static std::vector<VolumeInfo> liveVolumes(const Target& target);

private:
    struct Control;
    AsyncStream<SpaceUpdate> updates_{100};
    std::shared_ptr<Control> control_;
    std::mutex taskMutex_;
    std::thread task_; // joined under taskMutex_
};

} // namespace tarnwell
