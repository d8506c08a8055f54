#include "Tests/TidyKit/BrowserScene.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>

namespace fs = std::filesystem;

namespace tarnwell::test {

BrowserScene::BrowserScene() {
    folder = path("files");
    fs::create_directory(folder);
    services.volumes = [] {
        return std::vector<VolumeInfo>{{.url = "/",
                                        .path = "/",
                                        .name = "System",
                                        .totalCapacity = 500'000'000'000,
                                        .availableCapacity = 20'000'000'000,
                                        .fileSystemType = "ext4",
                                        .uuid = {}},
                                       {.url = "/media/photos/",
                                        .path = "/media/photos",
                                        .name = "Photos",
                                        .totalCapacity = 2'000'000'000'000,
                                        .availableCapacity = 1'500'000'000'000,
                                        .fileSystemType = "btrfs",
                                        .uuid = {}}};
    };
    services.ledger = [volumes = services.volumes](const ScanResult&, const CancellationToken&) {
        VolumeLedger ledger{.volume = volumes().front(), .used = 480'000'000'000, .lines = {}};
        for (int entry = 0; entry < ledgerEntryCount; ++entry)
            ledger.lines.push_back(
                {.entry = static_cast<LedgerEntry>(entry), .bytes = 7'000'000'000 * entry});
        ledger.lines[3] = {.entry = LedgerEntry::unreadable, .count = 12};
        ledger.lines[10].isSubtracted = true;
        return ledger;
    };
    services.wayOutOf = [this](const fs::path&) { return wayOut; };
    services.open = [](const fs::path&) { return true; };
    services.reveal = [](const fs::path&) { return false; };
}

std::string BrowserScene::screenAfter(std::string_view keys) {
    MemoryScreen screen(size);
    screen.type(keys);
    const BrowserSetup setup{.folder = folder,
                             .isReadOnly = isReadOnly,
                             .choices = choices,
                             .services = &services,
                             .surroundings = &surroundings,
                             .shell = shell,
                             .isPatient = true};
    status = runBrowser(screen, setup);
    clipboard = screen.clipboard();
    static const std::regex dates("[0-9]{4}-[0-9]{2}-[0-9]{2}");
    static const std::regex moments("(Modified {4}|Opened {6})([^ ].*)");
    return std::regex_replace(std::regex_replace(screen.dump(), dates, "2024-05-01"), moments,
                              "$1May 1, 2024");
}

void BrowserScene::expectScreen(const std::string& name, std::string_view keys) {
    const std::string shown = screenAfter(keys);
    const fs::path file = fs::path(TARNWELL_TESTS) / "TidyKit" / "Browser" / (name + ".txt");
    if (std::getenv("TARNWELL_RENEW_SCREENS") != nullptr) {
        std::ofstream(file) << shown;
        return;
    }
    std::error_code error;
    EXPECT_EQ(shown, fs::exists(file, error) ? readFile(file) : std::string("no record: ") + file.string())
        << name;
}

} // namespace tarnwell::test
