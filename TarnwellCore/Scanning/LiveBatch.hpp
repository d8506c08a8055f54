#pragma once

// What a worker tells a LiveTree of the folders that it read in one batch.

#include "TarnwellCore/Scanning/LiveTree.hpp"
#include "TarnwellCore/Scanning/ScanQueue.hpp"

#include <cstdint>
#include <vector>

namespace tarnwell {

/// One folder that a worker is done with.
struct LiveRecord {
    enum class Kind : std::uint8_t {
        /// It has its children, folders last, and the sums of its own files, with their number; its count of
        /// folders is that of those among its children.
        settled,
        /// It was read, or could not be, and has no children; below a folder without nodes this stands for
        /// one of those that it takes in.
        bare,
        /// Listed by its parent, and not going to be read.
        closed,
    };

    FileNode* node = nullptr;
    /// How many folders that it holds are going to be read.
    std::uint32_t opened = 0;
    /// Of the node, when it was written for the last time before the end.
    FileNodeFlags flags = {};
    Kind kind = Kind::bare;
};

/// The bytes of a file with several links that a folder's own sums count.
struct LiveLink {
    FileNode* folder = nullptr;
    LiveBytes bytes;
};

struct LiveBatch {
    /// A folder before those below it.
    std::vector<LiveRecord> records;
    std::vector<LiveLink> links;
    std::vector<CollapseDelta> collapsed;

    bool isEmpty() const { return records.empty() && links.empty() && collapsed.empty(); }
};

} // namespace tarnwell
