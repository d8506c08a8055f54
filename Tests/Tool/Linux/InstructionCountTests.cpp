// What an entry costs in instructions. Unlike time, the count is the same on every run and under any load.

#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

#if defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
constexpr bool isReleaseBuild = true;
#else
constexpr bool isReleaseBuild = false;
#endif

constexpr int filesAFolder = 25;

/// Folders of 25 files, forty folders side by side above them.
void makeTree(const fs::path& root, int folders) {
    constexpr std::array<const char*, 5> extensions = {".js", ".txt", ".png", "", ".unheard"};
    for (int folder = 0; folder < folders; ++folder) {
        const fs::path path = root / ("group" + std::to_string(folder % 40)) / std::to_string(folder);
        fs::create_directories(path);
        for (int file = 0; file < filesAFolder; ++file)
            std::ofstream(path / ("file-" + std::to_string(file * 7919 % 1000) +
                                  extensions[static_cast<std::size_t>(file) % extensions.size()]));
    }
}

constexpr const char* scannedFolder = "TARNWELL_SCANNED_FOLDER";

/// What is counted. One worker: how many join others depends on how long they wait, and under a watching
/// program they do little else.
TEST(InstructionCount, DISABLED_Scan) {
    const char* folder = std::getenv(scannedFolder);
    ASSERT_NE(folder, nullptr) << "runs as the child of another test";
    ScanOptions options;
    options.workerCount = 1;
    EXPECT_GT(ScanEngine(folder, options).run().stats.fileCount, 0);
}

/// The instructions of a scan of this folder; 0 when they could not be counted.
std::int64_t instructionsOfScan(const fs::path& tree, const fs::path& profile) {
    const std::string command =
        std::string(scannedFolder) + "='" + tree.string() +
        "' valgrind --tool=callgrind --callgrind-out-file='" + profile.string() + "' '" +
        fs::read_symlink("/proc/self/exe").string() +
        "' --gtest_also_run_disabled_tests --gtest_filter=InstructionCount.DISABLED_Scan >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0)
        return 0;
    constexpr std::string_view key = "totals: ";
    std::ifstream lines(profile);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(key))
            return std::stoll(line.substr(key.size()));
    return 0;
}

TEST(InstructionCount, AnEntryTakesAFewHundredInstructions) {
    if (!isReleaseBuild)
        GTEST_SKIP() << "counts mean something in a release build only";
    if (std::system("valgrind --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "valgrind is not installed";
    const test::TemporaryFolder folder;
    constexpr int fewFolders = 40;
    constexpr int manyFolders = 240;
    makeTree(folder / "few", fewFolders);
    makeTree(folder / "many", manyFolders);
    const std::int64_t few = instructionsOfScan(folder / "few", folder / "few.profile");
    const std::int64_t many = instructionsOfScan(folder / "many", folder / "many.profile");
    if (few == 0 || many == 0)
        GTEST_SKIP() << "valgrind does not run here";
    // The start of the process cancels out.
    constexpr std::int64_t entries = std::int64_t{manyFolders - fewFolders} * (filesAFolder + 1);
    const std::int64_t each = (many - few) / entries;
    RecordProperty("instructionsAnEntry", std::to_string(each));
    // 775 when this was written; each folder's share is in it.
    EXPECT_LT(each, 1'000);
    EXPECT_GT(each, 100) << "the scan cannot have looked at every entry";
}

} // namespace
} // namespace tarnwell
