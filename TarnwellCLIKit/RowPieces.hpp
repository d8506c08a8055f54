#pragma once

// The text of a listing, made of pieces of so many rows: on all processors where it is handed on, one after
// another where it is kept. Either way it is the same text.

#include "TarnwellCLIKit/CLIListing.hpp"
#include "TarnwellCore/Scanning/NodeFetch.hpp"
#include "TarnwellCore/Text/TextOutput.hpp"

#include <cstddef>
#include <functional>
#include <span>
#include <string>

namespace tarnwell {

/// Appends the text of one piece, with `endPart` between rows. Called on any thread, at the same time as
/// those of other pieces.
using RowPiece = std::function<void(TextOutput&)>;

struct ListingParts {
    /// Rows of a piece: their text is about a mebibyte, as long as paths are not very long.
    static constexpr std::size_t pieceRows = 4096;

    /// What stands before and after the rows.
    std::string head;
    std::string tail;
    std::size_t rowCount = 0;
    /// The piece for the rows from `first` to before `last`. Called by one thread at a time, in order.
    std::function<RowPiece(std::size_t first, std::size_t last)> piece;
    /// The text of all rows is no longer than this, and not much shorter, in bytes.
    std::function<std::size_t()> longest;
};

/// To be called for each row before its node is looked at.
inline void fetchNode(std::span<const CLIListedNode> rows, const CLIListedNode& row) {
    if (rows.data() + rows.size() - &row > static_cast<std::ptrdiff_t>(nodesAhead))
        fetchSoon((&row)[nodesAhead].node);
}

std::string wholeListing(const ListingParts& parts);

/// Hands the listing to `sink` in order, one call at a time, but from several threads where there are many
/// rows. What `sink` throws comes out.
void handOnListing(const ListingParts& parts, const TextSink& sink);

} // namespace tarnwell
