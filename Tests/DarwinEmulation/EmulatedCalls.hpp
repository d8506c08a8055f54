#pragma once

// The calls of the Darwin kernel that its side of the platform makes, as far as they are not those of Linux.
// EmulatedKernel.hpp tells what stands behind them.

#include <cstddef>
#include <cstdint>

struct stat;

extern "C" {

int emulated_openat(int folder, const char* path, int flags);
int emulated_fcntl(int descriptor, int command);
int emulated_fstat(int descriptor, struct stat* status);
int emulated_fstatat(int folder, const char* path, struct stat* status, int flags);

int getattrlistbulk(int folder, void* list, void* buffer, std::size_t size, std::uint64_t options);
int getiopolicy_np(int type, int scope);
int setiopolicy_np(int type, int scope, int policy);
}
