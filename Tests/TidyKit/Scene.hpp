#pragma once

// A made home with real files, and commands typed in it: in this process with services that a test may
// replace, or as the program itself.

#include "TarnwellTidyKit/Commands/TidyResult.hpp"
#include "TarnwellTidyKit/Commands/TidyServices.hpp"
#include "TarnwellTidyKit/Commands/TidySurroundings.hpp"

#include "Tests/Support/JSONValue.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tarnwell::test {

using Words = std::vector<std::string>;

class Scene {
public:
    /// The home is the folder itself. Settings are kept in it, and what goes to the Trash in ".trash", so
    /// that the user who runs the tests never notices.
    Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    TemporaryFolder home;
    /// Where the history of scans is, which is not to be among the files that a test counts.
    TemporaryFolder kept;
    TidyServices services;
    TidySurroundings surroundings;
    /// What moves one item, and where the Trash is looked for; a test may replace them.
    std::function<TrashOutcome(const std::filesystem::path&)> moveToTrash;
    std::function<std::vector<std::filesystem::path>(const std::filesystem::path& home)> trashFolders;

    std::string path(std::string_view relative) const { return (home / relative).string(); }
    /// Gives a file an age.
    void setAge(std::string_view relative, double days) const;

    TidyResult run(const Words& words) const;
    /// What a command prints; fails the test when it fails.
    std::string text(const Words& words) const;
    /// What a command prints with --json: a document of version 1, in UTF-8, keys in order.
    JSONValue json(Words words, std::int32_t exitCode = 0) const;
};

/// Reads a document, and fails the test when it is none or when its keys are not in ascending order.
JSONValue readDocument(const std::string& text);

/// The strings at `key` of each object in an array.
Words column(const JSONValue& array, const char* key);

struct ProgramRun {
    int exitCode = -1;
    std::string output;
    std::string error;
};
/// Runs the program with this folder as the home. `prepare` runs in the new process before it becomes the
/// program.
ProgramRun runProgram(
    const std::filesystem::path& home, const Words& words, const std::function<void()>& prepare = [] {});

} // namespace tarnwell::test
