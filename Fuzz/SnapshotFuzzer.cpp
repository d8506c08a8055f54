// The decoder of stored snapshots. Input: the document.
// Exercises: TarnwellCore/Snapshots/SnapshotCoding.cpp

#include "TarnwellCore/Snapshots/SnapshotCoding.hpp"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "Fuzz/Require.hpp"

namespace tarnwell::fuzz {

namespace {

SnapshotCoding::ByteSource inPieces(std::string_view document, std::size_t length) {
    return [=](std::span<char> piece) mutable {
        const std::size_t count = document.copy(piece.data(), std::min(piece.size(), length));
        document.remove_prefix(count);
        return static_cast<std::ptrdiff_t>(count);
    };
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    const std::string_view document(reinterpret_cast<const char*>(data), size);
    const auto snapshot = SnapshotCoding::decode(document);
    const std::size_t pieceLength = size % 32 + 1; // any of them, and the same each time
    fuzz::require(SnapshotCoding::decode(fuzz::inPieces(document, pieceLength)) == snapshot,
                  "a document is the same in pieces");
    if (!snapshot)
        return 0;
    const std::string encoded = SnapshotCoding::encode(*snapshot);
    const auto again = SnapshotCoding::decode(encoded);
    fuzz::require(again == snapshot, "what was read is read back");
    fuzz::require(SnapshotCoding::encode(*again) == encoded, "what was written is written again");
    return 0;
}
