#pragma once

// A descriptor with one owner, who closes it.

#include <unistd.h>

#include <utility>

namespace tarnwell {

class OpenDescriptor {
public:
    /// Takes the descriptor over; a negative number is none. Leaves errno alone.
    explicit OpenDescriptor(int number = -1) : number_(number) {}
    ~OpenDescriptor() { close(); }
    OpenDescriptor(OpenDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    OpenDescriptor& operator=(OpenDescriptor&& other) noexcept {
        if (this != &other) {
            close();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }

    int number() const { return number_; }
    bool isOpen() const { return number_ >= 0; }

private:
    void close() const {
        if (number_ >= 0)
            ::close(number_);
    }
    int number_;
};

} // namespace tarnwell
