#include "TarnwellTidyKit/Screen/FramePipe.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarnwell {

namespace {

constexpr char endMark = '\xFF';

} // namespace

FramePipe::FramePipe() {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0)
        throw std::system_error(errno, std::generic_category());
    for (const int end : ends)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    stream_ = ::fdopen(ends[1], "w");
    if (stream_ == nullptr) {
        const int error = errno;
        ::close(ends[0]);
        ::close(ends[1]);
        throw std::system_error(error, std::generic_category());
    }
    // Signals are for the thread that owns the screen.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        reader_ = std::thread([this, descriptor = ends[0]] { read(descriptor); });
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        std::fclose(stream_); // NOLINT(cert-err33-c)
        ::close(ends[0]);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

FramePipe::~FramePipe() {
    std::fclose(stream_); // NOLINT(cert-err33-c)
    reader_.join();
}

std::string FramePipe::collect() {
    std::fflush(stream_); // NOLINT(cert-err33-c)
    while (::write(::fileno(stream_), &endMark, 1) < 0 && errno == EINTR) {
    }
    std::unique_lock guard(mutex_);
    arrived_.wait(guard, [this] { return isWhole_; });
    isWhole_ = false;
    return std::exchange(bytes_, {});
}

void FramePipe::read(int descriptor) {
    std::array<char, std::size_t{1} << 16> buffer;
    for (;;) {
        const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        std::string_view piece(buffer.data(), static_cast<std::size_t>(count));
        const bool isEnd = piece.back() == endMark; // nobody writes before it is collected
        piece.remove_suffix(isEnd ? 1 : 0);
        const std::lock_guard guard(mutex_);
        bytes_ += piece;
        if (isEnd) {
            isWhole_ = true;
            arrived_.notify_one();
        }
    }
    ::close(descriptor);
}

} // namespace tarnwell
