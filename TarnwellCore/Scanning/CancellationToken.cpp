#include "TarnwellCore/Scanning/CancellationToken.hpp"

#include <list>
#include <mutex>
#include <utility>

namespace tarnwell {

struct CancellationToken::State {
    std::mutex mutex;
    bool isCancelled = false;                                // guarded by mutex
    std::list<std::shared_ptr<Registration::Entry>> entries; // guarded by mutex
};

struct CancellationToken::Registration::Entry {
    /// Recursive, so that a call-back may end its own registration.
    std::recursive_mutex mutex;
    std::function<void()> callback; // guarded by mutex; empty once called or withdrawn
    std::weak_ptr<State> state;

    void call() {
        const std::lock_guard guard(mutex);
        if (const auto callee = std::exchange(callback, nullptr))
            callee();
    }
};

CancellationToken::Registration::Registration(std::shared_ptr<Entry> entry) : entry_(std::move(entry)) {}
CancellationToken::Registration::Registration(Registration&&) noexcept = default;

CancellationToken::Registration& CancellationToken::Registration::operator=(Registration&& other) noexcept {
    Registration old(std::move(*this));
    entry_ = std::move(other.entry_);
    return *this;
}

CancellationToken::Registration::~Registration() {
    if (!entry_)
        return;
    if (const auto state = entry_->state.lock()) {
        const std::lock_guard guard(state->mutex);
        state->entries.remove(entry_);
    }
    const std::lock_guard guard(entry_->mutex); // waits for a call-back that is running
    entry_->callback = nullptr;
}

CancellationToken::CancellationToken() : state_(std::make_shared<State>()) {}

void CancellationToken::cancel() const {
    std::list<std::shared_ptr<Registration::Entry>> entries;
    {
        const std::lock_guard guard(state_->mutex);
        state_->isCancelled = true;
        entries.swap(state_->entries);
    }
    for (const auto& entry : entries)
        entry->call();
}

bool CancellationToken::isCancelled() const {
    const std::lock_guard guard(state_->mutex);
    return state_->isCancelled;
}

CancellationToken::Registration CancellationToken::onCancel(std::function<void()> callback) const {
    auto entry = std::make_shared<Registration::Entry>();
    entry->callback = std::move(callback);
    entry->state = state_;
    bool isCancelled = false;
    {
        const std::lock_guard guard(state_->mutex);
        isCancelled = state_->isCancelled;
        if (!isCancelled)
            state_->entries.push_back(entry);
    }
    if (isCancelled)
        entry->call();
    return Registration(std::move(entry));
}

} // namespace tarnwell
