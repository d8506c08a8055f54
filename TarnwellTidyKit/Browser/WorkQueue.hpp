#pragma once

// Where jobs are done, away from the keys: a thread for each lane, the jobs of a lane one after another, and
// events as they come.

#include "TarnwellCore/Scanning/CancellationToken.hpp"
#include "TarnwellTidyKit/Browser/BrowserEvent.hpp"
#include "TarnwellTidyKit/Browser/BrowserJob.hpp"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace tarnwell {

/// Every function is safe from any thread.
class WorkQueue {
public:
    using Post = std::function<void(BrowserEvent)>;
    /// Does a job, tells of it by `post`, the end last. Called on the lane's thread. What it throws becomes
    /// the job's failure.
    using Work = std::function<void(const BrowserRequest&, const CancellationToken&, const Post& post)>;

    /// `wake` is called, from any thread, whenever there are events for who had none.
    WorkQueue(Work work, std::function<void()> wake);
    /// Drops what has not begun, calls off what only looks, and waits for what was begun.
    ~WorkQueue();
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    void add(BrowserRequest request);
    /// Calls a job off; one that has not begun never does. Jobs that change something are not called off
    /// once they have begun.
    void cancel(std::uint64_t id);
    /// Drops what of the lane has not begun, but for what is to be kept. Whether something else is under way
    /// in it.
    bool drop(BrowserLane lane, const std::function<bool(const BrowserJob&)>& isKept);
    /// The events since the last call, in the order in which they came.
    std::vector<BrowserEvent> takeEvents();
    /// Whether nothing is under way or waiting.
    bool isIdle() const;
    /// Returns when all that was added to the lane is done.
    void waitFor(BrowserLane lane);

private:
    struct Waiting {
        BrowserRequest request;
        CancellationToken token;
    };
    struct Lane {
        std::deque<Waiting> waiting;
        bool isBusy = false;
        const BrowserRequest* current = nullptr; // while it is busy
        CancellationToken token;
        std::thread thread;
    };

    void run(std::size_t number);
    void post(BrowserEvent event);

    const Work work_;
    const std::function<void()> wake_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::array<Lane, browserLaneCount> lanes_; // guarded by mutex_, but for the threads
    std::vector<BrowserEvent> events_;         // guarded by mutex_
    bool isEnding_ = false;                    // guarded by mutex_
};

} // namespace tarnwell
