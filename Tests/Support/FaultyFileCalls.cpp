#include "Tests/Support/FaultyFileCalls.hpp"

#include <signal.h>

#include <algorithm>
#include <cerrno>

namespace tarnwell::test {

FileCalls FaultyFileCalls::failing(int failingCall, int error) {
    *state_ = {.count = 0, .failingCall = failingCall, .error = error};
    const auto fails = [state = state_] {
        if (state->count++ != state->failingCall)
            return false;
        errno = state->error;
        return true;
    };
    const FileCalls& live = FileCalls::live();
    FileCalls calls = live;
    calls.open = [=](const char* path, int flags, mode_t mode) {
        return fails() ? -1 : live.open(path, flags, mode);
    };
    calls.read = [=](int descriptor, void* bytes, std::size_t count) {
        return fails() ? -1 : live.read(descriptor, bytes, count);
    };
    calls.write = [=](int descriptor, const void* bytes, std::size_t count) {
        return fails() ? -1 : live.write(descriptor, bytes, count);
    };
    calls.sync = [=](int descriptor) { return fails() ? -1 : live.sync(descriptor); };
    calls.close = [=, state = state_](int descriptor) {
        const int result = live.close(descriptor);
        return fails() ? -1 : result;
    };
    calls.rename = [=](const char* from, const char* to) { return fails() ? -1 : live.rename(from, to); };
    return calls;
}

FileCalls FaultyFileCalls::dying(int lastCall) {
    const auto isLast = [lastCall, count = std::make_shared<int>(0)] { return (*count)++ == lastCall; };
    const auto mayDie = [isLast] {
        if (isLast())
            ::raise(SIGKILL);
    };
    const FileCalls& live = FileCalls::live();
    FileCalls calls = live;
    calls.open = [=](const char* path, int flags, mode_t mode) {
        mayDie();
        return live.open(path, flags, mode);
    };
    calls.write = [=](int descriptor, const void* bytes, std::size_t count) {
        if (isLast()) {
            live.write(descriptor, bytes, count / 2);
            ::raise(SIGKILL);
        }
        return live.write(descriptor, bytes, count);
    };
    calls.sync = [=](int descriptor) {
        mayDie();
        return live.sync(descriptor);
    };
    calls.close = [=](int descriptor) {
        mayDie();
        return live.close(descriptor);
    };
    calls.rename = [=](const char* from, const char* to) {
        mayDie();
        return live.rename(from, to);
    };
    return calls;
}

FileCalls FaultyFileCalls::halting() {
    const auto isInterrupted = [count = std::make_shared<int>(0)] {
        errno = EINTR;
        return ++*count % 2 == 1;
    };
    const FileCalls& live = FileCalls::live();
    FileCalls calls = live;
    calls.open = [=](const char* path, int flags, mode_t mode) {
        return isInterrupted() ? -1 : live.open(path, flags, mode);
    };
    calls.read = [=](int descriptor, void* bytes, std::size_t count) {
        return isInterrupted() ? -1 : live.read(descriptor, bytes, std::min<std::size_t>(count, 7));
    };
    calls.write = [=](int descriptor, const void* bytes, std::size_t count) {
        return isInterrupted() ? -1 : live.write(descriptor, bytes, std::min<std::size_t>(count, 5));
    };
    calls.sync = [=](int descriptor) { return isInterrupted() ? -1 : live.sync(descriptor); };
    return calls;
}

} // namespace tarnwell::test
