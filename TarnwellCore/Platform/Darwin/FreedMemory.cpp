#include "TarnwellCore/Platform/FreedMemory.hpp"

namespace tarnwell {

void giveLargeBlocksBack() {}

} // namespace tarnwell
