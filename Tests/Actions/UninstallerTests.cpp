// Applications and homes made of real files, on the folders of a machine of its own.

#include "TarnwellCore/Actions/ApplicationIdentifier.hpp"
#include "TarnwellCore/Actions/TrashRestorer.hpp"
#include "TarnwellCore/Actions/Uninstaller.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using enum LeftoverReason;
using enum CleanupSafety;
using testing::HasSubstr;

class UninstallerTests : public testing::Test {
protected:
    UninstallerTests() : uninstaller(root.makeFolder("Users/ann")) {
        uninstaller.machineRoot = root.path();
        uninstaller.programsRunningFrom = [](const fs::path&) { return std::vector<RunningProgram>(); };
        uninstaller.trash.journal = TrashJournal(root / "journal.txt");
        uninstaller.trash.trashItem = [this](const fs::path& item) {
            fs::path landed = root.makeFolder("Users/ann/.Trash") / item.filename();
            while (fs::exists(fs::symlink_status(landed)))
                landed += "x";
            fs::rename(item, landed);
            return std::optional(landed);
        };
    }

    static std::string information(const std::string& identifier, const std::string& name) {
        return "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier +
               "</string><key>CFBundleName</key><string>" + name + "</string></dict></plist>";
    }
    fs::path makeBundle(const std::string& path, const std::string& identifier,
                        const std::string& name) const {
        root.writeFile(path + "/Contents/Info.plist", information(identifier, name));
        root.makeFile(path + "/Contents/MacOS/" + name, 5'000);
        return root / path;
    }
    UninstallPlan plan(const fs::path& path) const { return uninstaller.plan(path).get(); }

    struct Found {
        LeftoverReason reason;
        CleanupSafety safety;
        LeftoverDoubt doubt = LeftoverDoubt::none;
        bool operator==(const Found&) const = default;
        friend void PrintTo(const Found& found, std::ostream* stream) {
            *stream << rawValue(found.reason) << " " << rawValue(found.safety) << " " << int(found.doubt);
        }
    };
    /// By path below the machine's root, without the application.
    std::map<std::string, Found> leftovers(const UninstallPlan& plan) const {
        std::map<std::string, Found> all;
        for (const UninstallItem& item : plan.items)
            if (item.reason != application)
                all[item.path.lexically_relative(root.path()).native()] = {item.reason, item.safety,
                                                                           item.doubt};
        return all;
    }

    test::TemporaryFolder root;
    Uninstaller uninstaller;
};

TEST_F(UninstallerTests, WhatAnApplicationLeavesIsFoundByItsIdentifier) {
    const fs::path editor = makeBundle("Applications/Editor.app", "com.Example.editor", "Fine Editor");
    const std::map<std::string, Found> expected{
        {"Library/LaunchDaemons/org.other.plist", {startsProgram, reviewNeeded}},
        {"Library/PrivilegedHelperTools/com.example.editor.helper", {belowIdentifier, reviewNeeded}},
        {"Users/ann/.config/com.example.editor", {identifier, reviewNeeded}},
        {"Users/ann/.local/bin/edit", {leadsThere, safe}},
        {"Users/ann/Library/Application Support/Example/Editor", {makersFolder, reviewNeeded}},
        {"Users/ann/Library/Application Support/Fine Editor", {name, caution}},
        {"Users/ann/Library/Application Support/com.example.editor", {identifier, reviewNeeded}},
        {"Users/ann/Library/Caches/com.example.EDITOR", {identifier, safe}},
        {"Users/ann/Library/Containers/com.example.editor.Share", {belowIdentifier, reviewNeeded}},
        {"Users/ann/Library/Cookies/com.example.editor.binarycookies", {identifier, reviewNeeded}},
        {"Users/ann/Library/Group Containers/ABCDE12345.com.example.editor", {groupContainer, reviewNeeded}},
        {"Users/ann/Library/Group Containers/group.com.example.all", {makersGroup, caution}},
        {"Users/ann/Library/Internet Plug-Ins/Movies.plugin", {bundleIdentifier, reviewNeeded}},
        {"Users/ann/Library/Preferences/ByHost/com.example.editor.0A1B2C3D-0000-4000-8000-0123456789AB.plist",
         {identifier, reviewNeeded}},
        {"Users/ann/Library/Preferences/com.example.editor.plist", {identifier, reviewNeeded}},
        {"Users/ann/Library/Saved Application State/com.example.editor.savedState", {identifier, safe}},
        {"private/var/db/receipts/com.example.editor.bom", {identifier, reviewNeeded}},
    };
    for (const auto& [path, found] : expected)
        if (path.ends_with("org.other.plist"))
            root.writeFile(
                path, "<plist><dict><key>Label</key><string>org.other</string><key>ProgramArguments</key>"
                      "<array><string>" +
                          editor.string() + "/Contents/agent</string></array></dict></plist>");
        else if (path.ends_with("/edit"))
            fs::create_symlink(editor / "Contents/MacOS/Fine Editor",
                               root.makeFolder("Users/ann/.local/bin") / "edit");
        else if (path.ends_with(".plugin"))
            root.writeFile(path + "/Contents/Info.plist", information("com.example.editor.movies", "Movies"));
        else
            root.makeFile(path + (fs::path(path).has_extension() && path.find("Group") == std::string::npos
                                      ? ""
                                      : "/x"),
                          100);
    // Of others, by names that begin alike or are bare words, and of other links and bundles.
    for (const char* other : {"Caches/com.example.editor2/x", "Caches/com.example/x", "Caches/editor/x",
                              "Caches/Editor.x/x", "Application Support/Editor/x",
                              "Application Support/Other/Editor/x", "Preferences/com.example.plist",
                              "Preferences/com.exampleXeditor.plist", "Caches/xcom.example.editor/x",
                              "Group Containers/group.com.examples/x", "Group Containers/ABCDE12345.Editor/x",
                              "Internet Plug-Ins/com.example.editor/x", "Cookies/com.example.editorx"})
        root.makeFile("Users/ann/Library/" + std::string(other), 100);
    fs::create_symlink("/bin/sh", root / "Users/ann/.local/bin/sh");

    const UninstallPlan made = plan(editor.string() + "/");
    EXPECT_EQ(made.refusal, std::nullopt);
    EXPECT_EQ(made.application->name(), "Fine Editor");
    EXPECT_EQ(leftovers(made), expected);
    ASSERT_EQ(made.items.front().path, editor);
    EXPECT_GE(made.items.front().size, 5'000);
    EXPECT_TRUE(made.unreadable.empty());

    const auto outcomes = uninstaller.carryOut(made).get();
    ASSERT_EQ(outcomes.size(), expected.size() + 1);
    for (const TrashOutcome& outcome : outcomes)
        EXPECT_TRUE(outcome.succeeded()) << outcome.source << outcome.failure.value_or("");
    EXPECT_FALSE(fs::exists(editor));
    EXPECT_TRUE(fs::exists(root / "Users/ann/Library/Application Support/Example"));
    TrashRestorer restorer(uninstaller.home(), uninstaller.trash.journal);
    restorer.trashFolders = [&](const fs::path&) { return std::vector{root / "Users/ann/.Trash"}; };
    const auto items = restorer.list().get().items;
    ASSERT_EQ(items.size(), outcomes.size());
    EXPECT_EQ(restorer.restoreSet(items.front().set.value()).get().size(), outcomes.size()) << "one set";
    EXPECT_EQ(leftovers(plan(editor)), expected);
}

TEST_F(UninstallerTests, WhatOthersMayUseIsDoubtful) {
    const fs::path editor = makeBundle("Applications/Editor.app", "com.example.editor", "Editor");
    makeBundle("Applications/Tools/Viewer.app", "com.example.viewer", "Viewer");
    makeBundle("Users/ann/Applications/Editor Beta.app", "com.example.editor.beta", "Editor Beta");
    for (const char* path :
         {"Caches/com.example.editor/x", "Caches/com.example.editor.beta/x",
          "Caches/com.example.editor.beta.helper/x", "Group Containers/group.com.example.editor/x",
          "Group Containers/group.com.example.viewer/x", "Caches/short.name/x"})
        root.makeFile("Users/ann/Library/" + std::string(path), 10);
    const std::string caches = "Users/ann/Library/Caches/";
    EXPECT_EQ(leftovers(plan(editor)),
              (std::map<std::string, Found>{{caches + "com.example.editor", {identifier, safe}},
                                            {"Users/ann/Library/Group Containers/group.com.example.editor",
                                             {groupContainer, caution, LeftoverDoubt::otherApplication}}}));
    const fs::path copy = makeBundle("Users/ann/Desktop/Editor copy.app", "com.example.editor", "Editor");
    EXPECT_EQ(leftovers(plan(copy)).at(caches + "com.example.editor"),
              (Found{identifier, caution, LeftoverDoubt::otherCopy}));
    const fs::path brief = makeBundle("Applications/Brief.app", "short.name", "Brief");
    EXPECT_EQ(leftovers(plan(brief)),
              (std::map<std::string, Found>{
                  {caches + "short.name", {identifier, caution, LeftoverDoubt::shortIdentifier}}}));
    if (::getuid() != 0)
        return;
    ASSERT_EQ(::chown((root / (caches + "short.name")).c_str(), 12345, 12345), 0);
    EXPECT_EQ(leftovers(plan(brief)).at(caches + "short.name").doubt, LeftoverDoubt::otherUser);
    // Through another user's link nothing is found.
    fs::rename(root / "Users/ann/Library/Caches", root / "elsewhere");
    fs::create_directory_symlink(root / "elsewhere", root / "Users/ann/Library/Caches");
    EXPECT_EQ(leftovers(plan(brief)).size(), 1u) << "one of the user's own is followed";
    ASSERT_EQ(::lchown((root / "Users/ann/Library/Caches").c_str(), 12345, 12345), 0);
    const UninstallPlan led = plan(brief);
    EXPECT_TRUE(leftovers(led).empty());
    EXPECT_THAT(led.unreadable, testing::ElementsAre(root / "Users/ann/Library/Caches"));
    // Nor where folders are that the user has elsewhere.
    uninstaller.baseFolders.cache = root / "shared/cache";
    root.makeFile("stranger's/short.name/x", 10);
    fs::create_directory_symlink("../stranger's", root.makeFolder("shared") / "cache");
    EXPECT_EQ(leftovers(plan(brief)).size(), 1u);
    ASSERT_EQ(::lchown((root / "shared/cache").c_str(), 12345, 12345), 0);
    EXPECT_TRUE(leftovers(plan(brief)).empty());
}

TEST_F(UninstallerTests, IdentifiersThatAreNoneMatchNothing) {
    for (const char* path :
         {"Caches/x", "Caches/com", "Caches/.x", "Caches/a b", "Preferences/.plist", "Caches/..x.y"})
        root.makeFile("Users/ann/Library/" + std::string(path), 10);
    for (const char* odd : {"", ".", "..", "com", "a.b", "com.", ".com.x", "com..x", "com/../x", "../Caches",
                            "com.a b", "com.x\ny", "*.*.*", "Safari"}) {
        const fs::path bundle = makeBundle("Applications/Odd.app", odd, "x");
        const UninstallPlan made = plan(bundle);
        EXPECT_EQ(made.items.size(), 1u) << odd;
        EXPECT_FALSE(isUsableIdentifier(odd));
        fs::remove_all(bundle);
    }
    root.writeFile("Applications/Broken.app/Contents/Info.plist", "bplist00");
    EXPECT_EQ(plan(root / "Applications/Broken.app").application->name(), "Broken");
    EXPECT_EQ(withoutGroupPrefix("ABCDE12345.group.com.x"), "com.x");
    EXPECT_EQ(withoutGroupPrefix("abcde12345.com.x"), "abcde12345.com.x");
    EXPECT_EQ(makerPrefix("com.example.editor"), "com.example");
    EXPECT_EQ(makerPrefix("com.example"), "");
    EXPECT_EQ(makerPrefix("io.GitHub.ann.editor"), "io.GitHub.ann");
    for (const char* none : {"io.github.editor", "com.apple.Notes", "com"})
        EXPECT_EQ(makerPrefix(none), "") << none;
}

TEST_F(UninstallerTests, WhatMustStayIsRefused) {
    const fs::path guard = makeBundle("Applications/Guard.app", "com.sophos.endpoint.ui", "Guard");
    root.makeFile("Library/Caches/com.sophos.endpoint.ui/x", 1);
    const fs::path own = makeBundle("System/Applications/Notes.app", "com.apple.Notes", "Notes");
    const fs::path alias = root / "Applications/Link.app";
    fs::create_directory_symlink(guard, alias);
    const fs::path active = makeBundle("Applications/Running.app", "com.example.runs", "Runs");
    Uninstaller inHome(root.makeFolder("Applications/House.app/home"));
    inHome.programsRunningFrom = uninstaller.programsRunningFrom;
    uninstaller.programsRunningFrom = [&](const fs::path& place) {
        return place == active ? std::vector<RunningProgram>{{77, place / "Contents/MacOS/Runs"}}
                               : std::vector<RunningProgram>();
    };
    using enum UninstallRefusal::Kind;
    EXPECT_EQ(plan(guard).refusal, (UninstallRefusal{securityProduct, "Sophos"}));
    EXPECT_EQ(plan(guard).items.size(), 2u) << "shown, not moved";
    EXPECT_EQ(plan(own).refusal, UninstallRefusal{notOfUser});
    EXPECT_EQ(plan(alias).refusal, (UninstallRefusal{UninstallRefusal::Kind::link, guard.native()}));
    EXPECT_EQ(plan(active).refusal, (UninstallRefusal{UninstallRefusal::Kind::running, "Runs, process 77"}));
    EXPECT_EQ(plan(root / "Applications/None.app").refusal, UninstallRefusal{notThere});
    for (const fs::path& none :
         {root.makeFolder("Plain"), root.makeFile("File.app"), fs::path("relative.app"),
          root.makeFolder("Applications/.app"), fs::path(), fs::path("/")})
        EXPECT_EQ(plan(none).refusal, UninstallRefusal{notApplication}) << none;
    EXPECT_EQ(inHome.plan(root / "Applications/House.app").get().refusal, UninstallRefusal{holdsHome});
    for (const fs::path& path : {guard, own, active})
        for (const TrashOutcome& outcome : uninstaller.carryOut(plan(path)).get())
            EXPECT_FALSE(outcome.succeeded());
    EXPECT_TRUE(fs::exists(guard) && fs::exists(own) && fs::exists(active));
    EXPECT_EQ(securityMaker("com.sophosticated.app"), "");
}

TEST_F(UninstallerTests, OnlyWhatWasLookedAtIsMoved) {
    const fs::path editor = makeBundle("Applications/Editor.app", "com.example.editor", "Editor");
    const std::vector<fs::path> caches{root.makeFile("Users/ann/Library/Caches/com.example.editor.a", 10),
                                       root.makeFile("Users/ann/Library/Caches/com.example.editor.b", 10)};
    const UninstallPlan made = plan(editor);
    // Started since, moved away since, replaced since by a link.
    auto late = uninstaller;
    late.programsRunningFrom = [](const fs::path& place) {
        return std::vector<RunningProgram>{{1, place / "x"}};
    };
    EXPECT_THAT(late.carryOut(made).get().front().failure.value_or(""), HasSubstr("running"));
    late = uninstaller;
    late.trash.trashItem = [](const fs::path&) -> std::optional<fs::path> {
        throw std::runtime_error("not yours");
    };
    const auto kept = late.carryOut(made).get();
    EXPECT_EQ(kept[0].failure, "not yours");
    EXPECT_THAT(kept[2].failure.value_or(""), HasSubstr("the application stays"));
    fs::remove(caches[0]);
    fs::create_symlink(root / "Users", caches[0]);
    CancellationToken token;
    const auto move = uninstaller.trash.trashItem;
    uninstaller.trash.trashItem = [&](const fs::path& item) {
        if (item == caches[1])
            token.cancel();
        return move(item);
    };
    UninstallPlan more = made;
    more.items.push_back(made.items.back());
    const auto outcomes = uninstaller.carryOut(more, token).get();
    EXPECT_TRUE(outcomes[0].succeeded());
    EXPECT_EQ(outcomes[1].failure, "Something else lies there now.");
    EXPECT_TRUE(outcomes[2].succeeded());
    EXPECT_THAT(outcomes[3].failure.value_or(""), HasSubstr("called off"));
    EXPECT_TRUE(fs::is_symlink(caches[0]));
}

} // namespace
} // namespace tarnwell
