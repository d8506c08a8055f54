#pragma once

// Empties Trash folders by deleting what lies in them: where no file browser of the system does it for the
// user.

#include "TarnwellCore/Actions/EmptyTrashOutcome.hpp"
#include "TarnwellCore/Scanning/CancellationToken.hpp"

#include <filesystem>
#include <vector>

namespace tarnwell {

/// Deletes for good what these folders hold, as PermanentRemoval does; missing ones and those of other users
/// are passed over, also a volume's Trash that is reached by a link. A volume that does not answer holds
/// nobody up: its folder counts as left. Of a folder "files" with a folder "info" beside it, what "info"
/// notes of an item goes with the item. Failed with the first reasons when something is left, also when
/// `token` was cancelled. Never throws but for want of memory.
EmptyTrashOutcome emptyTrashFolders(const std::vector<std::filesystem::path>& folders,
                                    const CancellationToken& token = {});

} // namespace tarnwell
