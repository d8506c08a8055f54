#pragma once

// Finds files of equal contents in trees that were scanned.
//
// Candidates are regular files of equal apparent size. A hash of the first 4,096 bytes, which decides nothing
// else, tells who has no like. Up to 16 that are left are read in step and compared byte by byte, each for as
// long as it has a like. Of more, the SHA-256 of the first 65,536 bytes tells who has none, and that of the
// whole who is equal; so does that of files of up to 65,536 bytes, at once. One inode is one file however
// many links it has. Links, devices, empty files and placeholders whose contents lie elsewhere are never
// opened.
//
// A node of a tree does not say which inode was scanned, so each candidate is measured again before anything
// is opened; from then on it has to stay what it is (FileVersion), or it drops out and the result says so.
//
// The files of a device are read in the order of their inodes, which on most file systems is near the order
// on the disk, by as many threads as there are processors. See ContentReading.hpp for what that leaves of
// other programs' cache. Files in step take at most a quarter of the descriptors that the process may have,
// two for each thread at least, and are fewer than 16 where that is less; where there are none to be had,
// their digests are compared. Memory, however large the files are: some 260 bytes a candidate at most, and
// for each thread a few mebibytes of buffers, or some 24 when many files in step have to be waited for.

#include "TarnwellCore/Analysis/DuplicateOptions.hpp"
#include "TarnwellCore/Analysis/DuplicateResult.hpp"
#include "TarnwellCore/Platform/BlockLayout.hpp"
#include "TarnwellCore/Platform/ContentReading.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace tarnwell {

/// A value without mutable state; may be used from any thread and may go away while a search runs. The
/// functions are called from several threads at once; they are the platform's unless somebody replaces them.
struct DuplicateFinder {
    using ProgressHandler = std::function<void(const DuplicateProgress&)>;

    /// What is at that name in the folder.
    std::function<std::expected<FileMeasurement, FileFault>(int folder, const char* name)> measure;
    std::function<std::expected<int, FileFault>(int folder, const char* name, const FileVersion& version)>
        open;
    /// 0 or an errno, as of `ContentReader::read`.
    std::function<int(ContentReader& reader, int file, std::int64_t length, const ContentReader::Taker& take)>
        read;
    /// The next bytes of a file that is read in step with others, as of `ContentReader::next`.
    std::function<std::expected<std::span<const std::byte>, int>(ContentReader& reader, int file)> readOn;
    std::function<std::optional<BlockLayout>(int file)> layoutOfSharedBlocks;

    /// Wired to the platform.
    DuplicateFinder();

    /// Searches the trees below `roots`, which may be parts of a scanned tree that share its ownership, lie
    /// in one another or be named twice. `progress` is called from another thread every so often, and once
    /// more at the end; never after the future is ready. An exception that it throws leaves the future. The
    /// future throws ScanError when the search was cancelled. Dropping it waits for the search to end.
    std::future<DuplicateResult> find(std::vector<std::shared_ptr<const FileNode>> roots,
                                      DuplicateOptions options = {}, ProgressHandler progress = nullptr,
                                      CancellationToken token = {}) const;
};

} // namespace tarnwell
