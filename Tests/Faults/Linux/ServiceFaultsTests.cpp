// Settings, the runner of other programs, the Trash, volumes, measuring and deleting, while each of their
// system calls fails.

#include "Tests/Faults/Linux/FaultyProgram.hpp"
#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::FaultyRun;
using test::writeFile;
using ServiceFaults = test::ProgramFaults;

const std::string oldSettings = "{\n  \"other\": \"kept\",\n  \"theme\": \"dark\"\n}\n";
const std::string newSettings = "{\n  \"other\": \"kept\",\n  \"theme\": \"light\"\n}\n";

void makeSettings(const fs::path& world) {
    writeFile(world / "config/com.tarnwell.json", oldSettings);
}

TEST_F(ServiceFaults, ChangingASetting) {
    test::expectToSurviveFaults({
        .prepare = makeSettings,
        .program = {.arguments = {TARNWELL_FAULTS_SUBJECT, "set", "theme", "light"}},
        .complaint = [](const FaultyRun& run) -> std::string {
            const std::string& kind = run.fault.kind;
            const int exitCode = run.outcome.exitCode;
            const std::string text = test::readFile(run.world / "config/com.tarnwell.json");
            const fs::path damaged = run.world / "config/com.tarnwell.json.damaged";
            const bool isKeptAside = fs::exists(damaged) && test::readFile(damaged) == oldSettings;
            // A file of which the system says that it is not there holds nothing to keep.
            const bool seemsMissing = kind == "open" && run.fault.error == ENOENT && exitCode == 0;
            if (text != oldSettings && text != newSettings && !isKeptAside && !seemsMissing)
                return "settings were lost: " + text;
            // Without the folder's sync nobody can say so, though the new file is in place.
            const bool isNewUnsynced = kind == "sync" || kind == "close" || kind == "memory";
            if (exitCode == 0 && text == oldSettings)
                return "stored nothing and said it had";
            if (exitCode == 1 && text == newSettings && !isNewUnsynced)
                return "stored a change and said it had not";
            for (const fs::directory_entry& entry : fs::directory_iterator(run.world / "config"))
                if (entry.path().extension() == ".tmp" && kind != "unlink")
                    return "left behind: " + entry.path().string();
            return {};
        },
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, ReadingASetting) {
    test::expectToSurviveFaults({
        .prepare = makeSettings,
        .program = {.arguments = {TARNWELL_FAULTS_SUBJECT, "get", "theme"}},
        .complaint = [](const FaultyRun& run) -> std::string {
            if (test::readFile(run.world / "config/com.tarnwell.json") != oldSettings)
                return "reading changed the settings";
            return run.outcome.exitCode == 1 || run.outcome.output == "dark\n" ? "" : "reads something else";
        },
        .changesWorld = false,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, RunningAndEndingOtherPrograms) {
    test::expectToSurviveFaults({
        // The second one, where it cannot be asked to end, does so by itself before the grace period is over.
        .program = {.arguments = {TARNWELL_FAULTS_SUBJECT, "shell", "echo out; echo err >&2; exit 3",
                                  "exec sleep 1"}},
        .complaint = [](const FaultyRun& run) -> std::string {
            const std::string notStarted = "not started\n";
            const std::string whole = "3 [out\n] [err\n]\n";
            const std::string ended = "-9 [] [timed out after 0.05s]\n";
            const std::string& output = run.outcome.output;
            if (run.outcome.exitCode == 1)
                return {};
            if (!output.ends_with(ended) && !output.ends_with(notStarted))
                return "did not end the second program";
            // A pipe that cannot be read any more ends, and a status that nobody gets is -1.
            if (run.fault.kind == "read" || run.fault.kind == "wait")
                return {};
            for (const std::string& first : {whole, notStarted})
                for (const std::string& again : {whole, notStarted})
                    for (const std::string& second : {ended, notStarted})
                        if (output == first + again + second)
                            return {};
            return "another result";
        },
        .changesWorld = false,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, ListingVolumes) {
    test::expectToSurviveFaults({
        .program = {.arguments = {TARNWELL_FAULTS_SUBJECT, "volumes"}},
        .complaint = [](const FaultyRun& run) -> std::string {
            if (run.outcome.exitCode == 1)
                return {};
            std::istringstream lines(run.outcome.output);
            for (std::string line; std::getline(lines, line);)
                if (line != "no figures" && run.undisturbed.output.find(line + "\n") == std::string::npos)
                    return "lists what is not there: " + line;
            return run.outcome.output.ends_with("figures\n") ? "" : "did not come to its end";
        },
        .changesWorld = false,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, MovingToTheTrash) {
    // The items and the files that they are or hold, each with a text of its own.
    static const std::map<std::string, std::string> files{{"letter", "letter"}, {"folder", "folder/inner"}};
    test::expectToSurviveFaults({
        .prepare =
            [](const fs::path& world) {
                for (const auto& [item, file] : files)
                    writeFile(world / "items" / file, "the only " + item);
            },
        .program = {.arguments = {TARNWELL_FAULTS_SUBJECT, "trash", "WORLD/items/letter",
                                  "WORLD/items/folder"}},
        .essence =
            [](const std::string& output) {
                return std::to_string(std::ranges::count(output, '\n')) +
                       (output.find("failed") == std::string::npos ? " moved" : " failed");
            },
        .complaint = [](const FaultyRun& run) -> std::string {
            const auto says = [&](const std::string& line) {
                return run.outcome.output.find(line) != std::string::npos;
            };
            for (const auto& [item, file] : files) {
                const auto isIn = [&](const fs::path& folder) {
                    return fs::exists(folder / file) && test::readFile(folder / file) == "the only " + item;
                };
                const bool isThere = isIn(run.world / "items");
                const bool isTrashed = isIn(run.world / "data/Trash/files");
                const std::string path = (run.world / "items" / item).string() + "\n";
                if (!isThere && !isTrashed)
                    return "lost: " + item;
                if (isThere && says("moved " + path))
                    return "not moved, but said so: " + item;
                if (isTrashed && says("failed " + path))
                    return "moved, but said it failed: " + item;
            }
            return {};
        },
        .mayGiveUpInterrupted = true,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, DeletingASnapshot) {
    static constexpr const char* unwanted =
        "data/Tarnwell/Snapshots/11111111-1111-4111-8111-111111111111.json";
    static constexpr const char* wanted = "data/Tarnwell/Snapshots/22222222-2222-4222-8222-222222222222.json";
    test::expectToSurviveFaults({
        .prepare =
            [](const fs::path& world) {
                writeFile(world / unwanted, "unwanted");
                writeFile(world / wanted, "kept");
            },
        .program = {.arguments = {TARNWELL_FAULTS_SUBJECT, "delete", fs::path(unwanted).stem()}},
        .complaint = [](const FaultyRun& run) -> std::string {
            if (test::readFile(run.world / wanted) != "kept")
                return "another snapshot was lost";
            // What is not there any more need not be removed.
            const bool seemsGone = run.fault.kind == "unlink" && run.fault.error == ENOENT;
            const bool isThere = fs::exists(run.world / unwanted);
            if (isThere != (run.outcome.exitCode == 1) && !seemsGone)
                return isThere ? "not deleted, but said so" : "deleted, but said it was not";
            return {};
        },
    });
}

/// Two files of equal contents and their own looks, shared in that way.
test::FaultScenario sharing(const char* how, const fs::path& place) {
    static const std::string contents(9'000, 's');
    static constexpr timespec times[2] = {{1'000'000, 1}, {2'000'000, 2}};
    return {
        .prepare =
            [](const fs::path& world) {
                for (const char* name : {"first", "further"}) {
                    writeFile(world / "files" / name, contents);
                    ::chmod((world / "files" / name).c_str(), name[1] == 'i' ? 0600 : 0640);
                    ::utimensat(AT_FDCWD, (world / "files" / name).c_str(), times, 0);
                }
            },
        .program = {.arguments = {TARNWELL_FAULTS_SUBJECT, "share", how, "WORLD/files/first",
                                  "WORLD/files/further"}},
        .complaint = [](const FaultyRun& run) -> std::string {
            for (const char* name : {"first", "further"}) {
                const fs::path file = run.world / "files" / name;
                struct stat status = {};
                if (::stat(file.c_str(), &status) != 0 || test::readFile(file) != contents)
                    return std::string("lost the contents of ") + name;
                if ((status.st_mode & 07777) != (name[1] == 'i' ? 0600 : 0640) ||
                    status.st_mtim.tv_sec != 2'000'000)
                    return std::string("lost the looks of ") + name;
            }
            // What cannot be removed is left, and said to have failed.
            const auto count =
                std::distance(fs::directory_iterator(run.world / "files"), fs::directory_iterator());
            if (count != 2 && (run.fault.kind != "unlink" || run.outcome.exitCode != 1))
                return "left something behind";
            return {};
        },
        .place = place,
        .mayGiveUpInterrupted = true,
        .failsSilently = false,
    };
}

TEST_F(ServiceFaults, SharingByClones) {
    test::expectToSurviveFaults(sharing("clones", {}));
}

TEST_F(ServiceFaults, SharingExtents) {
    const auto image = test::MountedImage::make({.type = "xfs"});
    if (!image)
        GTEST_SKIP() << image.error();
    test::expectToSurviveFaults(sharing("platform", (*image)->path()));
}

TEST_F(ServiceFaults, Measuring) {
    test::expectToSurviveFaults({
        .prepare =
            [](const fs::path& world) {
                writeFile(world / "tree/a/file", std::string(1'000, 'a'));
                writeFile(world / "tree/b/file", std::string(200, 'b'));
            },
        .program = {.arguments = {TARNWELL_FAULTS_SUBJECT, "measure", "WORLD/tree"}},
        .complaint = [](const FaultyRun& run) -> std::string {
            for (const char* known : {"0 1200 2 2\n", "0 1000 1 2\n", "0 200 1 2\n", "0 1000 1 1\n",
                                      "0 200 1 1\n", "0 0 0 2\n", "0 0 0 1\n", "0 0 0 0\n", "1 0 0 0\n"})
                if (run.outcome.output == known)
                    return {};
            return run.outcome.exitCode == 1 ? "" : "measured something else";
        },
        .changesWorld = false,
    });
}

} // namespace
} // namespace tarnwell
