#include "Tests/Support/FaultyFileCalls.hpp"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <limits>

namespace tarnwell::test {

namespace {

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

/// The real calls, before each of which `fails` is asked whether it is to fail; reading and writing move at
/// most so many bytes. A `close` that fails has closed the descriptor.
FileCalls spoiled(const std::function<bool()>& fails, std::size_t largestRead = unlimited,
                  std::size_t largestWrite = unlimited) {
    const FileCalls& live = FileCalls::live();
    FileCalls calls = live;
    calls.open = [=](const char* path, int flags, mode_t mode) {
        return fails() ? -1 : live.open(path, flags, mode);
    };
    calls.read = [=](int descriptor, void* bytes, std::size_t count) {
        return fails() ? -1 : live.read(descriptor, bytes, std::min(count, largestRead));
    };
    calls.write = [=](int descriptor, const void* bytes, std::size_t count) {
        return fails() ? -1 : live.write(descriptor, bytes, std::min(count, largestWrite));
    };
    calls.sync = [=](int descriptor) { return fails() ? -1 : live.sync(descriptor); };
    calls.close = [=](int descriptor) {
        const int result = live.close(descriptor);
        return fails() ? -1 : result;
    };
    calls.rename = [=](const char* from, const char* to) { return fails() ? -1 : live.rename(from, to); };
    return calls;
}

} // namespace

FileCalls FaultyFileCalls::failing(int failingCall, int error) {
    *state_ = {.count = 0, .failingCall = failingCall, .error = error};
    return spoiled([state = state_] {
        if (state->count++ != state->failingCall)
            return false;
        errno = state->error;
        return true;
    });
}

FileCalls FaultyFileCalls::dying(int lastCall) {
    const auto isLast = [lastCall, count = std::make_shared<int>(0)] { return (*count)++ == lastCall; };
    const FileCalls& live = FileCalls::live();
    FileCalls calls = spoiled([isLast] { return isLast() && ::raise(SIGKILL) == 0; });
    calls.read = live.read;
    calls.write = [=](int descriptor, const void* bytes, std::size_t count) {
        if (isLast()) {
            live.write(descriptor, bytes, count / 2);
            ::raise(SIGKILL);
        }
        return live.write(descriptor, bytes, count);
    };
    return calls;
}

FileCalls FaultyFileCalls::halting() {
    const auto isInterrupted = [count = std::make_shared<int>(0)] {
        errno = EINTR;
        return ++*count % 2 == 1;
    };
    FileCalls calls = spoiled(isInterrupted, 7, 5);
    calls.close = FileCalls::live().close;
    calls.rename = FileCalls::live().rename;
    return calls;
}

} // namespace tarnwell::test
