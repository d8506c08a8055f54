#pragma once

// The system's calls on files as values, so that a test can make each of them fail. Each has the signature,
// the result and the errno of the call it is named after.

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <functional>

namespace tarnwell {

struct FileCalls {
    std::function<int(const char* path, int flags, mode_t mode)> open;
    std::function<ssize_t(int descriptor, void* bytes, std::size_t count)> read;
    std::function<ssize_t(int descriptor, const void* bytes, std::size_t count)> write;
    /// Returns once what was written through the descriptor (for a folder: its entries) would survive a loss
    /// of power, as far as the device says so.
    std::function<int(int descriptor)> sync;
    /// Gives the descriptor back also when it fails.
    std::function<int(int descriptor)> close;
    std::function<int(const char* from, const char* to)> rename;
    std::function<int(const char* path)> unlink;

    /// The system's own.
    static const FileCalls& live();
};

/// Repeats a call for as long as a signal interrupts it.
template <class Call>
auto withoutInterruption(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR)
            return result;
    }
}

} // namespace tarnwell
