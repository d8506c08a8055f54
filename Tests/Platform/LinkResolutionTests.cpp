#include "TarnwellCore/Platform/LinkResolution.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

class CurrentFolder {
public:
    explicit CurrentFolder(const fs::path& folder) : before_(fs::current_path()) { fs::current_path(folder); }
    ~CurrentFolder() { fs::current_path(before_); }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    fs::path before_;
};

TEST(LinkResolution, GoesAsFarAsThePathExists) {
    const test::TemporaryFolder folder;
    const std::string base = folder.path();
    (void)folder.makeFolder("real/inner");
    (void)folder.makeFile("real/file");
    fs::create_symlink("real", folder / "link");
    fs::create_symlink(folder / "link/inner", folder / "absolute");
    fs::create_symlink("loop", folder / "loop");
    fs::create_symlink("missing/target", folder / "dangling");
    fs::create_symlink("../../outside", folder / "real/inner/up");
    const struct {
        std::string path;
        std::string resolved;
    } cases[] = {
        {"link/inner/", base + "/real/inner"},
        {"./link//./file", base + "/real/file"},
        {"absolute", base + "/real/inner"},
        {"absolute/..", base + "/real"}, // the parent of the target, not of the link
        {"absolute/../../link", base + "/real"},
        {"dangling/x", base + "/missing/target/x"},
        {"real/inner/up/y", base + "/outside/y"},
        {"nowhere/../link", base + "/real"},
        {"loop/x", base + "/loop/x"},
        {"real/\xFF\n", base + "/real/\xFF\n"},
        {"", base},
        {".", base},
    };
    const CurrentFolder current(folder.path());
    for (const auto& each : cases) {
        EXPECT_EQ(resolveEveryLink(each.path), each.resolved) << each.path;
        EXPECT_EQ(resolveEveryLink(base + "/" + each.path), each.resolved) << each.path;
    }
    EXPECT_EQ(resolveEveryLink("/"), "/");
    EXPECT_EQ(resolveEveryLink("/../..//."), "/");
    const std::string upward(500 * 3, '.');
    EXPECT_EQ(resolveEveryLink("/" + upward), "/" + upward) << "dots alone are a name";
}

TEST(LinkResolution, PathsBeyondTheKernelsLimit) {
    const test::TemporaryFolder folder;
    const std::string component(200, 'd');
    int parent = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY);
    std::string path = folder.path();
    for (int level = 0; level < 60; ++level) {
        ASSERT_EQ(::mkdirat(parent, component.c_str(), 0777), 0);
        const int next = ::openat(parent, component.c_str(), O_RDONLY | O_DIRECTORY);
        ASSERT_GE(next, 0);
        ::close(parent);
        parent = next;
        path += "/" + component;
    }
    ASSERT_EQ(::symlinkat(("../" + component).c_str(), parent, "sideways"), 0);
    ASSERT_EQ(::symlinkat(folder.path().c_str(), parent, "home"), 0);
    ::close(parent);

    EXPECT_EQ(resolveEveryLink(path), path);
    EXPECT_EQ(resolveEveryLink(path + "/sideways/x"), path + "/x");
    EXPECT_EQ(resolveEveryLink(path + "/home"), folder.path());
    std::string up = path;
    for (int level = 0; level < 59; ++level)
        up += "/..";
    EXPECT_EQ(resolveEveryLink(up), folder.path() / component);
    EXPECT_EQ(
        resolveEveryLink(up + path.substr(folder.path().native().size() + 1 + component.size()) + "/home/y"),
        folder.path() / "y");
    EXPECT_EQ(resolveEveryLink(path + "/missing" + path), path + "/missing" + path);
}

} // namespace
} // namespace tarnwell
