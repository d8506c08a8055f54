#include "TarnwellCore/Platform/NoFetching.hpp"

namespace tarnwell {

NoFetching::NoFetching() = default;
NoFetching::~NoFetching() = default;

} // namespace tarnwell
