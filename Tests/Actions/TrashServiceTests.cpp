#include "TarnwellCore/Actions/TrashService.hpp"
#include "TarnwellCore/Analysis/Shell.hpp"

#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <stdexcept>

namespace fs = std::filesystem;
using testing::ElementsAre;

namespace tarnwell {
namespace {

using test::TemporaryFolder;

TEST(TrashServiceTests, ABatchGivesOneOutcomeEachInOrderAndNeverThrows) {
    TrashService service("/home/nobody");
    std::vector<fs::path> asked; // One item at a time: no lock is needed.
    service.trashItem = [&](const fs::path& url) -> std::optional<fs::path> {
        asked.push_back(url);
        if (url == "/refused")
            throw std::runtime_error("no room");
        if (url == "/odd")
            throw 7;
        if (url == "/unknown")
            return std::nullopt;
        return "/trash" + url.string();
    };

    const std::vector<fs::path> urls{"/a", "/refused", "/unknown", "/odd", "/a"};
    const auto outcomes = service.moveToTrash(urls).get();
    EXPECT_EQ(asked, urls);
    ASSERT_EQ(outcomes.size(), urls.size());
    EXPECT_EQ(outcomes[0], (TrashOutcome{"/a", "/trash/a", std::nullopt}));
    EXPECT_EQ(outcomes[1], (TrashOutcome{"/refused", std::nullopt, "no room"}));
    EXPECT_EQ(outcomes[2], (TrashOutcome{"/unknown", std::nullopt, std::nullopt}));
    EXPECT_TRUE(outcomes[2].succeeded());
    EXPECT_FALSE(outcomes[3].succeeded());
    EXPECT_TRUE(outcomes[4].succeeded());

    EXPECT_THAT(failures(outcomes), ElementsAre(outcomes[1], outcomes[3]));
    EXPECT_EQ(bySource({{"/a", "/1", {}}, {"/b", "/2", {}}, {"/a", {}, "gone"}}),
              (std::map<fs::path, std::optional<fs::path>>{{"/a", std::nullopt}, {"/b", "/2"}}));

    EXPECT_TRUE(service.moveToTrash(std::vector<fs::path>()).get().empty());
    EXPECT_EQ(service.moveToTrash("/refused").get(), outcomes[1]);
    TrashMoves moves = service.planMoves({"/a"});
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(moves.move(0), outcomes[0]);

    service.trashItem = nullptr;
    EXPECT_FALSE(service.moveToTrash("/a").get().succeeded());
}

TEST(TrashServiceTests, AnOperationOutlivesTheServiceThatStartedIt) {
    std::future<TrashOutcome> outcome;
    {
        TrashService service("/home/nobody");
        service.trashItem = [](const fs::path& url) { return std::optional(url); };
        outcome = service.moveToTrash("/a");
    }
    EXPECT_EQ(outcome.get().trashedTo, "/a");
}

/// A service that runs another program in place of the system's tool.
TrashService emptyingWith(const fs::path& tool) {
    TrashService service("/home/nobody");
    service.runTool = [tool](const std::string&, const std::vector<std::string>& arguments, double timeout,
                             double grace) { return Shell::runAsync(tool, arguments, timeout, grace); };
    return service;
}

TEST(TrashServiceTests, EmptyingMapsWhatTheToolDid) {
    const TemporaryFolder folder;
    const struct {
        const char* script;
        double timeout;
        EmptyTrashOutcome expected;
    } cases[] = {
        {"exit 0", 30, EmptyTrashEmptied{}},
        {"echo warning >&2; exit 0", 30, EmptyTrashEmptied{}},
        {"exit 1", 30, EmptyTrashFailed{"osascript exited with code 1."}},
        {"printf ' \\n\\t\\302\\240' >&2; exit 2", 30, EmptyTrashFailed{"osascript exited with code 2."}},
        {"printf '\\n  Finder got an error:\\n no. (-128)\\r\\n' >&2; exit 1", 30,
         EmptyTrashFailed{"Finder got an error:\n no. (-128)"}},
        {"exec sleep 30", 0.1, EmptyTrashTimedOut{}},
        {"[ $# = 2 ] && [ \"$1\" = -e ] && [ \"$2\" = 'tell application \"Finder\" to empty trash' ]", 30,
         EmptyTrashEmptied{}},
    };
    int number = 0;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.script);
        const fs::path tool = folder.writeFile("tool" + std::to_string(number++),
                                               std::string("#!/bin/sh\n") + row.script + "\n");
        fs::permissions(tool, fs::perms::owner_all);
        EXPECT_EQ(emptyingWith(tool).emptyTrash(row.timeout).get(), row.expected);
    }
}

