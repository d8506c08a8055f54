#include "TarnwellCore/Platform/WorkerThreads.hpp"

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

struct WorkerThreads::State {
    explicit State(std::function<void(int)> theBody) : body(std::move(theBody)) {}

    const std::function<void(int)> body;
    const dispatch_group_t group = dispatch_group_create();
    std::mutex mutex;
    int started = 0; // guarded by mutex, as is all below
    std::exception_ptr firstFailure;

    void runBody(int index) {
        try {
            body(index);
        } catch (...) {
            const std::lock_guard guard(mutex);
            if (!firstFailure)
                firstFailure = std::current_exception();
        }
    }
};

WorkerThreads::WorkerThreads(std::function<void(int)> body) : state_(new State(std::move(body))) {}
WorkerThreads::~WorkerThreads() = default;

void WorkerThreads::addOne(int most) {
    State* const state = state_.get(); // a block captures it as it is: it ends before `run` does
    const std::lock_guard guard(state->mutex);
    if (state->started >= most)
        return;
    const int index = state->started++;
    dispatch_group_async(state->group, dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), ^{
      @autoreleasepool {
          state->runBody(index);
      }
    });
}

void WorkerThreads::run(int count) {
    if (count < 2) {
        state_->started = 1;
        state_->runBody(0);
    }
    for (int added = 0; count >= 2 && added < count; ++added)
        addOne(count);
    dispatch_group_wait(state_->group, DISPATCH_TIME_FOREVER);
    if (state_->firstFailure)
        std::rethrow_exception(state_->firstFailure);
}

} // namespace tarnwell
