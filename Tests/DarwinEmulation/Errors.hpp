#pragma once

// Before every source of an emulated build: the one error number that the Darwin kernel's callers compare
// with and Linux counts otherwise.

#include <cerrno>

#undef ENOTSUP
#define ENOTSUP 45
