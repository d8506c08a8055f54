#pragma once

// From a scanned tree to the output of `tarnwell scan`: which children are listed, and the listing as text,
// JSON or CSV. Depth and top limit what is listed, never what was measured. Pure functions; no recursion.

#include "TarnwellCLIKit/CLIListing.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
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

// Each document is to be had whole, or in pieces that `sink` gets while it is written: in order and one at a
// time, but a long listing's from several threads. Whatever `sink` throws comes out. With
// `NameStyle::verbatim`, names and paths go out byte for byte.

/// One line a row: size, share, indented name; then the total.
std::string human(const CLIListedScan& scan, NameStyle style = NameStyle::verbatim);
void human(const CLIListedScan& scan, const TextSink& sink, NameStyle style = NameStyle::verbatim);

/// A pretty-printed JSON document with its keys in ascending order and a line feed at the end. To a reader,
/// both styles are the same document; bytes that are not UTF-8 are U+FFFD.
std::string json(const CLIListedScan& scan, NameStyle style = NameStyle::verbatim);
void json(const CLIListedScan& scan, const TextSink& sink, NameStyle style = NameStyle::verbatim);

/// A header and one line a row. Names and paths are quoted where they have to be.
std::string csv(const CLIListedScan& scan, NameStyle style = NameStyle::verbatim);
void csv(const CLIListedScan& scan, const TextSink& sink, NameStyle style = NameStyle::verbatim);

/// `human` of the listing of a whole tree.
std::string humanListing(const FileNode& root, SizeMode mode, std::int64_t depth,
                         std::optional<std::int64_t> top);

} // namespace tarnwell::CLIRender
