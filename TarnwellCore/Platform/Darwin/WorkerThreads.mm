#include "TarnwellCore/Platform/WorkerThreads.hpp"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <algorithm>
#include <exception>
#include <mutex>

namespace tarnwell {

int activeProcessorCount() {
    @autoreleasepool {
        return std::max(1, static_cast<int>(NSProcessInfo.processInfo.activeProcessorCount));
    }
}

void runWorkers(int count, const std::function<void(int)>& body) {
    if (count < 2) {
        body(0);
        return;
    }
    std::mutex mutex;
    std::exception_ptr firstFailure; // guarded by mutex
    // Blocks capture by pointer: they end before this function does.
    std::mutex* const mutexPointer = &mutex;
    std::exception_ptr* const failurePointer = &firstFailure;
    const std::function<void(int)>* const bodyPointer = &body;
    const dispatch_group_t group = dispatch_group_create();
    const dispatch_queue_t queue = dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0);
    for (int index = 0; index < count; ++index) {
        dispatch_group_async(group, queue, ^{
          @autoreleasepool {
              try {
                  (*bodyPointer)(index);
              } catch (...) {
                  const std::lock_guard guard(*mutexPointer);
                  if (!*failurePointer)
                      *failurePointer = std::current_exception();
              }
          }
        });
    }
    dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
    if (firstFailure)
        std::rethrow_exception(firstFailure);
}

} // namespace tarnwell
