#include "TarnwellCLIKit/CLIUsage.hpp"

namespace tarnwell::CLIUsage {

namespace {

constexpr std::string_view usage = R"(tarnwell — disk usage from Tarnwell

The bundled binary is tarnwell-cli. Settings can install a symlink
named tarnwell.

Usage:
  tarnwell scan <path> [--json | --csv] [--depth N] [--top N] [--size-mode apparent|allocated|reclaimable]
  tarnwell snapshot save <path> [--json]
  tarnwell snapshot diff <before> <after> [--json]
  tarnwell snapshot list [--json]
  tarnwell --help

scan
  One row per child, largest first: a human-readable size, that child's
  share of its parent, and the name. A total line closes the listing.
  --depth N prints N levels of children (default 1). --top N keeps the
  N largest children at each printed level. Both flags limit the
  printout. The walk still measures the whole tree, so every size that
  is printed is exact.

  --size-mode allocated (the default) is what Finder calls "on disk".
  --size-mode apparent is the logical size.
  --size-mode reclaimable is what deleting the item would free. On APFS
  a clone shares its blocks with its origin, so a clone's reclaimable
  size is about zero even when the file looks as large as the original.

snapshot save
  Scans <path> and stores a snapshot in the same folder the app's
  Snapshots tab reads.

snapshot list
  Lists stored snapshots, newest first.

snapshot diff
  Compares two snapshots with SnapshotDelta, using allocated size and
  the same 10 MB threshold as the app. <before> and <after> each take
  a snapshot UUID, a unique prefix of one, or latest / previous.

This tool reads the disk and writes snapshots.

Exit codes:
  0  success
  1  runtime or scan failure
  2  usage error
)";

} // namespace

std::string_view text() {
    return usage;
}

} // namespace tarnwell::CLIUsage
