#pragma once

// Reading the contents of many files for once: fast, the disk busy while the processor works on what came
// before, and without taking other programs' memory. What the system already held of a file it keeps; what it
// had to fetch for this reader, it is told to give up again. Of a piece of which it held a part only, what
// lies behind the first gap counts as fetched.

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <span>

namespace tarnwell {

/// Reads one file after another. Two buffers, of which memory is taken as far as they are filled. Confined to
/// one thread; several of one thread read files in step.
class ContentReader {
public:
    /// The most bytes that are read, and handed on, at once.
    static constexpr std::size_t pieceLength = std::size_t{1} << 20;

    /// Takes the next bytes; false ends the reading.
    using Taker = std::function<bool(std::span<const std::byte>)>;

    ContentReader();
    ~ContentReader();
    ContentReader(const ContentReader&) = delete;
    ContentReader& operator=(const ContentReader&) = delete;

    /// Hands the first `length` bytes of an open file on, in order, `pieceLength` at a time. 0, or an errno:
    /// ESTALE when the file is shorter, ECANCELED when the taker ended it. Exceptions of the taker pass.
    int read(int file, std::int64_t length, const Taker& take);

    /// The same at the caller's pace. Has the system fetch the beginning and returns; `end` comes before the
    /// file is closed. `next` hands `step` bytes on at a time, and what is held already is read no further
    /// than that; what is not, in pieces that get longer up to `most`. Both are powers of two, the larger of
    /// them at most `pieceLength`.
    void begin(int file, std::int64_t length, std::size_t step, std::size_t most);
    /// The next `step` bytes, or those that are left: none when all were handed on. They stay until the next
    /// call. Or an errno, as above, after which there is nothing to do but to end.
    std::expected<std::span<const std::byte>, int> next();
    /// May be called at any time, also when nothing was begun.
    void end();

private:
    struct State;
    std::unique_ptr<State> state_;
};

namespace ContentReadingDetail {

/// Some bytes of a file on their way into a buffer.
struct Piece {
    std::unique_ptr<std::byte[]> buffer{new std::byte[ContentReader::pieceLength]};
    std::int64_t offset = 0;
    std::size_t length = 0;
    std::size_t filled = 0;
    /// How much the system held when the piece was started; all of it where it cannot tell.
    std::size_t held = 0;

    /// Takes what is there without waiting for the disk, where the system can do that, and has it fetch the
    /// rest. Up to `pieceLength` bytes; 0 makes an empty piece.
    void start(int file, std::int64_t from, std::size_t count);
    /// Waits for the rest, if any. 0, or an errno.
    int complete(int file);
    /// Tells the system that what it fetched is not needed any more.
    void giveUp(int file) const;
};

/// Once for each file, before anything is read from it.
void prepareForPieces(int file);

} // namespace ContentReadingDetail
} // namespace tarnwell
