#include "TarnwellCore/Platform/SystemFolders.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/Linux/FileSystemKinds.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace tarnwell {

bool belongsToSystem(const std::string& path) {
    if (path != "/home")
        return true;
    // To open it as a mere place mounts nothing.
    const int folder =
        withoutInterruption([&] { return ::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC); });
    if (folder < 0)
        return false;
    const bool isAutomount = FileSystemKinds().of(folder, 0).mountsOnDemand;
    ::close(folder);
    return isAutomount;
}

} // namespace tarnwell
