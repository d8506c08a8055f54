#include "TarnwellCore/Platform/ScheduledJob.hpp"
#include "TarnwellCore/Platform/ToolRun.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::TemporaryFolder;

/// A program in a folder of a difficult name, with difficult arguments; what it is told it writes down.
ScheduledJob difficultJob(const TemporaryFolder& folder) {
    const fs::path output = folder / "told";
    const fs::path program = folder.writeFile("100% $HOME \"a\" b's & <c> \\ \xC3\xA9/run",
                                              "#!/bin/sh\nprintf '%s|' \"$@\" > '" + output.string() + "'\n");
    fs::permissions(program, fs::perms(0755));
    return {.name = "com.tarnwell.tests-job",
            .description = "Snapshots 100% & <more>",
            .command = {program, "schedule", "", "two words", "%h ${X} $$ 'q' \"q\" \\x41 ;", "*&<>"}};
}

TEST(ScheduledJob, SystemdReadsItsUnits) {
    if (!isExecutableFile("/usr/bin/systemd-analyze"))
        GTEST_SKIP() << "systemd-analyze is not installed";
    const TemporaryFolder folder;
    const ScheduledJobPlan plan = SystemdUser::plan(difficultJob(folder), folder / "config");
    std::vector<std::string> arguments{"XDG_RUNTIME_DIR=" + folder.path().string(), "systemd-analyze",
                                       "verify", "--user", "--man=no"};
    for (const ScheduledJobPlan::File& file : plan.files) {
        folder.writeFile(file.path.lexically_relative(folder.path()).native(), file.contents);
        arguments.push_back(file.path);
    }
    const auto run = runTool("/usr/bin/env", arguments, {});
    ASSERT_TRUE(run);
    EXPECT_EQ(run->status, 0) << run->standardError;
    EXPECT_EQ(run->standardError, "");
    EXPECT_EQ(plan.activation.back(), (ScheduledJobPlan::Command{"/usr/bin/systemctl", "--user", "enable",
                                                                 "--now", "com.tarnwell.tests-job.timer"}));
    // As the manual of unit files has it: a word in quotes with its escapes; "%%" and "$$" stand for one.
    const std::string service = SystemdUser::serviceUnit(
        {.name = "x", .description = "d", .command = {"/a b", "", "%$\"\\'", "\xC3\xA9\n\x7F"}});
    EXPECT_NE(service.find("ExecStart=\"/a b\" \"\" \"%%$$\\\"\\\\'\" \"\\xc3\\xa9\\x0a\\x7f\"\n"),
              std::string::npos)
        << service;
}

TEST(ScheduledJob, PropertyListReadersReadItsAgent) {
    const char* const python = "/usr/bin/python3";
    if (!isExecutableFile(python))
        GTEST_SKIP() << "python3, which reads property lists, is not installed";
    const TemporaryFolder folder;
    const ScheduledJob job = difficultJob(folder);
    const ScheduledJobPlan plan = LaunchAgent::plan(job, folder.path(), 501);
    ASSERT_EQ(plan.files.size(), 1u);
    EXPECT_EQ(plan.files[0].path, folder / "Library/LaunchAgents/com.tarnwell.tests-job.plist");
    const fs::path file = folder.writeFile("agent.plist", plan.files[0].contents);
    const auto run = runTool(python,
                             {"-c",
                              "import plistlib, sys\np = plistlib.load(open(sys.argv[1], 'rb'))\n"
                              "sys.stdout.buffer.write('\\0'.join([p['Label'], str(p['StartInterval'])] + "
                              "p['ProgramArguments']).encode())",
                              file.string()},
                             {});
    ASSERT_TRUE(run);
    std::string expected = job.name + '\0' + "3600";
    for (const std::string& word : job.command)
        expected += '\0' + word;
    EXPECT_EQ(run->standardOutput, expected) << run->standardError;
}

TEST(ScheduledJob, WhatCannotBeWrittenDownIsRefused) {
    const ScheduledJob good{.name = "a.b-c_1", .description = "d", .command = {"/p"}};
    EXPECT_NO_THROW(SystemdUser::timerUnit(good));
    std::vector<ScheduledJob> bad(7, good);
    bad[0].name = "../x";
    bad[1].name = "";
    bad[2].command = {};
    bad[3].command = {"p"};
    bad[4].command.push_back(std::string("a\0b", 3));
    bad[5].description = "d\nExecStart=/bin/rm";
    bad[6].name = "a b";
    for (const ScheduledJob& job : bad) {
        EXPECT_THROW(SystemdUser::serviceUnit(job), std::invalid_argument);
        EXPECT_THROW(SystemdUser::timerUnit(job), std::invalid_argument);
        EXPECT_THROW(LaunchAgent::propertyList(job), std::invalid_argument);
    }
    for (const char* odd : {"\x01", "\xE9", "\xEF\xBF\xBF"})
        EXPECT_THROW(LaunchAgent::propertyList({.name = "a", .description = "", .command = {"/p", odd}}),
                     std::invalid_argument);
}

} // namespace
} // namespace tarnwell
