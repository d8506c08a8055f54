#pragma once

// Which of some streams of bytes are equal to the last, told by reading them in step and comparing what was
// read. All that is told follows from bytes that were there at the same time, whatever a stream does next.

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <span>
#include <vector>

namespace tarnwell {

/// Of streams of one length. Confined to one thread.
class StepComparison {
public:
    /// The next bytes of a stream, as many from each, or an errno. They have to stay until the next step.
    using Next = std::function<std::expected<std::span<const std::byte>, int>(std::size_t stream)>;
    /// Is told once of each stream that no other equals any more, or that failed, with the errno: nothing
    /// more is read from it.
    using Leave = std::function<void(std::size_t stream, int error)>;

    StepComparison(std::size_t count, Next next, Leave leave);

    /// Reads on until `length` bytes were read from all streams that are left: those of one class, of two and
    /// more each, are equal.
    std::vector<std::vector<std::size_t>> run(std::int64_t length);

private:
    struct Stream {
        std::size_t number;
        std::size_t kind; // of equal ones
        std::span<const std::byte> bytes;
    };

    void readStep();
    void split();

    Next next_;
    Leave leave_;
    std::vector<Stream> streams_; // that are left
    /// Of each kind before a step, in which those after it begin: a stream of it, by its place.
    struct Kind {
        std::size_t before;
        std::size_t first;
        std::size_t count;
    };
    std::vector<Kind> kinds_;
};

} // namespace tarnwell
