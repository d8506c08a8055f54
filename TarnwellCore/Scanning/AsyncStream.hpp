#pragma once

// A queue from a producer to a reader who waits; when the reader lags, the oldest values are dropped.

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace tarnwell {

/// A handle on one stream; copies share it. Every function is safe from any thread; each value reaches one
/// reader.
template <class T>
class AsyncStream {
public:
    /// Keeps at most the `newest` values that nobody has read yet (at least 1).
    explicit AsyncStream(std::size_t newest = std::numeric_limits<std::size_t>::max())
        : state_(std::make_shared<State>()) {
        state_->capacity = newest == 0 ? 1 : newest;
    }

    /// Adds a value; ignored after `finish`.
    void yield(T value) const {
        {
            const std::lock_guard guard(state_->mutex);
            if (state_->isFinished)
                return;
            state_->values.push_back(std::move(value));
            if (state_->values.size() > state_->capacity)
                state_->values.pop_front();
        }
        state_->changed.notify_one();
    }

    /// Ends the stream; values not read yet can still be read.
    void finish() const {
        {
            const std::lock_guard guard(state_->mutex);
            state_->isFinished = true;
        }
        state_->changed.notify_all();
    }

    /// The next value, waiting for it; nothing once the stream has ended and all is read.
    std::optional<T> next() const {
        std::unique_lock guard(state_->mutex);
        state_->changed.wait(guard, [&] { return !state_->values.empty() || state_->isFinished; });
        if (state_->values.empty())
            return std::nullopt;
        std::optional<T> value(std::move(state_->values.front()));
        state_->values.pop_front();
        return value;
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<T> values;     // guarded by mutex
        std::size_t capacity = 1; // constant after construction
        bool isFinished = false;  // guarded by mutex
    };
    std::shared_ptr<State> state_;
};

} // namespace tarnwell
