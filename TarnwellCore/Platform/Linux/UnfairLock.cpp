#include "TarnwellCore/Platform/UnfairLock.hpp"

namespace tarnwell {

struct UnfairLock::Primitive {
    std::mutex mutex;
};

UnfairLock::UnfairLock() : primitive_(std::make_unique<Primitive>()) {}
UnfairLock::~UnfairLock() = default;
void UnfairLock::lock() {
    primitive_->mutex.lock();
}
void UnfairLock::unlock() {
    primitive_->mutex.unlock();
}

} // namespace tarnwell
