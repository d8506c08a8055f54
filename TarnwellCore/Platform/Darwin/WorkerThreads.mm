#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include "TarnwellCore/Platform/WorkerBodies.hpp"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <system_error>
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

    /// False when `most` run. Under the lock.
    bool startOne(int most) {
        Place place = Place::regular;
        if (!takePlace(most, place))
            return false;
        // A block captures `this` as it is: it ends before `run` does.
        dispatch_group_async(group, dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), ^{
          @autoreleasepool {
              run(place, [] {});
          }
        });
        return true;
    }

    /// As `startOne`, from `run`.
    bool startAnother(int count) {
        try {
            if (beforeStart)
                beforeStart();
        } catch (const std::system_error&) {
            return false;
        }
        const std::lock_guard guard(mutex);
        return startOne(count);
    }

    void runHere() {
        Place place = Place::regular;
        {
            const std::lock_guard guard(mutex);
            takePlace(regularCount, place);
        }
        run(place, [] {});
    }
};

WorkerThreads::WorkerThreads(Body body, std::function<void()> beforeStart)
    : state_(new State(std::move(body), std::move(beforeStart))) {}
WorkerThreads::~WorkerThreads() = default;

bool WorkerThreads::mayBeNested() {
    return false;
}

void WorkerThreads::addOne(int most) {
    const std::lock_guard guard(state_->mutex);
    state_->startOne(most);
}

void WorkerThreads::run(int count) {
    state_->regularCount = std::max(count, 1);
    int started = 0;
    while (count >= 2 && started < count && state_->startAnother(count))
        ++started;
    if (started == 0)
        state_->runHere();
    dispatch_group_wait(state_->group, DISPATCH_TIME_FOREVER);
    state_->rethrowFirstFailure();
}

} // namespace tarnwell
