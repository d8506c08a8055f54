#include "TarnwellCore/Platform/UserPaths.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

/// Changes an environment variable for one test.
class Environment {
public:
    Environment(const char* name, const char* value) : name_(name) {
        if (const char* before = std::getenv(name))
            before_ = before;
        if (value != nullptr)
            ::setenv(name, value, 1);
        else
            ::unsetenv(name);
    }
    ~Environment() {
        if (before_)
            ::setenv(name_, before_->c_str(), 1);
        else
            ::unsetenv(name_);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    const char* name_;
    std::optional<std::string> before_;
};

class CurrentFolder {
public:
    explicit CurrentFolder(const fs::path& folder) : before_(fs::current_path()) { fs::current_path(folder); }
    ~CurrentFolder() { fs::current_path(before_); }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    fs::path before_;
};

TEST(UserPaths, TildeIsTheHomeFolder) {
    EXPECT_EQ(expandTilde("~"), homeDirectory());
    EXPECT_EQ(expandTilde("~/a b"), homeDirectory() / "a b");
    {
        const Environment home("HOME", "/home/alice");
        if (homeDirectory() != "/home/alice")
            GTEST_SKIP() << "this platform does not take the home folder from the environment";
    }
    const struct {
        const char* home;
        const char* path;
        const char* expanded;
    } cases[] = {
        {"/home/alice", "~", "/home/alice"},
        {"/home/alice", "~/", "/home/alice/"},
        {"/home/alice/", "~/x/~y", "/home/alice/x/~y"},
        {"/", "~/x", "/x"},
        {"/", "~", "/"},
        {"/home/alice", "x/~", "x/~"},
        {"/home/alice", "", ""},
        {"/home/alice", "~no-such-user-at-all/x", "~no-such-user-at-all/x"},
    };
    for (const auto& each : cases) {
        const Environment home("HOME", each.home);
        EXPECT_EQ(expandTilde(each.path), each.expanded) << each.path;
    }
}

TEST(UserPaths, UserDatabaseKnowsHomesWithoutTheEnvironment) {
    const passwd* user = ::getpwuid(::getuid());
    if (user == nullptr)
        GTEST_SKIP() << "this user is in no database";
    const std::string name = user->pw_name;
    const std::string home = user->pw_dir;
    EXPECT_EQ(expandTilde("~" + name + "/a b"), home + "/a b");
    for (const char* value : {static_cast<const char*>(nullptr), ""}) {
        const Environment environment("HOME", value);
        EXPECT_EQ(homeDirectory(), home);
    }
}

TEST(UserPaths, ApplicationSupportIsNamedByTheEnvironment) {
    {
        const Environment environment("XDG_DATA_HOME", nullptr);
        if (applicationSupportDirectory())
            GTEST_SKIP() << "this platform has a folder of its own for application support";
    }
    const struct {
        const char* value;
        std::optional<fs::path> folder;
    } cases[] = {{"/data/", "/data"}, {"data", std::nullopt}, {"", std::nullopt}, {nullptr, std::nullopt}};
    for (const auto& each : cases) {
        const Environment environment("XDG_DATA_HOME", each.value);
        EXPECT_EQ(applicationSupportDirectory(), each.folder);
    }
}

TEST(UserPaths, LinksResolveAsFarAsThePathExists) {
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
        EXPECT_EQ(resolveLinks(each.path), each.resolved) << each.path;
        EXPECT_EQ(resolveLinks(base + "/" + each.path), each.resolved) << each.path;
    }
    EXPECT_EQ(resolveLinks("/"), "/");
    EXPECT_EQ(resolveLinks("/../..//."), "/");
    const std::string upward(500 * 3, '.');
    EXPECT_EQ(resolveLinks("/" + upward), "/" + upward) << "dots alone are a name";
}

TEST(UserPaths, ResolvesPathsBeyondTheKernelsLimit) {
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

    EXPECT_EQ(resolveLinks(path), path);
    EXPECT_EQ(resolveLinks(path + "/sideways/x"), path + "/x");
    EXPECT_EQ(resolveLinks(path + "/home"), folder.path());
    std::string up = path;
    for (int level = 0; level < 59; ++level)
        up += "/..";
    EXPECT_EQ(resolveLinks(up), folder.path() / component);
    EXPECT_EQ(
        resolveLinks(up + path.substr(folder.path().native().size() + 1 + component.size()) + "/home/y"),
        folder.path() / "y");
    EXPECT_EQ(resolveLinks(path + "/missing" + path), path + "/missing" + path);
}

} // namespace
} // namespace tarnwell
