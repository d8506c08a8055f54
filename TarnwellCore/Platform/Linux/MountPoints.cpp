#include "TarnwellCore/Platform/MountPoints.hpp"

namespace tarnwell {

std::set<std::string, std::less<>> mountPointsBesideListings() {
    return {};
}

} // namespace tarnwell
