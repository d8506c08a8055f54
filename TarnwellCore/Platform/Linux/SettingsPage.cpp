#include "TarnwellCore/Platform/SettingsPage.hpp"

namespace tarnwell {

bool openSettingsPage(const std::string& /*url*/) {
    return false;
}

} // namespace tarnwell
