#include "TarnwellCore/Platform/SystemFolders.hpp"

namespace tarnwell {

bool belongsToSystem(const std::string& /*path*/) {
    return true;
}

} // namespace tarnwell
