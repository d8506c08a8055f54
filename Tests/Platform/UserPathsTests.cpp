#include "TarnwellCore/Platform/UserPaths.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <pwd.h>
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

TEST(UserPaths, LinksResolve) {
    const test::TemporaryFolder folder;
    const std::string base = folder.path();
    (void)folder.makeFile("real/inner/file");
    fs::create_symlink("real", folder / "link");
    fs::create_symlink(folder / "link/inner", folder / "absolute");
    const struct {
        std::string path;
        std::string resolved;
    } cases[] = {
        {base + "/./link//./inner/file", base + "/real/inner/file"},
        {base + "/absolute/file", base + "/real/inner/file"},
        {base + "/real/missing/x", base + "/real/missing/x"},
        {base + "/real/\xFF", base + "/real/\xFF"},
        {base + "/" + std::string(20'000, 'x'), base + "/" + std::string(20'000, 'x')},
        {"/", "/"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(resolveLinks(each.path), each.resolved) << each.path;
}

} // namespace
} // namespace tarnwell
