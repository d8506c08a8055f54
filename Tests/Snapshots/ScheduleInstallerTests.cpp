#include "TarnwellCore/Snapshots/ScheduleInstaller.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>

namespace tarnwell {
namespace {

using State = ScheduleInstaller::State;
using testing::ElementsAre;

TEST(ScheduleInstaller, PutsFilesInPlaceAndTakesThemAway) {
    const test::TemporaryFolder folder;
    std::vector<std::string> told;
    std::optional<std::string> answer;
    ScheduleInstaller installer = ScheduleInstaller::live();
    installer.run = [&](const ScheduledJobPlan::Command& command) {
        told.push_back(command.front());
        return answer;
    };
    ScheduledJobPlan plan;
    plan.files = {{folder / "a/one", "1"}, {folder / "a/two", "2"}};
    plan.activation = {{"start"}, {"enable"}};
    plan.deactivation = {{"stop"}};
    plan.cleaning = {{"reload"}};
    installer.uninstall(plan);
    EXPECT_THAT(told, ElementsAre()) << "nothing is there";
    EXPECT_EQ(installer.state(plan), State::absent);
    EXPECT_EQ(installer.install(plan), std::nullopt);
    EXPECT_THAT(told, ElementsAre("stop", "start", "enable"));
    EXPECT_EQ(installer.state(plan), State::installed);
    folder.writeFile("a/two", "else");
    EXPECT_EQ(installer.state(plan), State::different);
    answer = "no session";
    EXPECT_EQ(installer.install(plan), "no session");
    EXPECT_EQ(installer.state(plan), State::installed);
    told.clear();
    installer.uninstall(plan);
    EXPECT_THAT(told, ElementsAre("stop", "reload"));
    EXPECT_EQ(installer.state(plan), State::absent);

    // What is in the way is named, and nothing is left half done.
    plan.files[1].path = folder.makeFolder("in the way");
    folder.writeFile("in the way/file", "");
    told.clear();
    EXPECT_THROW(installer.install(plan), std::system_error);
    EXPECT_FALSE(std::filesystem::exists(folder / "a/one"));
    EXPECT_THAT(told, ElementsAre());
    EXPECT_NE(ScheduleInstaller::live().run({"/nowhere/tool"}), std::nullopt);
    EXPECT_EQ(ScheduleInstaller::live().run({"/bin/sh", "-c", "echo ' why ' >&2; exit 3"}),
              "/bin/sh failed: why");
}

} // namespace
} // namespace tarnwell
