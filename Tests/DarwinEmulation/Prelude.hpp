#pragma once

// Before the sources in Platform/Darwin: what they expect in the system's headers and Linux has not, or has
// under another name. Numbers are those of the Darwin kernel.

#include "Tests/DarwinEmulation/EmulatedCalls.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

// <fcntl.h>. No bit of them means anything to Linux.
#define O_NOFOLLOW_ANY 0x20000000
#define O_EXEC 0x40000000
#define O_SEARCH (O_EXEC | O_DIRECTORY)
#define F_FULLFSYNC 51

// <sys/stat.h>. The flags travel in a member that Linux leaves unused.
#define st_mtimespec st_mtim
#define st_atimespec st_atim
#define st_ctimespec st_ctim
#define st_flags __glibc_reserved[0]
#define UF_SETTABLE 0x0000ffffU
#define UF_HIDDEN 0x00008000U
#define SF_SETTABLE 0x3fff0000U
#define SF_SYNTHETIC 0xc0000000U
#define SF_FIRMLINK 0x00800000U
#define SF_DATALESS 0x40000000U
#define EF_MAY_SHARE_BLOCKS 0x00000001
#define EF_SHARES_ALL_BLOCKS 0x00000040

// <sys/resource.h>
#define IOPOL_TYPE_VFS_MATERIALIZE_DATALESS_FILES 3
#define IOPOL_SCOPE_THREAD 1
#define IOPOL_MATERIALIZE_DATALESS_FILES_OFF 1

// Calls that behave otherwise there.
#define openat(...) emulated_openat(__VA_ARGS__)
#define fcntl(...) emulated_fcntl(__VA_ARGS__)
#define fstat(...) emulated_fstat(__VA_ARGS__)
#define fstatat(...) emulated_fstatat(__VA_ARGS__)
