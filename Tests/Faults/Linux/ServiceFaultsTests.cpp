// Settings, the runner of other programs, the Trash, volumes, measuring and deleting, while each of their
// system calls fails.

#include "Tests/Faults/Linux/FaultyProgram.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using test::Fault;
using test::FaultyOutcome;
using test::Program;

Program subject(const fs::path& world, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), TARNWELL_FAULTS_SUBJECT);
    return {.arguments = std::move(arguments),
            .environment = {"HOME=" + world.string(), "XDG_DATA_HOME=" + (world / "data").string(),
                            "XDG_CONFIG_HOME=" + (world / "config").string(),
                            "XDG_RUNTIME_DIR=" + (world / "run").string(), "GIO_USE_VFS=local",
                            "GIO_USE_VOLUME_MONITOR=unix"}};
}

void write(const fs::path& file, std::string_view text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

class ServiceFaults : public testing::Test {
protected:
    void SetUp() override {
        static const std::string reason = test::whyNotFaulty();
        if (!reason.empty())
            GTEST_SKIP() << reason;
    }
};

const std::string oldSettings = "{\n  \"other\": \"kept\",\n  \"theme\": \"dark\"\n}\n";
const std::string newSettings = "{\n  \"other\": \"kept\",\n  \"theme\": \"light\"\n}\n";

TEST_F(ServiceFaults, ChangingASetting) {
    test::expectToSurviveFaults({
        .prepare = [](const fs::path& world) { write(world / "config/com.tarnwell.json", oldSettings); },
        .program = [](const fs::path& world) { return subject(world, {"set", "theme", "light"}); },
        .complaint = [](const fs::path& world, const FaultyOutcome& outcome, const FaultyOutcome&,
                        const Fault& fault) -> std::string {
            const std::string text = test::readFile(world / "config/com.tarnwell.json");
            const fs::path damaged = world / "config/com.tarnwell.json.damaged";
            const bool isKeptAside = fs::exists(damaged) && test::readFile(damaged) == oldSettings;
            // A file of which the system says that it is not there holds nothing to keep.
            const bool seemsMissing = fault.kind == "open" && fault.error == ENOENT && outcome.exitCode == 0;
            if (text != oldSettings && text != newSettings && !isKeptAside && !seemsMissing)
                return "settings were lost: " + text;
            // Without the folder's sync nobody can say so, though the new file is in place.
            const bool isNewUnsynced =
                fault.kind == "sync" || fault.kind == "close" || fault.kind == "memory";
            if (outcome.exitCode == 0 && text == oldSettings)
                return "stored nothing and said it had";
            if (outcome.exitCode == 1 && text == newSettings && !isNewUnsynced)
                return "stored a change and said it had not";
            for (const fs::directory_entry& entry : fs::directory_iterator(world / "config"))
                if (entry.path().extension() == ".tmp" && fault.kind != "unlink")
                    return "left behind: " + entry.path().string();
            return {};
        },
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, ReadingASetting) {
    test::expectToSurviveFaults({
        .prepare = [](const fs::path& world) { write(world / "config/com.tarnwell.json", oldSettings); },
        .program = [](const fs::path& world) { return subject(world, {"get", "theme"}); },
        .complaint = [](const fs::path& world, const FaultyOutcome& outcome, const FaultyOutcome&,
                        const Fault&) -> std::string {
            if (test::readFile(world / "config/com.tarnwell.json") != oldSettings)
                return "reading changed the settings";
            return outcome.exitCode == 1 || outcome.output == "dark\n" ? "" : "reads something else";
        },
        .changesWorld = false,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, RunningAnotherProgram) {
    test::expectToSurviveFaults({
        .prepare = [](const fs::path&) {},
        .program =
            [](const fs::path& world) {
                return subject(world, {"shell", "-c", "echo out; echo err >&2; exit 3"});
            },
        .complaint = [](const fs::path&, const FaultyOutcome& outcome, const FaultyOutcome&,
                        const Fault& fault) -> std::string {
            // A pipe that cannot be read any more ends, and a status that nobody gets is -1.
            const bool mayBePart = fault.kind == "read" || fault.kind == "wait";
            const std::string whole = "3 [out\n] [err\n]\n";
            const std::string& output = outcome.output;
            const bool isKnown = output == whole + whole || output == "not started\n" + whole ||
                                 output == whole + "not started\n" || output == "not started\nnot started\n";
            return outcome.exitCode == 1 || isKnown || mayBePart ? "" : "another result";
        },
        .changesWorld = false,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, EndingAnotherProgram) {
    test::expectToSurviveFaults({
        .prepare = [](const fs::path&) {},
        // Where it cannot be asked to end, it does so by itself before the grace period is over.
        .program = [](const fs::path& world) { return subject(world, {"hang", "-c", "exec sleep 1"}); },
        .complaint = [](const fs::path&, const FaultyOutcome& outcome, const FaultyOutcome&,
                        const Fault&) -> std::string {
            const bool isKnown =
                outcome.output == "-9 [] [timed out after 0.05s]\n" || outcome.output == "not started\n";
            return outcome.exitCode == 1 || isKnown ? "" : "another result";
        },
        .changesWorld = false,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, ListingVolumes) {
    test::expectToSurviveFaults({
        .prepare = [](const fs::path&) {},
        .program = [](const fs::path& world) { return subject(world, {"volumes"}); },
        .complaint = [](const fs::path&, const FaultyOutcome& outcome, const FaultyOutcome& undisturbed,
                        const Fault&) -> std::string {
            if (outcome.exitCode == 1)
                return {};
            std::istringstream lines(outcome.output);
            for (std::string line; std::getline(lines, line);)
                if (line != "no figures" && undisturbed.output.find(line + "\n") == std::string::npos)
                    return "lists what is not there: " + line;
            return outcome.output.ends_with("figures\n") ? "" : "did not come to its end";
        },
        .changesWorld = false,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, MovingToTheTrash) {
    test::expectToSurviveFaults({
        .prepare =
            [](const fs::path& world) {
                write(world / "items/letter", "the only copy");
                write(world / "items/folder/inner", "another only copy");
            },
        .program =
            [](const fs::path& world) {
                return subject(world, {"trash", world / "items/letter", world / "items/folder"});
            },
        .essence =
            [](const std::string& output) {
                return std::to_string(std::ranges::count(output, '\n')) +
                       (output.find("failed") == std::string::npos ? " moved" : " failed");
            },
        .complaint = [](const fs::path& world, const FaultyOutcome& outcome, const FaultyOutcome&,
                        const Fault&) -> std::string {
            const auto isAt = [](const fs::path& path, std::string_view contents) {
                return fs::exists(path) && test::readFile(path) == contents;
            };
            const fs::path trashed = world / "data/Trash/files";
            struct Item {
                const char* name;
                const char* file;
                std::string_view contents;
            };
            for (const Item& item : {Item{"letter", "letter", "the only copy"},
                                     Item{"folder", "folder/inner", "another only copy"}}) {
                const bool isThere = isAt(world / "items" / item.file, item.contents);
                const bool isTrashed = isAt(trashed / item.file, item.contents);
                const std::string path = (world / "items" / item.name).string() + "\n";
                if (!isThere && !isTrashed)
                    return std::string("lost: ") + item.name;
                if (isThere && outcome.output.find("moved " + path) != std::string::npos)
                    return std::string("not moved, but said so: ") + item.name;
                if (isTrashed && outcome.output.find("failed " + path) != std::string::npos)
                    return std::string("moved, but said it failed: ") + item.name;
            }
            return {};
        },
        .mayGiveUpInterrupted = true,
        .failsSilently = false,
    });
}

TEST_F(ServiceFaults, DeletingASnapshot) {
    static constexpr const char* unwanted = "11111111-1111-4111-8111-111111111111";
    static const auto storeOf = [](const fs::path& world) { return world / "data/Tarnwell/Snapshots"; };
    test::expectToSurviveFaults({
        .prepare =
            [](const fs::path& world) {
                write(storeOf(world) / (unwanted + std::string(".json")), "unwanted");
                write(storeOf(world) / "22222222-2222-4222-8222-222222222222.json", "kept");
            },
        .program = [](const fs::path& world) { return subject(world, {"delete", unwanted}); },
        .complaint = [](const fs::path& world, const FaultyOutcome& outcome, const FaultyOutcome&,
                        const Fault& fault) -> std::string {
            if (test::readFile(storeOf(world) / "22222222-2222-4222-8222-222222222222.json") != "kept")
                return "another snapshot was lost";
            // What is not there any more need not be removed.
            const bool seemsGone = fault.kind == "unlink" && fault.error == ENOENT;
            const bool isThere = fs::exists(storeOf(world) / (unwanted + std::string(".json")));
            if (isThere != (outcome.exitCode == 1) && !seemsGone)
                return isThere ? "not deleted, but said so" : "deleted, but said it was not";
            return {};
        },
    });
}

TEST_F(ServiceFaults, Measuring) {
    test::expectToSurviveFaults({
        .prepare =
            [](const fs::path& world) {
                write(world / "tree/a/file", std::string(1'000, 'a'));
                write(world / "tree/b/file", std::string(200, 'b'));
            },
        .program = [](const fs::path& world) { return subject(world, {"measure", world / "tree"}); },
        .complaint = [](const fs::path&, const FaultyOutcome& outcome, const FaultyOutcome&,
                        const Fault&) -> std::string {
            if (outcome.exitCode == 1)
                return {};
            for (const char* known : {"0 1200 2 2\n", "0 1000 1 2\n", "0 200 1 2\n", "0 1000 1 1\n",
                                      "0 200 1 1\n", "0 0 0 2\n", "0 0 0 1\n", "0 0 0 0\n", "1 0 0 0\n"})
                if (outcome.output == known)
                    return {};
            return "measured something else";
        },
        .changesWorld = false,
    });
}

} // namespace
} // namespace tarnwell
