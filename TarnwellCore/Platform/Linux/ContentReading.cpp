#include "TarnwellCore/Platform/ContentReading.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

namespace tarnwell::ContentReadingDetail {

// The kernel must not read ahead by itself: what it fetched for us would look like what it had held.
void prepareForPieces(int file) {
    ::posix_fadvise(file, 0, 0, POSIX_FADV_RANDOM);
}

void Piece::start(int file, std::int64_t from, std::size_t count) {
    offset = from;
    length = count;
    filled = 0;
    held = 0;
    if (length == 0)
        return;
    const struct iovec target = {buffer.get(), length};
    const ssize_t bytes =
        withoutInterruption([&] { return ::preadv2(file, &target, 1, offset, RWF_NOWAIT); });
    // A file system that cannot tell: then nothing is given up either.
    const bool isKnown = bytes >= 0 || errno == EAGAIN;
    filled = bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
    held = isKnown ? filled : length;
    if (filled < length)
        ::posix_fadvise(file, offset + static_cast<std::int64_t>(filled), static_cast<off_t>(length - filled),
                        POSIX_FADV_WILLNEED);
}

void Piece::giveUp(int file) const {
    if (held == length)
        return;
    // A page that goes on behind the piece was fetched as a whole, and goes as a whole or not at all.
    static const auto page = static_cast<std::int64_t>(::sysconf(_SC_PAGESIZE));
    const std::int64_t start = offset + static_cast<std::int64_t>(held);
    const std::int64_t end = (offset + static_cast<std::int64_t>(length) + page - 1) / page * page;
    ::posix_fadvise(file, start, static_cast<off_t>(end - start), POSIX_FADV_DONTNEED);
}

} // namespace tarnwell::ContentReadingDetail
