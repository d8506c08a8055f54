#pragma once

// The way to a folder that may not be there any more.

#include <string_view>

namespace tarnwell {

/// Which links may be followed on the way.
enum class LinksOnTheWay {
    none,         // and no ".." either: the folder lies below the start, whatever others have put there
    ofUserOrRoot, // links that this user or the system has made
};

/// Opens the folder at a path, relative to `start` (the open "/" for an absolute one), to go through it;
/// makes what is missing of it, open to whom the process's mask allows. -1 and errno on failure: ELOOP or
/// EACCES for a link that may not be followed. Good for *at calls only; the caller closes it.
int openOrMakeFolder(int start, std::string_view path, LinksOnTheWay links);

} // namespace tarnwell
