#pragma once

// The commands `tarnwell snapshot save`, `list` and `diff`.

#include "TarnwellCLIKit/CLIResult.hpp"
#include "TarnwellCLIKit/CLIServices.hpp"
#include "TarnwellCLIKit/CLIStyles.hpp"
#include "TarnwellCore/Snapshots/SnapshotDelta.hpp"

#include <string>
#include <string_view>

namespace tarnwell {

class JSONWriter;

namespace CLIRunner {

// Each command passes on what a service throws. `styles` tell how its texts show names.

/// Scans the folder and stores what is at least 1,000,000 bytes large down to four levels below it.
CLIResult saveSnapshot(const std::string& path, bool json, const CLIServices& services,
                       CLIStyles styles = {});

/// Lists the stored snapshots, newest first.
CLIResult listSnapshots(bool json, const CLIServices& services, CLIStyles styles = {});

/// Compares two stored snapshots by allocated size; changes below 10,000,000 bytes are left out.
CLIResult diffSnapshots(std::string_view before, std::string_view after, bool json,
                        const CLIServices& services, CLIStyles styles = {});

/// Writes the members of a snapshot's object, keys from "createdAt" to "totalSize", between the beginning and
/// the end of the object, which are the caller's. Entries are only counted.
void snapshotObject(JSONWriter& writer, const ScanSnapshot& snapshot);

/// Writes the members of a comparison's object, keys from "after" to "version".
void diffObject(JSONWriter& writer, const SnapshotDelta& delta);

/// The comparison as lines of text.
std::string diffText(const SnapshotDelta& delta, NameStyle style = NameStyle::verbatim);

} // namespace CLIRunner

} // namespace tarnwell
