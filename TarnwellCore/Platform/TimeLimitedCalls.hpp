#pragma once

// Calls that may never return, such as those to a file system whose server is gone, made by threads that can
// be left waiting.

#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace tarnwell {

/// A family of calls, each known by a key. While the call of one key is under way no other is made for it:
/// something that hangs costs one thread and one wait, however often it is asked for. Safe from any thread.
/// Threads may still wait when this goes away.
template <class Result>
class TimeLimitedCalls {
public:
    using Call = std::function<std::optional<Result>()>;

    /// The result of `call`, which must not throw, or of one that is under way for the same key; nothing when
    /// it does not come within the limit, counted from when that call was made.
    std::optional<Result> get(const std::string& key, std::chrono::milliseconds limit, Call call) {
        std::unique_lock lock(state_->mutex);
        std::shared_ptr<Running>& slot = state_->running[key];
        if (!slot) {
            slot = std::make_shared<Running>();
            slot->giveUpTime = std::chrono::steady_clock::now() + limit;
            try {
                std::thread(make, state_, key, std::move(call)).detach();
            } catch (const std::exception&) { // no thread, or no memory for one
                state_->running.erase(key);
                return std::nullopt;
            }
        }
        const std::shared_ptr<Running> mine = slot;
        state_->changed.wait_until(lock, mine->giveUpTime, [&] { return mine->isDone; });
        return mine->result;
    }

private:
    struct Running {
        std::chrono::steady_clock::time_point giveUpTime;
        bool isDone = false;
        std::optional<Result> result;
    };
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::map<std::string, std::shared_ptr<Running>> running; // guarded by mutex, with what it points to
    };

    static void make(const std::shared_ptr<State>& state, const std::string& key, const Call& call) {
        std::optional<Result> result = call();
        const std::lock_guard guard(state->mutex);
        const auto running = state->running.find(key);
        running->second->result = std::move(result);
        running->second->isDone = true;
        state->running.erase(running);
        state->changed.notify_all();
    }

    std::shared_ptr<State> state_ = std::make_shared<State>();
};

} // namespace tarnwell
