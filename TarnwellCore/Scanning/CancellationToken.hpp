#pragma once

// How a caller calls off an operation that it has started.

#include <functional>
#include <memory>

namespace tarnwell {

/// A handle on one request to cancel; copies share it. Every function is safe from any thread.
class CancellationToken {
public:
    /// Ends the wish to be told. Returns only when a call-back that is running on another thread has
    /// returned, so whatever the call-back refers to may go away afterwards.
    class Registration {
    public:
        Registration() = default;
        ~Registration();
        Registration(Registration&&) noexcept;
        Registration& operator=(Registration&&) noexcept;

    private:
        friend class CancellationToken;
        struct Entry;
        explicit Registration(std::shared_ptr<Entry> entry);
        std::shared_ptr<Entry> entry_;
    };

    CancellationToken();

    /// Asks for cancellation; the call-backs run on this thread. Further calls do nothing.
    void cancel() const;
    bool isCancelled() const;

    /// Runs `callback` once when cancellation is asked for; at once when it already was.
    [[nodiscard]] Registration onCancel(std::function<void()> callback) const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace tarnwell
