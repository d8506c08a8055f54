#include "TarnwellCore/Platform/FreshMemory.hpp"

namespace tarnwell {

void populate(void*, std::size_t) {}

} // namespace tarnwell
