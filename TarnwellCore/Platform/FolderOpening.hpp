#pragma once

// Opening folders whose paths may be longer than PATH_MAX, without being led elsewhere by a link.

#include <string>

namespace tarnwell {

/// Opens the folder at a path below `folder` for reading. No link is followed anywhere in the path: a link
/// that was put in the place of a folder is an error. -1 and errno on failure.
int openFolderBelow(int folder, const std::string& relativePath);

/// Opens the folder at a path for reading; a link at its end is an error. -1 and errno on failure.
int openFolder(const std::string& path);

/// For a path that the system refuses as too long: opens the folder that holds its last component, which
/// is put into `lastComponent`. Good for *at calls only. -1 and errno on failure.
int openParentOfLongPath(const std::string& path, std::string& lastComponent);

namespace FolderOpeningDetail {

/// Opens a folder to go through it, not to read it; follows links.
int openForTraversal(int folder, const char* relativePath);

/// As `openFolderBelow`, for a path shorter than PATH_MAX and longer than one component.
int openShortPathBelow(int folder, const char* relativePath);

} // namespace FolderOpeningDetail
} // namespace tarnwell
