#include "TarnwellCore/Platform/FileCalls.hpp"

#include "Tests/DarwinEmulation/EmulatedKernel.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

namespace tarnwell {
namespace {

TEST(FileCalls, WhereADriveCannotEmptyItsCacheTheSystemsIsEnough) {
    const test::TemporaryFolder folder;
    const int file = ::open(folder.makeFile("file").c_str(), O_WRONLY | O_CLOEXEC);
    for (const int error : {0, ENOTSUP, EINVAL, ENOTTY, ENODEV}) {
        const test::EmulatedKernel kernel({.fullSyncError = error});
        EXPECT_EQ(FileCalls::live().sync(file), 0) << error;
    }
    for (const int error : {EIO, ENOSPC}) {
        const test::EmulatedKernel kernel({.fullSyncError = error});
        EXPECT_EQ(FileCalls::live().sync(file), -1);
        EXPECT_EQ(errno, error);
    }
    ::close(file);
}

} // namespace
} // namespace tarnwell
