#include "TarnwellCore/Platform/ContentReading.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tarnwell {

namespace {

/// Some bytes of a file on their way into a buffer.
struct Piece {
    std::unique_ptr<std::byte[]> buffer{new std::byte[ContentReader::pieceLength]};
    std::int64_t offset = 0;
    std::size_t length = 0;
    std::size_t filled = 0;
    /// Whether the kernel did not hold all of it.
    bool isFetched = false;

    /// Takes what is there without waiting for the disk, and has the kernel fetch the rest.
    void start(int file, std::int64_t from, std::int64_t most) {
        offset = from;
        length = static_cast<std::size_t>(std::clamp<std::int64_t>(most, 0, ContentReader::pieceLength));
        filled = 0;
        isFetched = false;
        if (length == 0)
            return;
        const struct iovec target = {buffer.get(), length};
        const ssize_t held =
            withoutInterruption([&] { return ::preadv2(file, &target, 1, offset, RWF_NOWAIT); });
        // A file system that cannot tell: then nothing is given up either.
        const bool isKnown = held >= 0 || errno == EAGAIN;
        filled = held > 0 ? static_cast<std::size_t>(held) : 0;
        isFetched = isKnown && filled < length;
        if (filled < length)
            ::posix_fadvise(file, offset + static_cast<std::int64_t>(filled),
                            static_cast<off_t>(length - filled), POSIX_FADV_WILLNEED);
    }

    /// 0, or an errno.
    int complete(int file) {
        while (filled < length) {
            const ssize_t bytes = withoutInterruption([&] {
                return ::pread(file, buffer.get() + filled, length - filled,
                               offset + static_cast<std::int64_t>(filled));
            });
            if (bytes < 0)
                return errno;
            if (bytes == 0)
                return ESTALE;
            filled += static_cast<std::size_t>(bytes);
        }
        return 0;
    }

    void giveUp(int file) const {
        if (isFetched)
            ::posix_fadvise(file, offset, static_cast<off_t>(length), POSIX_FADV_DONTNEED);
    }
};

} // namespace

struct ContentReader::State {
    Piece current;
    Piece next;
};

ContentReader::ContentReader() : state_(new State) {}
ContentReader::~ContentReader() = default;

int ContentReader::read(int file, std::int64_t length, const Taker& take) {
    Piece& current = state_->current;
    Piece& next = state_->next;
    // The kernel must not read ahead by itself: what it fetched for us would look like what it had held.
    ::posix_fadvise(file, 0, 0, POSIX_FADV_RANDOM);
    current.start(file, 0, length);
    while (current.length > 0) {
        if (const int error = current.complete(file); error != 0) {
            current.giveUp(file);
            return error;
        }
        const std::int64_t end = current.offset + static_cast<std::int64_t>(current.length);
        next.start(file, end, length - end);
        const bool goesOn = take({current.buffer.get(), current.length});
        current.giveUp(file);
        if (!goesOn) {
            next.giveUp(file);
            return ECANCELED;
        }
        std::swap(current, next);
    }
    return 0;
}

} // namespace tarnwell
