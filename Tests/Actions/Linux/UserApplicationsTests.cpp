// What a user of a freedesktop.org desktop has put into the home, and which programs run.

#include "TarnwellCore/Actions/Uninstaller.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <thread>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

std::string entry(const std::string& name, const std::string& command) {
    return "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=" + command + "\n";
}

TEST(UserApplications, AppImagesAndFoldersAreKnownByTheirEntries) {
    const test::TemporaryFolder home;
    Uninstaller uninstaller(home.path());
    uninstaller.machineRoot = home.makeFolder("no machine");
    const fs::path image = home.makeFile("Apps/Draw it.AppImage", 3'000);
    const std::string menu = ".local/share/applications/";
    const fs::path drawing = home.writeFile(menu + "org.example.Draw.desktop",
                                            entry("Draw", "env A=b \"" + image.string() + "\" --new %U"));
    home.writeFile(menu + "other.desktop", entry("Other", "/usr/bin/true"));
    home.writeFile(menu + "broken.desktop", "[Desktop Entry\nExec=\"" + image.string());
    home.writeFile(".config/autostart/draw-helper.desktop", entry("Draw", "'" + image.string() + "'"));
    for (const char* path :
         {".config/org.example.Draw/a", ".cache/org.example.Draw/a", ".local/state/org.example.draw/a",
          ".local/share/icons/hicolor/64x64/apps/org.example.Draw.png", ".local/share/org.example.Draw2/a",
          ".config/Draw/a"})
        home.makeFile(path, 10);
    std::set<std::string> expected;
    for (const char* path :
         {"Apps/Draw it.AppImage", ".local/share/applications/org.example.Draw.desktop",
          ".config/autostart/draw-helper.desktop", ".config/org.example.Draw", ".cache/org.example.Draw",
          ".local/state/org.example.draw", ".local/share/icons/hicolor/64x64/apps/org.example.Draw.png"})
        expected.insert(home / path);
    for (const fs::path& named : {image, drawing}) {
        const UninstallPlan plan = uninstaller.plan(named).get();
        EXPECT_EQ(plan.refusal, std::nullopt);
        std::set<std::string> paths;
        for (const UninstallItem& item : plan.items)
            paths.insert(item.path);
        EXPECT_EQ(paths, expected);
    }
    const auto other = uninstaller.plan(home / (menu + "other.desktop")).get();
    EXPECT_EQ(other.refusal, UninstallRefusal{UninstallRefusal::Kind::notOfUser});

    const fs::path program = home.makeFile(".local/opt/tool/bin/tool", 10);
    home.writeFile(menu + "tool.desktop", entry("The Tool", program.string()));
    fs::create_symlink("../opt/tool/bin/tool", home.makeFolder(".local/bin") / "tool");
    const UninstallPlan tool = uninstaller.plan(home / ".local/opt/tool").get();
    EXPECT_EQ(tool.application->kind, InstalledApplication::Kind::folder);
    EXPECT_EQ(tool.items.size(), 3u) << "a bare word tells nothing, paths do";
    const auto installed = uninstaller.installed().get();
    EXPECT_EQ(installed.size(), 2u);
    EXPECT_EQ(applicationsCalled("the tool", installed).size(), 1u);
    EXPECT_EQ(applicationsCalled("org.example.draw", installed).size(), 1u);
    EXPECT_EQ(uninstaller.plan(program).get().refusal,
              UninstallRefusal{UninstallRefusal::Kind::notApplication})
        << "a file in it is not all of it";

    // The folder elsewhere, the program started through a link to it.
    fs::rename(home / ".local/opt", home / "disk");
    fs::create_directory_symlink(home / "disk", home / ".local/opt");
    home.writeFile(menu + "tool.desktop", entry("The Tool", home / ".local/bin/tool"));
    const UninstallPlan linked = uninstaller.plan(home / (menu + "tool.desktop")).get();
    EXPECT_EQ(linked.refusal, std::nullopt);
    EXPECT_EQ(linked.application.value().location, home / "disk/tool");
    EXPECT_EQ(linked.application->name(), "The Tool");
    EXPECT_EQ(linked.items.size(), 3u);
}

TEST(RunningPrograms, AreFoundByTheFileTheyWereStartedFrom) {
    const test::TemporaryFolder folder;
    fs::create_directories(folder / "app");
    fs::copy_file("/bin/sleep", folder / "app/sleeper");
    const fs::path script = folder.writeFile("script/run", "#!/bin/sh -e\nsleep 60 &\nwait\n");
    fs::permissions(script, fs::perms(0755));
    for (const fs::path& program : {folder / "app/sleeper", script}) {
        EXPECT_TRUE(programsRunningFrom(program.parent_path()).empty());
        const pid_t child = ::fork();
        if (child == 0) {
            ::setpgid(0, 0);
            ::execl(program.c_str(), program.c_str(), "60", nullptr);
            ::_exit(1);
        }
        std::vector<RunningProgram> found;
        for (int attempt = 0; found.empty() && attempt < 500; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            found = programsRunningFrom(program.parent_path());
        }
        EXPECT_THAT(found, testing::ElementsAre(RunningProgram{child, program}));
        EXPECT_TRUE(programsRunningFrom(folder / "ap").empty());
        ::kill(-child, SIGKILL);
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
}

} // namespace
} // namespace tarnwell
