#pragma once

// Opening folders whose paths may be longer than PATH_MAX, without being led elsewhere by a link.

#include <cstdint>
#include <string>

namespace tarnwell {

/// Opens the folder of that name, neither a path nor "..", in `folder` for reading, on block devices by one
/// call as a rule. A link in its place is an error. With `device`, so is what lies on another one, such as a
/// file system that was mounted there, or a subvolume that was put there, a moment ago: EXDEV; where the
/// kernel can be told so (Linux 5.6), it triggers no automount either. -1 and errno on failure.
int openSubfolder(int folder, const char* name, const std::int32_t* device);

/// Opens the folder at a path below `folder` for reading. No link is followed anywhere in the path, and
/// `device` is as for `openSubfolder`, of the path's end. -1 and errno on failure.
int openFolderBelow(int folder, const std::string& relativePath, const std::int32_t* device);

/// The device of an open folder of which the listing of its parent said `listed`. On Linux that is it, and
/// nothing is asked; on macOS the listing tells nothing of what is mounted on a folder.
std::int32_t deviceOfOpened(int folder, std::int32_t listed);

/// Opens the folder of that name in `folder` to go through it, not to read it; a link in its place is an
/// error (ELOOP or ENOTDIR). -1 and errno on failure.
int openSubfolderForTraversal(int folder, const char* name);

/// Opens the folder at a path for reading; a link at its end is an error. -1 and errno on failure.
int openFolder(const std::string& path);

/// For a path that the system refuses as too long: opens the folder that holds its last component, which
/// is put into `lastComponent`. Good for *at calls only. -1 and errno on failure.
int openParentOfLongPath(const std::string& path, std::string& lastComponent);

namespace FolderOpeningDetail {

/// Opens a folder to go through it, not to read it; follows links.
int openForTraversal(int folder, const char* relativePath);

/// As `openFolderBelow`, for a path shorter than PATH_MAX.
int openShortPathBelow(int folder, const char* relativePath, const std::int32_t* device);

} // namespace FolderOpeningDetail
} // namespace tarnwell