TEST(TrashServiceTests, EmptyingWithoutTheToolSaysSo) {
    const EmptyTrashOutcome expected = EmptyTrashFailed{"Could not run /usr/bin/osascript."};
    TrashService service("/home/nobody");
    // Where the tool exists this would empty the user's Trash.
    if (::access("/usr/bin/osascript", F_OK) != 0) {
        EXPECT_EQ(service.emptyTrash(30).get(), expected);
    }
    EXPECT_EQ(emptyingWith("/nonexistent/tool").emptyTrash(30).get(), expected);
    service.runTool = [](const std::string& path, const std::vector<std::string>&, double,
                         double grace) -> std::future<std::optional<CommandResult>> {
        EXPECT_EQ(path, "/usr/bin/osascript");
        EXPECT_EQ(grace, 2.0);
        throw std::runtime_error("no threads");
    };
    EXPECT_EQ(service.emptyTrash(30).get(), expected);
}

TEST(TrashServiceTests, CountsTheEntriesOfTheHomeTrash) {
    const TemporaryFolder home;
    const TrashService service(home.path());
    EXPECT_EQ(service.itemCount(), std::nullopt);
    home.makeFile(".Trash/.DS_Store", 10);
    EXPECT_EQ(service.itemCount(), 0);
    home.makeFile(".Trash/folder/inside", 10);
    home.makeFile(".Trash/.hidden", 10);
    home.makeFile(".Trash/odd\nname", 10);
    EXPECT_EQ(service.itemCount(), 3);
    fs::remove_all(home / ".Trash");
    home.makeFile(".Trash");
    EXPECT_EQ(service.itemCount(), std::nullopt);
}

// Forks and starts threads in the child, which wants a parent without any: suites of this name run first.
TEST(TrashServiceDeathTest, AnUnreadableTrashIsAbsentNotEmpty) {
    const TemporaryFolder home;
    fs::permissions(home.path(), fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
    home.makeFile(".Trash/a", 10);
    fs::permissions(home / ".Trash", fs::perms::none);
    const std::string answer = test::runUnprivileged([&]() -> std::string {
        TrashService service(home.path());
        service.volumeTrashURLsProvider = [] { return std::vector<fs::path>(); };
        if (service.itemCount())
            return "counted";
        return service.summary(DiskScanner()).get() == TrashSummary::empty ? "left out" : "summed up";
    });
    EXPECT_EQ(answer, "left out");
}

TEST(TrashServiceTests, SumsUpTheFoldersThatExist) {
    const TemporaryFolder folder;
    folder.makeFile("home/.Trash/a", 100);
    folder.makeFile("home/.Trash/folder/b", 20);
    folder.makeFile("home/.Trash/.DS_Store", 3);
    folder.makeFile("volume/c", 7);
    folder.makeFile("file", 5000);
    TrashService service(folder / "home");
    service.volumeTrashURLsProvider = [&] {
        return std::vector<fs::path>{folder / "missing/", folder / "volume/", folder / "file"};
    };
    const TrashSummary summary = service.summary(DiskScanner()).get();
    EXPECT_THAT(summary.locations, ElementsAre(folder / "home/.Trash", folder / "volume/", folder / "file"));
    EXPECT_EQ(summary.itemCount, 3);
    EXPECT_EQ(summary.size, 5130);
    EXPECT_GE(summary.allocatedSize, 5130);
    EXPECT_GE(summary.reclaimableSize, 5130);

    TrashService nothing(folder / "nowhere");
    nothing.volumeTrashURLsProvider = [] { return std::vector<fs::path>(); };
    EXPECT_EQ(nothing.summary(DiskScanner()).get(), TrashSummary::empty);
}

} // namespace
} // namespace tarnwell
