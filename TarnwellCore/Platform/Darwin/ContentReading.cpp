#include "TarnwellCore/Platform/ContentReading.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

namespace tarnwell::ContentReadingDetail {

// What is held already is still read from there, and nothing else is kept: there is nothing to give up.
void prepareForPieces(int file) {
    ::fcntl(file, F_NOCACHE, 1);
}

void Piece::start(int file, std::int64_t from, std::size_t count) {
    offset = from;
    length = count;
    filled = 0;
    held = count;
    if (length == 0)
        return;
    struct radvisory range = {.ra_offset = offset, .ra_count = static_cast<int>(length)};
    ::fcntl(file, F_RDADVISE, &range);
}

void Piece::giveUp(int) const {}

} // namespace tarnwell::ContentReadingDetail
