#pragma once

// Reading the contents of many files for once: fast, the disk busy while the processor works on what came
// before, and without taking other programs' memory. What the system already held of a file it keeps; what it
// had to fetch for this reader, it is told to give up again.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace tarnwell {

/// Two buffers. Confined to one thread.
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

    /// Hands the first `length` bytes of an open file on, in order. 0, or an errno: ESTALE when the file is
    /// shorter, ECANCELED when the taker ended it. Exceptions of the taker pass.
    int read(int file, std::int64_t length, const Taker& take);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace tarnwell
