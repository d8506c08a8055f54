#include "TarnwellCore/Platform/ContentReading.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tarnwell {

int ContentReadingDetail::Piece::complete(int file) {
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

struct ContentReader::State {
    int file = -1;
    std::int64_t length = 0;
    std::size_t step = 0;
    std::size_t most = 0;
    /// How much is read at once.
    std::size_t window = 0;

    ContentReadingDetail::Piece current;
    std::size_t handedOn = 0; // of the current piece
    ContentReadingDetail::Piece following;
    bool isFollowingStarted = false;
    /// Whether the current piece had to be waited for. While nothing has, there is no hurry with the
    /// following: it is read when it is asked for, into memory that is in the processor's cache by then.
    bool isWaiting = false;

    void startFollowing() {
        window = isWaiting ? std::min(2 * window, most) : step;
        const std::int64_t end = current.offset + static_cast<std::int64_t>(current.length);
        following.start(file, end,
                        static_cast<std::size_t>(
                            std::clamp<std::int64_t>(length - end, 0, static_cast<std::int64_t>(window))));
        isFollowingStarted = true;
    }

    int advance() {
        if (!isFollowingStarted)
            startFollowing();
        current.giveUp(file);
        std::swap(current, following);
        isFollowingStarted = false;
        handedOn = 0;
        isWaiting = current.filled < current.length;
        return current.complete(file);
    }
};

ContentReader::ContentReader() : state_(new State) {}
ContentReader::~ContentReader() = default;

void ContentReader::begin(int file, std::int64_t length, std::size_t step, std::size_t most) {
    end();
    ContentReadingDetail::prepareForPieces(file);
    State& state = *state_;
    state.file = file;
    state.length = length;
    state.step = step;
    state.most = std::max(step, most);
    state.isWaiting = false;
    state.current.start(file, 0, 0);
    state.handedOn = 0;
    state.startFollowing();
}

std::expected<std::span<const std::byte>, int> ContentReader::next() {
    State& state = *state_;
    if (state.handedOn == state.current.length)
        if (const int error = state.advance(); error != 0)
            return std::unexpected(error);
    if (state.isWaiting && !state.isFollowingStarted)
        state.startFollowing();
    const std::size_t count = std::min(state.step, state.current.length - state.handedOn);
    const std::span<const std::byte> bytes(state.current.buffer.get() + state.handedOn, count);
    state.handedOn += count;
    return bytes;
}

void ContentReader::end() {
    State& state = *state_;
    if (state.file < 0)
        return;
    state.current.giveUp(state.file);
    if (state.isFollowingStarted) {
        // What is still on its way cannot be given up, and would stay.
        if (state.following.filled < state.following.length)
            (void)state.following.complete(state.file);
        state.following.giveUp(state.file);
    }
    state.isFollowingStarted = false;
    state.file = -1;
}

int ContentReader::read(int file, std::int64_t length, const Taker& take) {
    struct Reading {
        ContentReader& reader;
        ~Reading() { reader.end(); }
    } const reading{*this};
    begin(file, length, pieceLength, pieceLength);
    for (;;) {
        const auto bytes = next();
        if (!bytes)
            return bytes.error();
        if (bytes->empty())
            return 0;
        if (!take(*bytes))
            return ECANCELED;
    }
}

} // namespace tarnwell
