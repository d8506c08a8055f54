#pragma once

// Reports at intervals, from a thread of their own, while something takes its time.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace tarnwell {

class ProgressPoller {
public:
    /// Calls `report` every `interval` seconds, until this is finished or destroyed, never afterwards; where
    /// there is no thread to be had, not at all.
    ProgressPoller(double interval, std::function<void()> report) : report_(std::move(report)) {
        // Whatever the number, NaN included, the thread neither spins nor sleeps beyond reason.
        const double seconds = interval > 0.001 ? std::min(interval, 86'400.0) : 0.001;
        try {
            thread_ = std::thread([this, seconds] {
                try {
                    poll(seconds);
                } catch (...) {
                    failure_ = std::current_exception();
                }
            });
        } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch)
        }
    }

    ~ProgressPoller() { stop(); }
    ProgressPoller(const ProgressPoller&) = delete;
    ProgressPoller& operator=(const ProgressPoller&) = delete;

    /// Ends the reports; throws what one of them threw, which was the last then.
    void finish() {
        stop();
        if (failure_)
            std::rethrow_exception(failure_);
    }

private:
    void poll(double seconds) {
        std::unique_lock guard(mutex_);
        while (
            !changed_.wait_for(guard, std::chrono::duration<double>(seconds), [&] { return isStopped_; })) {
            guard.unlock();
            report_();
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

    const std::function<void()> report_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isStopped_ = false; // guarded by mutex_
    std::thread thread_;
    std::exception_ptr failure_; // read once the thread has ended
};

} // namespace tarnwell
