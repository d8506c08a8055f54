#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Browser/BrowserViews.hpp"
#include "TarnwellTidyKit/Browser/JobRunner.hpp"
#include "TarnwellTidyKit/Browser/LiveTreeSource.hpp"
#include "TarnwellTidyKit/Browser/TypedText.hpp"
#include "TarnwellTidyKit/Browser/UpdateParts.hpp"
#include "TarnwellTidyKit/Commands/ProtectedPlaces.hpp"
#include "TarnwellTidyKit/Screen/MemoryScreen.hpp"

#include "Tests/TidyKit/Scene.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <deque>
#include <future>
#include <random>
#include <set>
#include <stdexcept>

namespace fs = std::filesystem;

namespace tarnwell::test {

namespace {

/// The model alone: jobs are done where they are asked for, or left lying until a test says so.
struct Model : Scene {
    BrowserState state;
    BrowserScan scan;

    Model() {
        const fs::path place = home.path();
        const auto guard = [place](const fs::path& path) {
            if (!liesIn(path, place))
                throw std::runtime_error("outside of the test: " + path.native());
        };
        moveToTrash = [guard, move = moveToTrash](const fs::path& item) {
            guard(item);
            return move(item);
        };
        services.removeForGood = [=](const fs::path& item, const CancellationToken& token) {
            guard(item);
            return PermanentRemoval::remove(item, token);
        };
        services.wayOutOf = [](const fs::path& item) { // folder by folder
            return static_cast<WayOut>(item.parent_path().filename().native().size() % 3);
        };
        scan = [=](const fs::path& folder, ScanOptions options, DiskScanner::ProgressHandler progress,
                   CancellationToken token, std::shared_ptr<LiveTree> live) {
            guard(folder);
            return DiskScanner()
                .scan(folder, std::move(options), std::move(progress), std::move(token), std::move(live))
                .get();
        };
        services.volumes = [place] {
            VolumeInfo volume;
            volume.url = place;
            volume.path = place.native();
            return std::vector{volume};
        };
        services.findings = [place](const fs::path&, SpaceSaverProbe::Request, CancellationToken) {
            std::promise<std::vector<SpaceSaverFinding>> found;
            SpaceSaverFinding one;
            one.paths = {place / "files/a/one"};
            one.action = SpaceSaverActions::Trash{};
            SpaceSaverFinding two;
            two.action = SpaceSaverActions::RunCommand{"true"};
            found.set_value({one, two});
            return found.get_future();
        };
        services.emptyTrash = [place](const fs::path&, const CancellationToken&) -> EmptyTrashOutcome {
            fs::remove_all(place / ".trash");
            return EmptyTrashFailed{"as a test wants it"};
        };
        services.runTool = [](const std::vector<std::string>&) { return std::nullopt; };
        services.open = services.reveal = [](const fs::path&) { return true; };
        state.home = place.native();
        state.now = services.now;
        state.asksBeforeTrash = true;
        state.removals = std::make_shared<Removals>();
    }

    std::array<std::deque<BrowserRequest>, browserLaneCount> lanes;
    std::deque<BrowserEvent> events;

