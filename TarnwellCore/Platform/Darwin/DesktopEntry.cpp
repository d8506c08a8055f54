#include "TarnwellCore/Platform/DesktopEntry.hpp"

namespace tarnwell {

std::optional<DesktopEntry> readDesktopEntry(std::string_view /*text*/) {
    return std::nullopt;
}

} // namespace tarnwell
