#pragma once

// How a target says that something is wrong: it ends, and the fuzzer keeps the input.

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tarnwell::fuzz {

/// Ends the program with this text unless the condition holds.
inline void require(bool condition, const std::string& text) {
    if (condition)
        return;
    std::fprintf(stderr, "A requirement is not met: %s\n", text.c_str());
    std::abort();
}

} // namespace tarnwell::fuzz
