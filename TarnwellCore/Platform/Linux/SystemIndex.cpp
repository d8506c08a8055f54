#include "TarnwellCore/Platform/SystemIndex.hpp"

namespace tarnwell {

std::expected<std::vector<std::string>, SystemIndexFailure>
askSystemIndex(const SystemIndexQuery& /*query*/, const std::function<bool()>& /*isCancelled*/) {
    return std::unexpected(SystemIndexFailure{SystemIndexFailure::Kind::unavailable,
                                              "This system keeps no index of what files contain."});
}

} // namespace tarnwell
