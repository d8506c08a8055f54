#pragma once

// The system's unfair lock, which is 32 bits wide and knows its owner.

#include <cstdint>

struct os_unfair_lock {
    std::uint32_t owner; // the thread's number in the kernel; 0 for nobody
};

#define OS_UNFAIR_LOCK_INIT {0}

extern "C" {
/// Ends the process when the thread holds it already.
void os_unfair_lock_lock(os_unfair_lock* lock);
/// Ends the process when the thread does not hold it.
void os_unfair_lock_unlock(os_unfair_lock* lock);
}
