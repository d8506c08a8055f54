#include "TarnwellCore/Platform/ContentReading.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tarnwell {

struct ContentReader::State {
    std::unique_ptr<std::byte[]> buffer{new std::byte[pieceLength]};
};

ContentReader::ContentReader() : state_(new State) {}
ContentReader::~ContentReader() = default;

int ContentReader::read(int file, std::int64_t length, const Taker& take) {
    ::fcntl(file, F_NOCACHE, 1); // what is held already is still read from there
    std::int64_t offset = 0;
    while (offset < length) {
        const auto count = std::min<std::int64_t>(length - offset, pieceLength);
        const std::int64_t ahead = std::min<std::int64_t>(length - offset - count, pieceLength);
        const ssize_t bytes = withoutInterruption(
            [&] { return ::pread(file, state_->buffer.get(), static_cast<std::size_t>(count), offset); });
        if (bytes < 0)
            return errno;
        if (bytes == 0)
            return ESTALE;
        offset += bytes;
        if (ahead > 0) {
            struct radvisory next = {.ra_offset = offset, .ra_count = static_cast<int>(ahead)};
            ::fcntl(file, F_RDADVISE, &next);
        }
        if (!take({state_->buffer.get(), static_cast<std::size_t>(bytes)}))
            return ECANCELED;
    }
    return 0;
}

} // namespace tarnwell
