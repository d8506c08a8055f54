#pragma once

// The small lock around short critical sections. It is not recursive and promises no order among waiters.

#include <memory>
#include <mutex>

namespace tarnwell {

/// A lock that lives on the heap, so that its address never changes. Works with std::lock_guard.
class UnfairLock {
public:
    UnfairLock();
    ~UnfairLock();
    UnfairLock(const UnfairLock&) = delete;
    UnfairLock& operator=(const UnfairLock&) = delete;

    void lock();
    void unlock();

    /// Runs `body` while holding the lock and returns what it returns; an exception releases the lock.
    template <class Body>
    decltype(auto) withLock(Body&& body) {
        const std::lock_guard guard(*this);
        return body();
    }

private:
    struct Primitive;
    std::unique_ptr<Primitive> primitive_;
};

} // namespace tarnwell
