#pragma once

// What a library writes to a descriptor, caught as bytes. The screen library writes as if to the terminal and
// waits where that is slow; behind this it never waits, and the frame is sent when the line has room.

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace tarnwell {

/// Makes a thread that reads. `stream` and `collect` are for one thread.
class FramePipe {
public:
    /// Throws std::system_error.
    FramePipe();
    ~FramePipe();
    FramePipe(const FramePipe&) = delete;
    FramePipe& operator=(const FramePipe&) = delete;

    /// What is to be written to: UTF-8, in which the byte FF never occurs.
    std::FILE* stream() const { return stream_; }
    /// Everything that has been written since the last time.
    std::string collect();

private:
    void read(int descriptor);

    std::FILE* stream_ = nullptr;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::string bytes_;    // guarded by mutex_
    bool isWhole_ = false; // guarded by mutex_: the end mark has come
    std::thread reader_;
};

} // namespace tarnwell
