#include "TarnwellTidyKit/Commands/TidyInterruption.hpp"

namespace tarnwell {

bool TidyInterruption::isInterrupted() const {
    const std::lock_guard guard(mutex_);
    return isInterrupted_;
}

void TidyInterruption::interrupt() {
    {
        const std::lock_guard guard(mutex_);
        isInterrupted_ = true;
    }
    token_.cancel();
}

void TidyInterruption::waitForActs() {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [&] { return actCount_ == 0; });
}

TidyInterruption::Act::Act(TidyInterruption& interruption) : interruption_(interruption) {
    const std::lock_guard guard(interruption_.mutex_);
    if (interruption_.isInterrupted_)
        throw TidyInterrupted();
    ++interruption_.actCount_;
}

TidyInterruption::Act::~Act() {
    {
        const std::lock_guard guard(interruption_.mutex_);
        --interruption_.actCount_;
    }
    interruption_.changed_.notify_all();
}

} // namespace tarnwell
