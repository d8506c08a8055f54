#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include "TarnwellCore/Platform/WorkerBodies.hpp"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <utility>

namespace tarnwell {

int activeProcessorCount() {
    @autoreleasepool {
        return std::max(1, static_cast<int>(NSProcessInfo.processInfo.activeProcessorCount));
    }
}

/// The system counts for the whole process, in which the threads of an application wait all the time.
std::int64_t waitsOfThisThread() {
    return 0;
}

struct WorkerThreads::State : WorkerBodies {
    using WorkerBodies::WorkerBodies;

    const dispatch_group_t group = dispatch_group_create();
    int numbers = 0; // that were given; guarded by the mutex

    /// Its number is reserved. Under the lock, as the other.
    void startNew() { start(numbers++); }

    void start(int number) {
        // A block captures `this` as it is: it ends before `run` does.
        dispatch_group_async(group, dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), ^{
          @autoreleasepool {
              run(number);
          }
        });
    }
};

WorkerThreads::WorkerThreads(std::function<void(int)> body) : state_(new State(std::move(body))) {}
WorkerThreads::~WorkerThreads() = default;

void WorkerThreads::addOne(int most) {
    const std::lock_guard guard(state_->mutex);
    if (!state_->freeNumbers.empty()) {
        const int number = state_->freeNumbers.back();
        state_->freeNumbers.pop_back();
        state_->start(number);
    } else if (state_->numbers < most) {
        try {
            state_->reserveNumbers(state_->numbers + 1);
        } catch (const std::exception&) {
            return; // no memory for another: those that run are enough
        }
        state_->startNew();
    }
}

void WorkerThreads::run(int count) {
    // Once a body runs, this must not be left by an exception before all have ended.
    state_->reserveNumbers(count);
    if (count < 2) {
        state_->numbers = 1;
        state_->run(0);
    }
    for (int number = 0; count >= 2 && number < count; ++number) {
        const std::lock_guard guard(state_->mutex);
        state_->startNew();
    }
    dispatch_group_wait(state_->group, DISPATCH_TIME_FOREVER);
    state_->rethrowFirstFailure();
}

} // namespace tarnwell
