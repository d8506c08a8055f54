#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/FolderPaths.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

FolderRef rootAt(const std::string& path) {
    return FolderRef::root(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC), path);
}

TEST(FolderPaths, AreTheFirstInByteOrderThatFitTheLimit) {
    std::mt19937 random(3);
    const char* const names[] = {"a", "a!", "a b", "a0", "ab", "\xFF", "B", "."};
    for (const char* rootPath : {"/", "/r", "relative"}) {
        const FolderRef root = rootAt(rootPath);
        std::vector<FolderRef> all{root};
        for (std::size_t next = 0; next < 8; ++next)
            for (const char* name : names)
                all.push_back(FolderRef(all[next]).child(name));
        for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{12}, all.size()}) {
            std::ranges::shuffle(all, random);
            std::vector<std::string> expected;
            std::size_t bytes = 0;
            for (std::size_t index = 0; index < count; ++index)
                bytes += expected.emplace_back(all[index]->path()).size();
            std::ranges::sort(expected);
            const std::span folders = std::span(all).first(count);
            EXPECT_EQ(pathsInOrder(folders), expected) << rootPath << " " << count;
            if (count < 2)
                continue;
            EXPECT_EQ(pathsInOrder(folders, {.paths = count, .bytes = bytes}), expected);
            const std::vector<std::string> less(expected.begin(), expected.end() - 1);
            EXPECT_EQ(pathsInOrder(folders, {.paths = count - 1}), less);
            EXPECT_EQ(pathsInOrder(folders, {.bytes = bytes - 1}), less);
        }
    }
}

// Those that cannot be read are remembered, and hold on to the folders above them, but not to descriptors.
TEST(FolderHandle, FoldersThatCannotBeOpenedKeepNoDescriptorOfTheirParent) {
    const test::TemporaryFolder folder;
    folder.makeFolder("parent");
    const DirectoryCalls& calls = DirectoryCalls::live();
    DescriptorBudget budget(10);
    const FolderRef root = FolderRef::root(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC),
                                           folder.path().string());
    const FolderRef parent = root.child("parent");
    const int descriptor = parent->open(calls, nullptr);
    ASSERT_TRUE(parent->keepOpen(descriptor, 2, budget));
    const FolderRef missing[] = {parent.child("one"), parent.child("other")};
    for (const FolderRef& each : missing) {
        EXPECT_GE(::fcntl(descriptor, F_GETFD), 0);
        EXPECT_LT(each->open(calls, nullptr), 0);
        each->endOpening();
    }
    EXPECT_LT(::fcntl(descriptor, F_GETFD), 0);
}

} // namespace
} // namespace tarnwell
