// The tool, while each of its system calls fails.

#include "TarnwellCore/Snapshots/SnapshotStore.hpp"

#include "Tests/Faults/Linux/FaultyProgram.hpp"
#include "Tests/Support/JSONListing.hpp"
#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/RandomTree.hpp"
#include "Tests/Support/SampleSnapshots.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <regex>
#include <string>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::Fault;
using test::FaultyOutcome;
using test::FaultyRun;
using test::Program;
using test::writeFile;
using ToolFaults = test::ProgramFaults;

/// Two stored snapshots, of which the second is larger.
constexpr const char* olderID = "11111111-1111-4111-8111-111111111111";
constexpr const char* newerID = "22222222-2222-4222-8222-222222222222";

/// Some of everything, in `world`/tree.
void makeTree(const fs::path& world) {
    const fs::path tree = world / "tree";
    writeFile(tree / "notes.txt", std::string(5'000, 'n'));
    writeFile(tree / "photo.JPG", std::string(20'000, 'p'));
    writeFile(tree / "plan.dxf", "for the type database");
    writeFile(tree / "Tool.app/Contents/binary", std::string(9'000, 'b'));
    fs::create_symlink("nowhere", tree / "link");
    fs::create_hard_link(tree / "notes.txt", tree / "second name");
    ::mkfifo((tree / "pipe").c_str(), 0644);
    fs::path level = tree;
    for (int depth = 0; depth < 9; ++depth) {
        level /= "level " + std::to_string(depth);
        writeFile(level / "file", std::string(static_cast<std::size_t>(depth) * 100, 'd'));
        fs::create_directory(level / "sibling");
    }
}

void makeSmallTree(const fs::path& world) {
    writeFile(world / "tree/one", std::string(9'000, '1'));
    writeFile(world / "tree/folder/two", std::string(200'000, '2'));
    writeFile(world / "tree/folder/three", std::string(7'000, '3'));
    ::mkfifo((world / "tree/folder/pipe").c_str(), 0644);
    const int folder = ::open(world.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::syncfs(folder); // only then do files have extents
    ::close(folder);
}

fs::path storeOf(const fs::path& world) {
    return world / "data/Tarnwell/Snapshots";
}

void makeStore(const fs::path& world) {
    SnapshotStore store(storeOf(world));
    for (const char* id : {olderID, newerID}) {
        ScanSnapshot snapshot = test::makeCheckableSnapshot(*UUID::parse(id), 40);
        snapshot.createdAt = dateFromReferenceSeconds(id == olderID ? 700'000'000 : 700'100'000);
        store.save(snapshot);
    }
    writeFile(storeOf(world) / "damaged.json", "{");
}

void makeTreeAndStore(const fs::path& world) {
    makeTree(world);
    makeStore(world);
}

std::map<std::string, std::string> filesIn(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        files[entry.path().filename()] = test::readFile(entry.path());
    return files;
}

/// Snapshots as they were; what else there is in the store.
struct StoreState {
    bool areOldOnesWhole = false;
    std::vector<std::string> others;

    explicit StoreState(const fs::path& world) {
        static const std::map<std::string, std::string> original = [] {
            const test::TemporaryFolder folder;
            makeStore(folder.path());
            return filesIn(storeOf(folder.path()));
        }();
        std::map<std::string, std::string> files = filesIn(storeOf(world));
        areOldOnesWhole = std::ranges::all_of(original, [&](const auto& file) {
            const auto found = files.find(file.first);
            return found != files.end() && found->second == file.second;
        });
        for (const auto& [name, contents] : files)
            if (!original.contains(name))
                others.push_back(name);
    }
};

std::string withoutIdentities(const std::string& text) {
    static const std::regex uuid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
    static const std::regex world("[^\" \n]*/(original|world[0-9]+)/");
    static const std::regex date("20[0-9-]{8}T[0-9:]{8}Z");
    return std::regex_replace(std::regex_replace(std::regex_replace(text, uuid, "UUID"), world, "WORLD/"),
                              date, "DATE");
}

/// A listing may lack what could not be read; what it has is no more than there is.
std::string listingComplaint(const FaultyRun& run) {
    if (run.outcome.exitCode != 0)
        return {};
    const auto listing = test::readJSONListing(run.outcome.output);
    const auto all = test::readJSONListing(run.undisturbed.output);
    if (!listing || !all)
        return "the listing is not whole";
    if (listing->totalSize > all->totalSize)
        return "the total is more than there is";
    for (const auto& [path, size] : listing->sizes) {
        const auto real = all->sizes.find(path);
        if (real == all->sizes.end())
            return "lists what is not there: " + path;
        // Which of two links carries the bytes depends on which could be read.
        const bool mayCarryLink = path.ends_with("second name") || path.ends_with("notes.txt");
        if (size > real->second && !mayCarryLink)
            return "lists more than there is: " + path;
    }
    return {};
}

/// Whatever happens, the snapshots that were there stay whole, and nothing is left behind.
std::string readingComplaint(const FaultyRun& run) {
    const StoreState state(run.world);
    if (!state.areOldOnesWhole)
        return "a stored snapshot was lost or changed";
    return state.others.empty() ? "" : "left behind: " + state.others.front();
}

std::string savingComplaint(const FaultyRun& run) {
    const auto& [world, outcome, undisturbed, fault] = run;
    const StoreState state(world);
    if (!state.areOldOnesWhole)
        return "a stored snapshot was lost or changed";
    const bool mayBeLeft = fault.count == 0 && fault.kind == "unlink";
    // Memory may run out when the snapshot is stored and the answer is made.
    const bool mayBeStored = outcome.exitCode == 0 || fault.kind == "memory";
    if ((state.others.size() > (mayBeStored ? 1u : 0u) && !mayBeLeft) ||
        (outcome.exitCode == 0 && state.others.empty()))
        return std::to_string(state.others.size()) +
               " files more than before: " + (state.others.empty() ? "" : state.others.front());
    if (state.others.empty() || mayBeLeft)
        return {};
    if (outcome.exitCode == 0 && outcome.output.find(state.others.front().substr(0, 36)) == std::string::npos)
        return "stored " + state.others.front();
    const std::vector<ScanSnapshot> listed = SnapshotStore(storeOf(world)).list();
    return listed.size() == 3 && listed.front().totalFiles <= 20 ? "" : "the new snapshot is not whole";
}

const Program scanOfTree{.arguments = {TARNWELL_TOOL, "scan", "WORLD/tree", "--json", "--depth=99"}};
const Program saveOfTree{.arguments = {TARNWELL_TOOL, "snapshot", "save", "WORLD/tree"}};

TEST_F(ToolFaults, Scan) {
    Program program = scanOfTree;
    for (const std::size_t limit : {0u, 12u}) { // so few that hardly a folder keeps its own
        SCOPED_TRACE(limit);
        program.descriptorLimit = limit;
        test::expectToSurviveFaults({
            .prepare = makeTree,
            .program = program,
            .complaint = listingComplaint,
            .changesWorld = false,
        });
    }
}

TEST_F(ToolFaults, ScanWhereExtentsAreShared) {
    const auto image = test::MountedImage::make({.type = "btrfs"});
    if (!image)
        GTEST_SKIP() << image.error();
    test::expectToSurviveFaults({
        .prepare = makeSmallTree,
        .program = scanOfTree,
        .complaint = listingComplaint,
        .place = (*image)->path(),
        .changesWorld = false,
    });
}

TEST_F(ToolFaults, FewDescriptorsChangeNothing) {
    const test::TemporaryFolder world;
    makeTree(world.path());
    test::makeRandomTree(world.makeFolder("tree/random"), 400, 9);
    Program program = scanOfTree;
    program.world = world.path();
    const FaultyOutcome whole = test::runWithFault(program);
    ASSERT_EQ(whole.exitCode, 0) << whole.error;
    for (const std::size_t limit : {20u, 15u, 12u, 10u}) {
        program.descriptorLimit = limit;
        const FaultyOutcome outcome = test::runWithFault(program);
        EXPECT_EQ(outcome.exitCode, 0) << limit << ": " << outcome.error;
        EXPECT_TRUE(outcome.output == whole.output) << limit;
    }
}

// Folders are opened from an ancestor far above then, by names that are put together.
TEST_F(ToolFaults, NeitherDescriptorsNorMemory) {
    const test::TemporaryFolder world;
    std::string names = "tree";
    for (int depth = 0; depth < 30; ++depth) {
        const std::string folder = names + "/";
        world.makeFolder(names = folder + std::string(100, 'n'));
        for (const char* leaf : {"1", "2", "3", "4"}) // wait, and their parent with them
            world.makeFolder(folder + leaf);
    }
    const Program program{
        .arguments = {TARNWELL_TOOL, "scan", "WORLD/tree"}, .world = world.path(), .descriptorLimit = 12};
    const FaultyOutcome whole = test::runWithFault(program);
    ASSERT_EQ(whole.exitCode, 0) << whole.error;
    const long step = 1 + whole.count("memory") / (test::isSanitized() ? 40 : 200);
    for (long call = 1; call <= whole.count("memory"); call += step) {
        const FaultyOutcome outcome =
            test::runWithFault(program, Fault{.kind = "memory", .call = call, .error = ENOMEM});
        EXPECT_TRUE(outcome.exitCode == 0 || outcome.exitCode == 1) << call << ": " << outcome.exitCode;
        EXPECT_EQ(outcome.count("descriptors"), 0) << call;
    }
}

TEST_F(ToolFaults, SnapshotSave) {
    test::expectToSurviveFaults({
        .prepare = makeTreeAndStore,
        .program = saveOfTree,
        .essence = withoutIdentities,
        .complaint = savingComplaint,
    });
}

TEST_F(ToolFaults, SnapshotSaveIntoAStoreThatIsNotThere) {
    test::expectToSurviveFaults({
        .prepare = makeTree,
        .program = saveOfTree,
        .essence = withoutIdentities,
        .complaint = [](const FaultyRun& run) -> std::string {
            std::size_t files = 0;
            std::error_code none;
            for (const auto& entry : fs::recursive_directory_iterator(run.world / "data", none))
                files += entry.is_directory() ? 0 : 1;
            if (run.fault.count == 0 && run.fault.kind == "unlink")
                return {};
            const bool isRight = run.outcome.exitCode == 0
                                     ? files == 1
                                     : files == 0 || (files == 1 && run.fault.kind == "memory");
            return isRight ? "" : std::to_string(files) + " files";
        },
    });
}

TEST_F(ToolFaults, SnapshotList) {
    test::expectToSurviveFaults({
        .prepare = makeStore,
        .program = {.arguments = {TARNWELL_TOOL, "snapshot", "list"}},
        .complaint = [](const FaultyRun& run) -> std::string {
            const std::string& whole = run.undisturbed.output;
            const std::string& seen = run.outcome.output;
            const std::size_t middle = whole.find('\n') + 1;
            // What cannot be read is passed over.
            const bool isPart = seen == whole || seen == whole.substr(0, middle) ||
                                seen == whole.substr(middle) || seen == "No snapshots.\n";
            return run.outcome.exitCode == 0 && !isPart ? "lists something else" : readingComplaint(run);
        },
        .changesWorld = false,
        .mayEndWithoutMemory = true, // the iterator over folders
    });
}

TEST_F(ToolFaults, SnapshotDiff) {
    test::expectToSurviveFaults({
        .prepare = makeStore,
        .program = {.arguments = {TARNWELL_TOOL, "snapshot", "diff", olderID, newerID, "--json"}},
        .complaint = [](const FaultyRun& run) -> std::string {
            const bool isOther = run.outcome.exitCode == 0 && run.outcome.output != run.undisturbed.output;
            return isOther ? "shows another difference" : readingComplaint(run);
        },
        .changesWorld = false,
        .mayEndWithoutMemory = true, // the iterator over folders
    });
}

} // namespace
} // namespace tarnwell
