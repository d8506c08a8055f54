#pragma once

// A Boolean that one thread sets and others look at, thousands of times a second.

#include <atomic>

namespace tarnwell {

/// Reading costs a plain load: workers look before every entry.
class AtomicFlag {
public:
    void set(bool value = true) noexcept { value_.store(value, std::memory_order_release); }
    bool isSet() const noexcept { return value_.load(std::memory_order_acquire); }

private:
    std::atomic<bool> value_ = false;
};

} // namespace tarnwell
