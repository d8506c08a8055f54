#pragma once

// Folders that belong to the system on one platform and to people on another.

#include <string>

namespace tarnwell {

/// Whether what lies at this path, one of those that scans leave out as the system's own, is that here. Asks
/// without setting off an automatic mount.
///
/// macOS: always. Linux: "/home" only while an automounter serves it (a file system of type autofs is mounted
/// there); otherwise it is where people keep their files. The other paths always.
bool belongsToSystem(const std::string& path);

} // namespace tarnwell
