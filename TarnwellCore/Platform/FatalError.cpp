#include "TarnwellCore/Platform/FatalError.hpp"

#include <cstdio>
#include <cstdlib>

namespace tarnwell {

void fatalError(std::string_view message) noexcept {
    static_cast<void>(std::fprintf(stderr, "tarnwell: fatal error: %.*s\n", static_cast<int>(message.size()),
                                   message.data()));
    std::abort();
}

} // namespace tarnwell
