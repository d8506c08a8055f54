#include "TarnwellCLIKit/RowPieces.hpp"

#include "TarnwellCore/Platform/WorkerThreads.hpp"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>

namespace tarnwell {

namespace {

/// Gives the pieces out in order, and lets them hand on their texts in order. A piece whose turn it is hands
/// on as it goes; the others wait as soon as they hold as much as one call takes, so a thread never has more
/// than that in memory, whatever the length of a row.
class Turns {
public:
    Turns(const ListingParts& parts, const TextSink& sink) : parts_(parts), sink_(sink) {}

    /// Thrown where another piece has failed.
    struct Abandoned {};

    /// What a thread does.
    void work() noexcept {
        try {
            std::size_t index = 0;
            const TextSink inTurn = [&](std::string_view text) {
                await(index);
                sink_(text);
            };
            TextOutput output(inTurn);
            output.reserve([] { return std::size_t{0}; });
            while (const RowPiece piece = take(index)) {
                if (index == 0)
                    output.text() += parts_.head;
                piece(output);
                output.handOn();
                await(index); // a piece without a text has its turn, too
                pass();
            }
        } catch (const Abandoned&) {
            return;
        } catch (...) {
            fail(std::current_exception());
        }
    }

    void rethrowFailure() const {
        if (failure_)
            std::rethrow_exception(failure_);
    }

private:
    RowPiece take(std::size_t& index) {
        const std::lock_guard guard(mutex_);
        const std::size_t first = taken_ * ListingParts::pieceRows;
        if (failure_ || first >= parts_.rowCount)
            return {};
        index = taken_++;
        return parts_.piece(first, std::min(first + ListingParts::pieceRows, parts_.rowCount));
    }

    void await(std::size_t index) {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [&] { return turn_ == index || failure_; });
        if (failure_)
            throw Abandoned();
    }

    void pass() {
        const std::lock_guard guard(mutex_);
        ++turn_;
        changed_.notify_all();
    }

    void fail(std::exception_ptr failure) noexcept {
        const std::lock_guard guard(mutex_);
        if (!failure_)
            failure_ = std::move(failure);
        changed_.notify_all();
    }

    const ListingParts& parts_;
    const TextSink& sink_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t taken_ = 0; // pieces; guarded by mutex_, as is all below
    std::size_t turn_ = 0;
    std::exception_ptr failure_;
};

/// On this thread alone.
void append(const ListingParts& parts, TextOutput& output) {
    output.text() += parts.head;
    for (std::size_t first = 0; first < parts.rowCount; first += ListingParts::pieceRows)
        parts.piece(first, std::min(first + ListingParts::pieceRows, parts.rowCount))(output);
    output.text() += parts.tail;
}

} // namespace

std::string wholeListing(const ListingParts& parts) {
    TextOutput output;
    output.reserve([&] { return parts.head.size() + parts.longest() + parts.tail.size(); });
    append(parts, output);
    return output.finish();
}

void handOnListing(const ListingParts& parts, const TextSink& sink) {
    // Threads that only copy text into a pipe after one another gain nothing.
    constexpr std::size_t mostThreads = 8;
    const std::size_t pieces = (parts.rowCount + ListingParts::pieceRows - 1) / ListingParts::pieceRows;
    const std::size_t threads =
        std::min({pieces, mostThreads, static_cast<std::size_t>(std::max(activeProcessorCount(), 1))});
    if (threads < 2) {
        TextOutput output(sink);
        output.reserve([] { return std::size_t{0}; });
        append(parts, output);
        output.finish();
        return;
    }
    Turns turns(parts, sink);
    WorkerThreads([&](WorkerThreads::Place) { turns.work(); }).run(static_cast<int>(threads));
    turns.rethrowFailure();
    sink(parts.tail);
}

} // namespace tarnwell