    /// Hands on one event, or does one job of the first lane, from the one named on, that has one.
    bool answer(std::size_t lane = 0) {
        for (BrowserRequest& request : std::exchange(state.requests, {}))
            lanes[static_cast<std::size_t>(laneOf(request.job))].push_back(std::move(request));
        for (const std::uint64_t id : std::exchange(state.cancellations, {}))
            for (auto& each : lanes)
                std::erase_if(each, [id](const BrowserRequest& request) { return request.id == id; });
        if (!events.empty()) {
            BrowserEvent event = std::move(events.front());
            events.pop_front();
            update(state, std::move(event));
            return true;
        }
        const JobRunner runner(services, surroundings, state.isReadOnly, scan);
        for (std::size_t number = 0; number < browserLaneCount; ++number) {
            auto& waiting = lanes[(lane + number) % browserLaneCount];
            if (waiting.empty())
                continue;
            const BrowserRequest request = std::move(waiting.front());
            waiting.pop_front();
            try {
                runner(request, {}, [&](BrowserEvent event) { events.push_back(std::move(event)); });
            } catch (const std::exception& error) {
                events.push_back(BrowserEvents::Failed{request.id, error.what()});
            }
            return true;
        }
        return false;
    }
    void work() {
        while (answer()) {
        }
    }
    void type(std::string_view keys) {
        for (const KeyPress& press : MemoryScreen::keys(keys)) {
            update(state, press);
            work();
        }
    }
    void expectWhole() {
        const std::size_t count = rowCount(state);
        ASSERT_LT(state.cursor().row, std::max<std::size_t>(count, 1));
        ASSERT_LE(state.cursor().top, state.cursor().row);
        for (const FileNode* node : state.marks.nodes())
            ASSERT_FALSE(node->parent() != nullptr && state.marks.covers(*node->parent())) << "swallowed";
        if (state.order && state.entries) {
            for (const std::uint32_t index : state.order->rows)
                ASSERT_LT(index, state.entries->count());
        }
    }
};

} // namespace

// Whatever is typed: no crash, the cursor on a row, every frame can be drawn at every size.
TEST(BrowserModelTests, anyKeys) {
    const bool isThorough = std::getenv("TARNWELL_THOROUGH") != nullptr;
    std::mt19937 random(7);
    const std::vector<KeyPress> keys =
        MemoryScreen::keys("jjjkkhllnsCMSIteaczmyi/fr[]w "
                           "vAUduDEBXoRpgVxe?G<Up><Down><Left><Right><Enter><Enter><BS><Esc><Tab><Tab>"
                           "<S-Tab><PageUp><PageDown><Home><End><Del><C-u>yndelete<Enter>empty<Enter>");
    for (int round = 0; round < (isThorough ? 60 : 6); ++round) {
        Model model;
        for (int number = 0; number < 60; ++number)
            model.home.makeFile("files/" + std::string(1, static_cast<char>('a' + number % 5)) +
                                    (number % 3 == 0 ? "/deeper" : "") + "/f\xC3\xA9\x1B" +
                                    std::to_string(number),
                                static_cast<std::uint64_t>(random() % 5000));
        model.home.makeFile("files/a/one", 1'200'000);
        model.home.makeFile("files/b/one", 1'200'000);
        model.home.makeFile("files/.hidden", 10);
        // Now and then more than are put in order between two keys.
        for (int number = 0; round % 6 == 5 && number < 4100; ++number)
            model.home.makeFile("files/a/many" + std::to_string(number));
        begin(model.state, model.path("files"));
        model.work();
        for (int press = 0; press < 2500; ++press) {
            const KeyPress& key = keys[random() % keys.size()];
            update(model.state, key);
            // Any number of answers comes between two keys.
            for (std::size_t answers = random() % 8; answers > 0 && model.answer(random()); --answers) {
            }
            if (random() % 8 == 0)
                model.work();
            const GridSize size{static_cast<int>(random() % 150), static_cast<int>(random() % 40)};
            fitTo(model.state, size);
            (void)drawn(model.state, size, random() % 2 == 0);
            if (const auto click = whatIsAt(
                    model.state, size, {static_cast<int>(random() % 150), static_cast<int>(random() % 40)});
                click && random() % 10 == 0)
                update(model.state, *click);
            ASSERT_NO_FATAL_FAILURE(model.expectWhole()) << "after " << press << " keys of round " << round;
            model.state.wishes.clear();
            model.state.isDone = false;
        }
    }
}

// A folder of very many entries: a key never puts them in order, and the selection stays on its item.
TEST(BrowserModelTests, manyEntries) {
    Model model;
    for (int number = 0; number < 6000; ++number)
        model.home.makeFile("files/f" + std::to_string(number));
    model.home.makeFile("files/large", 1000);
    begin(model.state, model.path("files"));
    model.work();
    ASSERT_EQ(rowCount(model.state), 6001U);
    EXPECT_EQ(entryAt(model.state, 0)->name, "large");
    model.type("<End>");
    const std::string_view selected = entryAt(model.state, model.state.cursor().row)->name;
    update(model.state, KeyPress::of("n"));
    EXPECT_EQ(model.state.requests.size(), 1U) << "asked for, not done";
    EXPECT_EQ(rowCount(model.state), 6001U) << "the old order meanwhile";
    model.work();
    EXPECT_EQ(entryAt(model.state, 0)->name, "f0");
    EXPECT_EQ(entryAt(model.state, model.state.cursor().row)->name, selected);
    update(model.state, KeyPress::of("A"));
    EXPECT_EQ(model.state.marks.count(), 6001U);
    model.work();
    // What was typed ahead means the rows that will be there.
    model.type("U");
    for (const KeyPress& press : MemoryScreen::keys("/lar<Enter>AU/<C-u>f1<Enter>A"))
        update(model.state, press);
    model.work();
    EXPECT_EQ(rowCount(model.state), 1111U);
    EXPECT_EQ(model.state.marks.count(), 1111U);
    model.type("U<End>");
    for (const KeyPress& press : MemoryScreen::keys("/<C-u>lar<Enter>d"))
        update(model.state, press);
    EXPECT_FALSE(model.state.question) << "what it stood on is no row any more";
    model.work();
    ASSERT_TRUE(model.state.question);
    EXPECT_TRUE(model.state.question->lines.at(0).ends_with("large"));
}

TEST(BrowserModelTests, marksAreASet) {
    FileTreeBuilder tree("/r");
    std::vector<const FileNode*> nodes;
    FileNode& folder = tree.addFolder(tree.root(), "in");
    for (std::size_t number = 0; number < 3000; ++number)
        nodes.push_back(
            &tree.addFile(number % 3 == 0 ? tree.root() : folder, std::string(number % 41, 'x'), 1));
    std::mt19937_64 random(3);
    Marks marks;
    std::set<const FileNode*> expected;
    for (int round = 0; round < 20'000; ++round) {
        const FileNode* node = nodes[random() % nodes.size()];
        if (round < 12'000 ? random() % 3 != 0 : random() % 8 == 0)
            EXPECT_EQ(marks.add(*node), expected.insert(node).second);
        else
            EXPECT_EQ(marks.remove(*node), expected.erase(node) > 0);
    }
    const std::vector<const FileNode*> all = marks.nodes();
    EXPECT_EQ(all.size(), marks.count());
    EXPECT_EQ(std::set(all.begin(), all.end()), expected);
    for (const FileNode* node : nodes)
        ASSERT_EQ(marks.contains(*node), expected.contains(node));
    // The folder swallows what is marked in it.
    EXPECT_TRUE(marks.add(folder));
    std::erase_if(expected, [&](const FileNode* node) { return node->parent() == &folder; });
    EXPECT_EQ(marks.count(), expected.size() + 1);
}

// Answers that come between two keys.
TEST(BrowserModelTests, lateAnswers) {
    Model model;
    model.home.makeFile("files/in/file", 2'000'000);
    begin(model.state, model.path("files"));
    model.work();
    const auto typeAhead = [&](std::string_view keys) {
        for (const KeyPress& press : MemoryScreen::keys(keys))
            update(model.state, press);
    };
    // A rule is typed while a scan ends, which makes the view of rules forget what it showed.
    BrowserParts::showView(model.state, BrowserView::rules);
    model.work();
    const std::size_t presets = model.state.rules.value->rules.size();
    typeAhead("rnBig --larger 1MB");
    while (model.state.isScanning())
        ASSERT_TRUE(model.answer(1));
    typeAhead("<Enter>");
    model.work();
    EXPECT_EQ(model.state.rules.value->rules.size(), presets + 1);
    EXPECT_EQ(AppSettings(model.services.settings()).cleanupRules()->back().name, "Big");
    // A word that is typed ahead is a word, also where none is asked for.
    BrowserParts::showView(model.state, BrowserView::list);
    for (const auto& [way, isLeft] : {std::pair{WayOut::trash, true}, {WayOut::deletion, false}}) {
        const fs::path item = model.home.makeFile("files/other");
        model.services.wayOutOf = [=](const fs::path&) { return way; };
        model.type("r<End>");
        typeAhead("Ddelete<Enter>");
        model.work();
        EXPECT_EQ(fs::exists(item), isLeft);
        EXPECT_FALSE(model.state.question || model.state.prompt);
    }
    typeAhead("D<Esc>d");
    EXPECT_TRUE(model.state.question) << "called off";
    typeAhead("n");
    model.work();
    // What comes back while a folder is read again, behind the reader's back.
    model.home.makeFile("files/other");
    model.type("r<End>dy");
    ASSERT_EQ(rowCount(model.state), 1U);
    typeAhead("ru");
    while (model.state.meanwhile.since.empty())
        ASSERT_TRUE(model.answer(static_cast<std::size_t>(BrowserLane::act)));
    fs::rename(model.path("files/other"), model.path("aside"));
    while (!model.state.meanwhile.since.empty())
        ASSERT_TRUE(model.answer(static_cast<std::size_t>(BrowserLane::look)));
    fs::rename(model.path("aside"), model.path("files/other"));
    model.work();
    EXPECT_EQ(rowCount(model.state), 2U);
    model.type("<End>dy");
    // The folder that one has gone into meanwhile goes to the Trash.
    model.type("<Esc>");
    for (int number = 0; number < 4100; ++number)
        model.home.makeFile("files/f" + std::to_string(number), 1);
    model.type("r");
    typeAhead("dy<Enter>");
    ASSERT_EQ(rowCount(model.state), 1U);
    model.work();
    EXPECT_EQ(model.state.folder->parent(), nullptr);
    EXPECT_EQ(rowCount(model.state), 4100U);
}

// What is known of very many items follows acts and scans away from the keys, whatever comes in between.
TEST(BrowserModelTests, veryManyItems) {
    constexpr std::size_t count = fewItems + 20;
    Model model;
    BrowserState& state = model.state;
    for (std::size_t number = 0; number < count; ++number)
        model.home.makeFile("files/many/f" + std::to_string(number), 1);
    model.home.makeFile("files/other", 5);
    begin(state, model.path("files"));
    model.work();
    const auto typeAhead = [&](std::string_view keys) {
        for (const KeyPress& press : MemoryScreen::keys(keys))
            update(state, press);
    };
    const auto answerUntil = [&](BrowserLane lane, const auto& isTrue) {
        while (!isTrue())
            ASSERT_TRUE(model.answer(static_cast<std::size_t>(lane)));
    };
    const auto sizeOf = [&](const char* name) {
        return state.removals->restOf(*state.tree->root().node(name)).fileCount;
    };
    model.type("<Home><Enter>A");
    ASSERT_EQ(state.marks.count(), count);
    // Marks change while a folder is read again, and while they are carried into the new tree.
    typeAhead("r ");
    const auto isCarrying = [&] {
        return std::ranges::any_of(state.requests, [](const BrowserRequest& request) {
            return std::holds_alternative<BrowserJobs::Carry>(request.job);
        });
    };
    answerUntil(BrowserLane::look, isCarrying);
    typeAhead(" ");
    answerUntil(BrowserLane::upkeep, [&] { return !isCarrying(); });
    answerUntil(BrowserLane::upkeep, isCarrying);
    EXPECT_TRUE(state.isScanning()) << "once more";
    model.work();
    EXPECT_FALSE(state.isScanning());
    EXPECT_EQ(state.marks.count(), count - 2);
    for (const FileNode* node : state.marks.nodes())
        ASSERT_EQ(&node->root(), &state.tree->root());
    // One act more, and a scan, before the books of a large act are closed.
    model.type("UA");
    typeAhead("dy");
    answerUntil(BrowserLane::act, [&] { return state.followAwaited != 0; });
    EXPECT_EQ(rowCount(state), count) << "not yet";
    typeAhead("h<End>U");
    answerUntil(BrowserLane::quick, [&] { return state.orderAwaited == 0; });
    typeAhead("dy");
    model.work();
    EXPECT_TRUE(state.unfollowed.empty());
    EXPECT_EQ(state.removals->all().size(), count + 1);
    EXPECT_EQ(sizeOf("many"), 0);
    EXPECT_TRUE(state.marks.isEmpty());
    EXPECT_FALSE(fs::exists(model.path("files/other")));
    typeAhead("ur");
    answerUntil(BrowserLane::act, [&] { return state.followAwaited != 0 || state.unfollowed.empty(); });
    model.work();
    EXPECT_EQ(state.tree->root().fileCount(), 1) << "read when one was back";
    model.type("u");
    EXPECT_EQ(state.tree->root().fileCount(), static_cast<std::int64_t>(count) + 1);
    EXPECT_TRUE(state.removals->isEmpty());
    // What a part that is read again does not hold stays gone.
    model.type("<Home><Enter>Adyh<End>");
    fs::create_directory(model.path("files/part"));
    model.type("r");
    EXPECT_EQ(sizeOf("many"), 0);
    // Books that cannot be closed: everything is read again.
    typeAhead("u");
    answerUntil(BrowserLane::act, [&] { return state.followAwaited != 0; });
    update(state, BrowserEvents::Failed{state.followAwaited, "There is not enough memory."});
    EXPECT_TRUE(state.isScanning());
    model.work();
    EXPECT_EQ(state.tree->root().fileCount(), static_cast<std::int64_t>(count) + 1);
    EXPECT_TRUE(state.removals->isEmpty());
    // A search in a folder that went finds nothing, also when something else comes back.
    model.type("<Home><Enter>ff1<Enter>");
    EXPECT_FALSE(state.found.value->nodes.empty());
    BrowserParts::showView(state, BrowserView::list);
    model.type("h<Home>dy<End>dyu");
    EXPECT_TRUE(state.found.value->nodes.empty());
    EXPECT_EQ(state.found.value->totals.count, 0);
    // Of very many outcomes the failures stay.
    model.services.shareBlocks = [](const SharingRequest&, const CancellationToken&) {
        std::vector<SharingOutcome> outcomes(25'000, SharingDone{.url = "/done", .bytesFreed = 2});
        outcomes.front() = SharingFailed{.url = "/first", .message = "It cannot be."};
        std::promise<std::vector<SharingOutcome>> promise;
        promise.set_value(std::move(outcomes));
        return promise.get_future();
    };
    BrowserParts::ask(state, BrowserJobs::Share{{SharingRequest{}}});
    model.work();
    EXPECT_EQ(state.outcomes.size(), 10'000U);
    EXPECT_EQ(state.outcomes.front().text, "/first: It cannot be.");
    EXPECT_EQ(state.message, "Share blocks: 24,999 items done, 50 KB freed, 1 not: see Outcomes");
}

// Others change the rules while somebody looks at them: one change is put in, the rest stays theirs.
TEST(BrowserModelTests, rulesThatOthersChange) {
    Model model;
    model.home.makeFile("files/file", 2'000'000);
    const auto rule = [](const char* id, std::int64_t least) {
        return CleanupRule{.id = id, .name = id, .minimumSize = least};
    };
    const auto stored = [&] { return *AppSettings(model.services.settings()).cleanupRules(); };
    const auto others = [&](const std::vector<CleanupRule>& rules) {
        AppSettings(model.services.settings()).setCleanupRules(rules);
    };
    others({rule("one", 1), rule("two", 2), rule("three", 3)});
    begin(model.state, model.path("files"));
    BrowserParts::showView(model.state, BrowserView::rules);
    model.work();
    others({rule("new", 9), rule("one", 1), rule("two", 20)});
    model.type(" "); // off
    CleanupRule off = rule("one", 1);
    off.isEnabled = false;
    EXPECT_EQ(stored(), (std::vector{rule("new", 9), off, rule("two", 20)}));
    EXPECT_EQ(model.state.rules.value->rules, stored()) << "shown at once";
    EXPECT_EQ(model.state.rules.value->matches.size(), 2U);
    EXPECT_EQ(model.state.cursor().row, 1U) << "on the same rule";
    model.type("<End>e");
    others({rule("two", 20), rule("new", 9)});
    model.type(" --extension dat<Enter>");
    ASSERT_EQ(stored().size(), 2U);
    EXPECT_EQ(stored()[0].extensions, std::vector<std::string>{"dat"});
    model.type("<Home>x");
    others({rule("new", 9), rule("last", 1)});
    model.type("y");
    EXPECT_EQ(stored(), (std::vector{rule("new", 9), rule("last", 1)})) << "dropped by others already";
    others({});
    BrowserParts::refreshView(model.state);
    BrowserParts::forgetFindings(model.state);
    BrowserParts::showView(model.state, BrowserView::rules);
    model.work();
    EXPECT_EQ(rowCount(model.state), 0U) << "what is stored counts again";
}

// While the scan runs: rows come sorted, items can be marked, and are the same ones in the end.
TEST(BrowserModelTests, marksOfAScanUnderWay) {
    Model model;
    for (int number = 0; number < 100; ++number)
        model.home.makeFile("files/folder/f" + std::to_string(number), static_cast<std::uint64_t>(number));
    model.home.makeFile("files/home/mine");
    model.state.homeFolder = std::make_shared<const HomeFolder>(model.path("files/home"));
    BrowserState& state = model.state;
    begin(state, model.path("files"));
    const std::uint64_t id = state.scanAwaited;
    state.requests.clear();
    // All is read, and nobody has told the browser that it is the end.
    const auto live = std::make_shared<LiveTree>();
    ScanResult result = DiskScanner().scan(model.path("files"), {}, nullptr, {}, live).get();
    const auto progress = [&] {
        const ScanProgress nothingRead;
        update(state,
               BrowserEvents::ScanProgressed{id, nothingRead, std::make_shared<const LiveTreeSource>(live)});
        model.work();
    };
    progress();
    ASSERT_EQ(rowCount(state), 2U);
    EXPECT_EQ(entryAt(state, 0)->name, "folder");
    model.type("j ");
    EXPECT_EQ(state.marks.count(), 0U) << "the home stays";
    model.type("kl");
    ASSERT_EQ(rowCount(state), 100U);
    EXPECT_EQ(entryAt(state, 0)->name, "f99") << "sorted meanwhile";
    // A range begins at its item, wherever that goes.
    model.type("vn");
    EXPECT_EQ(state.rangeStart, 99U);
    model.type("<Home>j ");
    EXPECT_EQ(state.marks.count(), 99U);
    model.type("Us<Home>");
    model.type("jA U j d");
    progress();
    EXPECT_EQ(state.marks.count(), 2U);
    EXPECT_FALSE(state.question) << "nothing is moved before all is known";
    const FileNode* marked = state.marks.nodes().front();
    update(state,
           BrowserEvents::ScanEnded{id, std::make_shared<const BrowserTree>(std::move(result), "/nowhere")});
    model.work();
    EXPECT_EQ(state.marks.count(), 2U);
    EXPECT_EQ(&marked->root(), &state.tree->root());
    ASSERT_TRUE(state.freed.value);
    // In another tree of the same folder: the same items, however many there are.
    model.type("Ar");
    EXPECT_EQ(state.marks.count(), 100U);
    EXPECT_NE(&marked->root(), &state.tree->root());
    EXPECT_TRUE(state.marks.covers(*state.tree->root().node("folder/f42")));
    EXPECT_EQ(state.folder, state.tree->root().node("folder"));
}

// Of what has gone since the scan no view speaks again, and no figure counts it.
TEST(BrowserModelTests, whatHasGoneIsCountedNowhere) {
    Model model;
    AppSettings settings(model.services.settings());
    CleanupRule rule;
    rule.id = "all";
    rule.name = "All";
    rule.extensions = {"dat"};
    rule.minimumSize = 1000;
    settings.setCleanupRules(std::vector{rule});
    for (const auto& [file, size] :
         {std::pair{"in/gone.dat", 4'000'000}, {"in/stays.dat", 2'000'000}, {"out.dat", 1'000'000}})
        model.home.makeFile(std::string("files/") + file, static_cast<std::uint64_t>(size));
    begin(model.state, model.path("files"));
    model.work();
    model.type("l dyh");
    model.type("fdat<Enter>");
    EXPECT_EQ(model.state.found.value->totals.count, 2);
    EXPECT_EQ(model.state.found.value->totals.size, 3'000'000);
    EXPECT_EQ(model.state.found.value->nodes.size(), 2U);
    model.type("f<C-u>--larger 1MB<Enter>");
    EXPECT_EQ(model.state.found.value->totals.count, 3);
    EXPECT_EQ(model.state.found.value->totals.size, 3'000'000) << "a folder stands for what it holds";
    EXPECT_EQ(model.state.found.value->nodes.back()->name(), "out.dat");
    const auto show = [&](BrowserView view) {
        BrowserParts::showView(model.state, view);
        model.work();
    };
    const auto foundSize = [&] { return model.state.found.value->totals.size; };
    // What goes from what was found, and comes back; what goes while the search is under way.
    show(BrowserView::list);
    model.type("w");
    show(BrowserView::changes);
    EXPECT_EQ((*model.state.changes.value)->delta.totalChange, 0);
    show(BrowserView::found);
    model.type("dy");
    EXPECT_EQ(foundSize(), 1'000'000);
    EXPECT_EQ(model.state.found.value->totals.count, 1);
    show(BrowserView::changes);
    EXPECT_EQ((*model.state.changes.value)->delta.totalChange, -2'000'000);
    model.type("u");
    EXPECT_EQ(foundSize(), 3'000'000);
    EXPECT_EQ((*model.state.changes.value)->delta.totalChange, 0);
    show(BrowserView::list);
    for (const KeyPress& press : MemoryScreen::keys("f<C-u>dat<Enter>"))
        update(model.state, press);
    BrowserParts::showView(model.state, BrowserView::list);
    for (const KeyPress& press : MemoryScreen::keys("<End>dy"))
        update(model.state, press);
    while (model.answer(static_cast<std::size_t>(BrowserLane::act))) {
    }
    EXPECT_EQ(foundSize(), 2'000'000);
    model.type("u");
    EXPECT_EQ(foundSize(), 3'000'000);
    show(BrowserView::largest);
    EXPECT_EQ(model.state.figures.value->largestFiles.size(), 2U);
    EXPECT_EQ(model.state.figures.value->largestFiles.front()->name(), "stays.dat");
    show(BrowserView::rules);
    for (const RuleMatch& match : model.state.rules.value->matches)
        EXPECT_EQ(match.totalSize, 3'000'000);
    EXPECT_EQ(model.state.rules.value->matches.size(), 1U);
    show(BrowserView::list);
    model.type("<Home> ");
    ASSERT_EQ(model.state.marks.nodes().front()->name(), "in");
    EXPECT_EQ(model.state.freed.value->atMost,
              model.state.marks.nodes().front()->children()[1]->allocatedSize);
    model.type("w");
    for (const ScanSnapshot& snapshot : model.services.snapshotStore()->list())
        EXPECT_EQ(snapshot.totalSize, 3'000'000);
    // The other link of a file that has left the disk is its last one.
    const fs::path first = model.home.makeFile("files/links/first", 8192);
    fs::create_hard_link(first, model.path("files/links/second"));
    model.type("Ur");
    model.services.wayOutOf = [](const fs::path&) { return WayOut::deletion; };
    const FileNode* linked = model.state.tree->root().node("links/first");
    BrowserParts::visit(model.state, linked->parent(), linked);
    model.work();
    model.type("D");
    model.type("delete<Enter>");
    ASSERT_FALSE(fs::exists(first));
    model.type("<Home> ");
    EXPECT_EQ(model.state.freed.value->atLeast, 8192);
    EXPECT_TRUE(model.state.freed.value->reasons.empty());
}

// The end of the program: steps are whole, and what has not begun is left as it is.
TEST(BrowserModelTests, actsEndBetweenItems) {
    Model model;
    for (const char* file : {"files/a", "files/b", "files/c"})
        model.home.makeFile(file, 10);
    begin(model.state, model.path("files"));
    model.work();
    model.moveToTrash = [&, move = model.moveToTrash](const fs::path& item) {
        model.surroundings.interruption->interrupt();
        return move(item);
    };
    model.type("Ady");
    EXPECT_EQ(rowCount(model.state), 2U);
    EXPECT_EQ(model.state.outcomes.size(), 3U);
    // Leaving while something is under way asks.
    model.type("U");
    for (const KeyPress& press : MemoryScreen::keys("dyqn"))
        update(model.state, press);
    EXPECT_FALSE(model.state.isDone);
    for (const KeyPress& press : MemoryScreen::keys("qy"))
        update(model.state, press);
    EXPECT_TRUE(model.state.isDone);

    std::promise<void> begun;
    std::promise<void> gate;
    std::vector<std::uint64_t> done;
    WorkQueue queue(
        [&](const BrowserRequest& request, const CancellationToken&, const WorkQueue::Post&) {
            if (request.id == 1) {
                begun.set_value();
                gate.get_future().wait();
            }
            done.push_back(request.id);
        },
        [] {});
    queue.add({1, BrowserJobs::Undo{nullptr}});
    queue.add({2, BrowserJobs::Undo{nullptr}});
    queue.add({3, BrowserJobs::Remember{}});
    begun.get_future().wait();
    EXPECT_TRUE(queue.drop(BrowserLane::act, [](const BrowserJob& job) {
        return std::holds_alternative<BrowserJobs::Remember>(job);
    }));
    gate.set_value();
    queue.waitFor(BrowserLane::act);
    EXPECT_EQ(done, (std::vector<std::uint64_t>{1, 3}));
}

TEST(BrowserModelTests, typedLines) {
    const Date now = currentDate();
    const SearchConditions conditions =
        typedConditions("'two words' *.pdf >10MB <1GB --older 30d --kind file", SizeMode::allocated, now);
    EXPECT_EQ(conditions.names.size(), 2U);
    EXPECT_EQ(conditions.names.front().text, "two words");
    EXPECT_EQ(conditions.minimumSize, 10'000'000);
    EXPECT_EQ(conditions.maximumSize, 1'000'000'000);
    EXPECT_EQ(conditions.kinds, std::vector{SearchKind::file});
    EXPECT_TRUE(conditions.modified.before.has_value());
    EXPECT_ANY_THROW(typedConditions("--older soon", SizeMode::apparent, now));
    EXPECT_ANY_THROW(typedConditions("--unknown", SizeMode::apparent, now));
    for (const CleanupRule& rule : CleanupRule::presets()) {
        CleanupRule again = typedRule(ruleText(rule));
        again.id = rule.id;
        again.isEnabled = rule.isEnabled;
        EXPECT_EQ(again, rule.normalized()) << ruleText(rule);
    }
    for (const char* name :
         {"Joe's disks", "two  blanks", "back\\slash", "--odd", "a --larger", "\"q\"", "-x"}) {
        CleanupRule rule;
        rule.name = name;
        rule.minimumSize = 5;
        const CleanupRule again = typedRule(ruleText(rule));
        EXPECT_EQ(again.name, name);
        EXPECT_EQ(again.minimumSize, 5) << ruleText(rule);
    }
    EXPECT_ANY_THROW(typedRule("everything"));
}

} // namespace tarnwell::test
