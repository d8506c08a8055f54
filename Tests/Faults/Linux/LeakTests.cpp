// What the tool leaves allocated or open at its end, for each command.

#include "Tests/Faults/Linux/FaultyProgram.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

TEST(Leaks, NoCommandLeaksMemoryOrDescriptors) {
    // Valgrind runs no sanitized programs: those look for leaks themselves.
    std::vector<std::string> start{"/usr/bin/valgrind", "-q",
                                   "--leak-check=full", "--errors-for-leak-kinds=definite,indirect,possible",
                                   "--track-fds=yes",   "--error-exitcode=99"};
    if (test::isSanitized())
        start.clear();
    else if (::access(start.front().c_str(), X_OK) != 0)
        GTEST_SKIP() << "valgrind is not installed";
    if (test::isSanitized() && !test::whyNotFaulty().empty())
        GTEST_SKIP() << test::whyNotFaulty();
    start.emplace_back(TARNWELL_TOOL);
    const test::TemporaryFolder world;
    for (int depth = 0; depth < 5; ++depth)
        world.makeFile("tree/a/b/c/d/e/" + std::to_string(depth) + ".txt", 100);
    world.makeFile("tree/a/Tool.app/Contents/binary", 100);
    fs::create_hard_link(world / "tree/a/b/c/d/e/0.txt", world / "tree/a/again");
    const struct {
        std::vector<std::string> words;
        int exitCode;
    } cases[] = {
        {{"--help"}, 0},
        {{"scan", "WORLD/tree", "--depth=9", "--top=2", "--size-mode=reclaimable"}, 0},
        {{"scan", "WORLD/tree", "--json", "--depth=9"}, 0},
        {{"scan", "WORLD/tree", "--csv"}, 0},
        {{"snapshot", "save", "WORLD/tree"}, 0},
        {{"snapshot", "save", "WORLD/tree", "--json"}, 0},
        {{"snapshot", "list", "--json"}, 0},
        {{"snapshot", "diff", "previous", "latest"}, 0},
        {{"snapshot", "diff", "previous", "latest", "--json"}, 0},
        {{"scan", "WORLD/tree/missing"}, 1},
        {{"snapshot", "forget"}, 2},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::PrintToString(each.words));
        test::Program program{.arguments = start, .world = world.path(), .isWatched = test::isSanitized()};
        program.arguments.insert(program.arguments.end(), each.words.begin(), each.words.end());
        const test::FaultyOutcome outcome = test::runWithFault(program);
        EXPECT_EQ(outcome.exitCode, each.exitCode) << outcome.error;
        EXPECT_EQ(outcome.count("descriptors"), 0);
        // Valgrind tells of what is left open, besides the standard streams.
        EXPECT_EQ(outcome.error.find("Open file descriptor"), std::string::npos) << outcome.error;
    }
}

TEST(Leaks, AreNoticedWhereAProgramEndsWithoutExit) {
    if (::dlsym(RTLD_DEFAULT, "__lsan_do_recoverable_leak_check") == nullptr)
        GTEST_SKIP() << "not built with the address sanitizer";
    const test::FaultyOutcome outcome = test::runWithFault({.arguments = {TARNWELL_FAULTS_SUBJECT, "leak"}});
    EXPECT_EQ(outcome.exitCode, test::sanitizerCode) << outcome.error;
}

} // namespace
} // namespace tarnwell
