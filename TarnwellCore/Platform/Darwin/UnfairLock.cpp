#include "TarnwellCore/Platform/UnfairLock.hpp"

#include <os/lock.h>

namespace tarnwell {

struct UnfairLock::Primitive {
    os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;
};

UnfairLock::UnfairLock() : primitive_(std::make_unique<Primitive>()) {}
UnfairLock::~UnfairLock() = default;
void UnfairLock::lock() {
    os_unfair_lock_lock(&primitive_->lock);
}
void UnfairLock::unlock() {
    os_unfair_lock_unlock(&primitive_->lock);
}

} // namespace tarnwell
