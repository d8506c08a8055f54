#include "TarnwellCore/Scanning/ScanOptions.hpp"

namespace tarnwell {

const std::set<std::string, std::less<>>& ScanOptions::systemExclusions() {
    static const std::set<std::string, std::less<>> paths = {
        "/dev",
        "/net",
        "/home",
        "/Volumes",
        "/.vol",
        "/.fseventsd",
        "/.Spotlight-V100",
        "/.DocumentRevisions-V100",
        "/.TemporaryItems",
        "/System/Volumes/Data",
        "/System/Volumes/Preboot",
        "/System/Volumes/VM",
        "/System/Volumes/Update",
        "/System/Volumes/xarts",
        "/System/Volumes/iSCPreboot",
        "/System/Volumes/Hardware",
        "/System/Volumes/Recovery",
        "/private/var/vm",
        "/private/var/db/lockdown",
    };
    return paths;
}

} // namespace tarnwell
