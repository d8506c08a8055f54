#pragma once

// From a scanned tree to the output of `tarnwell scan`: which children are listed, and the listing as text,
// JSON or CSV. Depth and top limit what is listed, never what was measured. Pure functions; no recursion.

#include "TarnwellCLIKit/CLIListing.hpp"
#include "TarnwellCore/Text/TextOutput.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwell::CLIRender {

/// The rows for what is below a node: `depthRemaining` levels, in each folder the `top` largest children (all
/// when absent), larger ones first, equal ones by name in byte order. `level` is the depth of the first rows.
std::vector<CLIListedNode> children(const FileNode& of, SizeMode mode, std::int64_t depthRemaining,
                                    std::optional<std::int64_t> top, std::int64_t level);

/// The listing of a whole tree; a negative depth counts as 0.
CLIListedScan listedScan(const FileNode& root, SizeMode mode, std::int64_t depth,
                         std::optional<std::int64_t> top);

// Each document is to be had whole, or in pieces that `sink` gets while it is written; whatever `sink` throws
// comes out.

/// One line a row: size, share, indented name; then the total. Names go out byte for byte.
std::string human(const CLIListedScan& scan);
void human(const CLIListedScan& scan, const TextSink& sink);

/// A pretty-printed JSON document with its keys in ascending order and a line feed at the end.
std::string json(const CLIListedScan& scan);
void json(const CLIListedScan& scan, const TextSink& sink);

/// A header and one line a row. Names and paths go out byte for byte, quoted where they have to be.
std::string csv(const CLIListedScan& scan);
void csv(const CLIListedScan& scan, const TextSink& sink);

/// `human` of the listing of a whole tree.
std::string humanListing(const FileNode& root, SizeMode mode, std::int64_t depth,
                         std::optional<std::int64_t> top);

} // namespace tarnwell::CLIRender
