#include "TarnwellCore/Analysis/VolumeLedger.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace tarnwell {
namespace {

using test::MountedImage;

void expectBalance(const VolumeLedger& ledger) {
    ASSERT_EQ(ledger.lines.size(), static_cast<std::size_t>(ledgerEntryCount));
    std::int64_t sum = 0;
    for (int entry = 0; entry < ledgerEntryCount; ++entry) {
        const LedgerLine& line = ledger.line(static_cast<LedgerEntry>(entry));
        EXPECT_EQ(line.entry, static_cast<LedgerEntry>(entry));
        EXPECT_FALSE(text(line.entry).empty());
        EXPECT_GE(line.bytes.value_or(0), 0) << text(line.entry);
        sum += line.isSubtracted ? -line.bytes.value_or(0) : line.bytes.value_or(0);
    }
    if (ledger.used) {
        EXPECT_EQ(sum, *ledger.used);
    }
}

void writeFile(const std::filesystem::path& path, std::size_t size) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << std::string(size, 'x');
}

TEST(VolumeLedger, ExplainsAVolumeThatCanBeCounted) {
    const auto image = MountedImage::make({.type = "ext4"});
    if (!image)
        GTEST_SKIP() << image.error();
    const std::filesystem::path& volume = (*image)->path();
    writeFile(volume / "files/large", 20'000'000);
    writeFile(volume / "out/large", 3'000'000);
    for (int index = 0; index < 1500; ++index)
        writeFile(volume / "names" / (std::string(200, 'n') + std::to_string(index)), 0);
    ::sync();

    ScanOptions options;
    options.excludedPaths = {(volume / "out").string()};
    const ScanResult scan = ScanEngine(volume.string(), options).run();
    const VolumeLedger ledger = makeVolumeLedger(scan, LedgerServices::live(true));
    expectBalance(ledger);
    ASSERT_TRUE(ledger.volume && ledger.used);
    EXPECT_EQ(ledger.volume->path, volume);
    EXPECT_EQ(ledger.line(LedgerEntry::measured).bytes, scan.root->allocatedSize);
    EXPECT_GT(ledger.line(LedgerEntry::folders).bytes, 300'000);
    EXPECT_GE(ledger.line(LedgerEntry::excluded).bytes, 3'000'000);
    EXPECT_EQ(ledger.line(LedgerEntry::excluded).paths, std::vector{(volume / "out").string()});
    EXPECT_EQ(ledger.line(LedgerEntry::unreadable).bytes, 0);
    EXPECT_EQ(ledger.line(LedgerEntry::outside).bytes, 0);
    EXPECT_EQ(ledger.line(LedgerEntry::snapshots).bytes, 0);
    EXPECT_EQ(ledger.line(LedgerEntry::excess).bytes, 0);
    EXPECT_LT(ledger.line(LedgerEntry::unexplained).bytes, 100'000);

    const VolumeLedger quick = makeVolumeLedger(scan);
    expectBalance(quick);
    EXPECT_FALSE(quick.line(LedgerEntry::excluded).bytes);
    EXPECT_GE(quick.line(LedgerEntry::unexplained).bytes, 3'000'000);

    // Of a part of the volume alone, the rest is not known, and not hidden.
    const VolumeLedger part = makeVolumeLedger(ScanEngine((volume / "names").string(), {}).run());
    expectBalance(part);
    EXPECT_FALSE(part.line(LedgerEntry::outside).bytes);
    EXPECT_GE(part.line(LedgerEntry::unexplained).bytes, 23'000'000);
}

TEST(VolumeLedger, CountsSharedBlocksOnceAndNamesOtherPartsOfTheFileSystem) {
    const auto image = MountedImage::make({.type = "btrfs"});
    if (!image)
        GTEST_SKIP() << image.error();
    const std::string volume = (*image)->path();
    writeFile(volume + "/original", 8 << 20);
    const auto run = [](const std::string& command) {
        return std::system((command + " > /dev/null").c_str());
    };
    if (run("cp --reflink=always '" + volume + "/original' '" + volume + "/clone'") != 0 ||
        run("btrfs subvolume create '" + volume + "/part'") != 0)
        GTEST_SKIP() << "no clones or no subvolumes here";
    writeFile(volume + "/part/inside", 4 << 20);
    ::sync();
    const VolumeLedger ledger = makeVolumeLedger(ScanEngine(volume, {}).run());
    expectBalance(ledger);
    EXPECT_EQ(ledger.line(LedgerEntry::measured).bytes, 16 << 20);
    EXPECT_EQ(ledger.line(LedgerEntry::sharedTwice).bytes, 8 << 20);
    EXPECT_EQ(ledger.line(LedgerEntry::mounted).count, 1);
    EXPECT_FALSE(ledger.line(LedgerEntry::mounted).bytes);
    EXPECT_FALSE(ledger.line(LedgerEntry::snapshots).bytes);

    ScanOptions crossing;
    crossing.crossFilesystemBoundaries = true;
    const VolumeLedger whole = makeVolumeLedger(ScanEngine(volume, crossing).run());
    expectBalance(whole);
    EXPECT_EQ(whole.line(LedgerEntry::measured).bytes, 20 << 20);
    EXPECT_EQ(whole.line(LedgerEntry::mounted).bytes, 0);
}

TEST(VolumeLedger, NeverShowsANegativeFigureAndNeverHidesWhatIsNotKnown) {
    const test::TemporaryFolder folder;
    folder.makeFile("file", 100'000);
    const ScanResult scan = ScanEngine(folder.path(), {}).run();
    LedgerServices services = LedgerServices::live();
    const auto withUsage = [&](std::optional<VolumeUsage> usage) {
        services.usage = [usage](const std::string&) { return usage; };
        return makeVolumeLedger(scan, services);
    };
    const VolumeLedger tooFull = withUsage(VolumeUsage{.used = 1000, .snapshots = 10, .purgeable = 5000});
    expectBalance(tooFull);
    EXPECT_EQ(tooFull.line(LedgerEntry::unexplained).bytes, 0);
    EXPECT_GE(tooFull.line(LedgerEntry::excess).bytes, 104'010);
    EXPECT_EQ(tooFull.line(LedgerEntry::purgeable).bytes, 5000);
    const VolumeLedger silent = withUsage(std::nullopt);
    expectBalance(silent);
    for (const LedgerEntry entry : {LedgerEntry::unexplained, LedgerEntry::excess, LedgerEntry::snapshots,
                                    LedgerEntry::purgeable, LedgerEntry::outside})
        EXPECT_FALSE(silent.line(entry).bytes) << text(entry);
    EXPECT_THROW(makeVolumeLedger({}), std::invalid_argument);
}

} // namespace
} // namespace tarnwell
