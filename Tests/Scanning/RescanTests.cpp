#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/RandomTree.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace tarnwell {
namespace {

using test::TemporaryFolder;
namespace fs = std::filesystem;

/// Everything that is known of a node and does not depend on when folders were read.
std::string describe(const FileNode& node) {
    const KeptSharing sharing = node.sharing();
    std::string text = node.path();
    const auto add = [&](std::integral auto value) { text += " " + std::to_string(value); };
    add(node.size);
    add(node.allocatedSize);
    add(node.reclaimableSize);
    add(node.fileCount());
    add(node.directoryCount());
    add(node.flags.rawValue());
    add(rawValue(node.category));
    add(node.extFlags);
    add(node.isDirectory());
    add(node.privateSize());
    add(node.includesSharedCloneBlocks);
    text += " " + std::to_string(node.modificationSeconds);
    add(sharing.links.count);
    add(sharing.links.inode);
    add(sharing.traits);
    add(sharing.exclusive);
    for (const SharedExtent& extent : sharing.extents) {
        add(extent.start);
        add(extent.length);
    }
    return text;
}

std::vector<std::string> describe(const ScanResult& result) {
    std::vector<std::string> lines;
    result.root->forEachDescendant([&](const FileNode& node) {
        lines.push_back(describe(node));
        return true;
    });
    return lines;
}

void expectSame(const ScanResult& result, const ScanResult& whole) {
    const auto lines = describe(result);
    const auto expected = describe(whole);
    const auto [first, second] = std::ranges::mismatch(lines, expected);
    EXPECT_TRUE(first == lines.end() && second == expected.end())
        << (first == lines.end() ? "" : *first) << "\n"
        << (second == expected.end() ? "" : *second);
    EXPECT_EQ(result.stats, whole.stats);
    EXPECT_EQ(result.inaccessiblePaths, whole.inaccessiblePaths);
}

/// Folders and entries whose names begin so cannot be read.
DirectoryCalls callsWithRefusals() {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.openFolder = [](int folder, const char* name, const std::int32_t* device) {
        if (std::string_view(name).starts_with("refused")) {
            errno = EACCES;
            return -1;
        }
        return DirectoryCalls::live().openFolder(folder, name, device);
    };
    return calls;
}

/// Changes a folder, and nothing else but the links to files elsewhere.
class Changes {
public:
    Changes(fs::path root, fs::path folder, std::uint64_t seed)
        : root_(std::move(root)), folders_{std::move(folder)}, random_(seed) {}

    void make(int count) {
        while (count-- > 0)
            makeOne();
    }

private:
    int number(int below) { return std::uniform_int_distribution(0, below - 1)(random_); }

    fs::path newName() {
        static constexpr const char* names[] = {"a.txt",    "refused", "node_modules",
                                                "Tool.app", ".hidden", "z"};
        const fs::path& folder =
            folders_[static_cast<std::size_t>(number(static_cast<int>(folders_.size())))];
        return number(12) == 0 ? folder / "left out"
                               : folder / (std::to_string(number(1 << 30)) + names[number(6)]);
    }
    /// "refused" must come first.
    fs::path newFolderName() {
        return number(3) == 0 ? newName().parent_path() / ("refused" + std::to_string(number(1 << 30)))
                              : newName();
    }

    fs::path anyFile(const fs::path& below) {
        std::vector<fs::path> files;
        for (const auto& entry : fs::recursive_directory_iterator(below))
            if (entry.symlink_status().type() == fs::file_type::regular)
                files.push_back(entry.path());
        std::ranges::sort(files);
        return files.empty() ? fs::path()
                             : files[static_cast<std::size_t>(number(static_cast<int>(files.size())))];
    }

    void makeOne() {
        std::error_code error;
        const fs::path inside = anyFile(folders_.front());
        switch (number(8)) {
        case 0:
        case 1:
            std::ofstream(newName()) << std::string(static_cast<std::size_t>(number(20'000)), 'x');
            break;
        case 2:
            folders_.push_back(newFolderName());
            if (!fs::create_directory(folders_.back(), error))
                folders_.pop_back();
            break;
        case 3:
            // What it wrote to a file elsewhere through a link that has come and gone, a folder cannot tell.
            if (!newLinks_.contains(inside))
                fs::remove(inside, error);
            break;
        case 4:
            if (!inside.empty()) // also seen through links outside
                std::ofstream(inside, std::ios::app)
                    << std::string(static_cast<std::size_t>(number(9000)), 'y');
            break;
        case 5:
            if (const fs::path file = anyFile(number(2) == 0 ? root_ : folders_.front()); !file.empty()) {
                const fs::path link = newName();
                // Nor can it tell what is written through a link that no scan sees.
                if (link.filename() == "left out" || link.string().find("/refused") != std::string::npos)
                    break;
                fs::create_hard_link(file, link, error);
                newLinks_.insert(link);
            }
            break;
        case 6:
            if (!inside.empty() && !newLinks_.contains(inside))
                fs::rename(inside, folders_.front() / std::to_string(number(1 << 30)), error);
            break;
        case 7:
            fs::create_symlink("nowhere", newName(), error);
            break;
        }
    }

    const fs::path root_;
    std::vector<fs::path> folders_;
    std::mt19937_64 random_;
    std::set<fs::path> newLinks_;
};

std::vector<const FileNode*> foldersBelow(const FileNode& root) {
    std::vector<const FileNode*> folders;
    root.forEachDescendant([&](const FileNode& node) {
        if (&node != &root && node.isDirectory() && !node.name().starts_with("refused"))
            folders.push_back(&node);
        return true;
    });
    return folders;
}

TEST(Rescan, OfOneFolderGivesWhatScanningEverythingGives) {
    const DirectoryCalls calls = callsWithRefusals();
    int grafted = 0;
    int scanned = 0;
    for (std::uint64_t seed = 1; seed <= 25; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const TemporaryFolder folder;
        test::makeRandomTree(folder.path(), 200, seed);
        fs::create_directory(folder / "refused outside");
        ScanOptions options;
        options.deduplicateHardlinks = seed % 5 != 0;
        options.excludedNames = {"left out"};
        const auto scan = [&] { return ScanEngine(folder.path(), options, true, calls).run(); };
        ScanResult result = scan();
        std::mt19937_64 random(seed);
        for (int round = 0; round < 6; ++round) {
            const auto folders = foldersBelow(*result.root);
            const FileNode& chosen = *folders[random() % folders.size()];
            const auto before = describe(result);
            if (round == 5)
                fs::remove_all(chosen.path());
            else
                Changes(folder.path(), chosen.path(), random()).make(1 + static_cast<int>(random() % 12));
            const ScanResult whole = scan();
            auto again = ScanEngine(folder.path(), options, true, calls).rescan(result, chosen);
            EXPECT_EQ(describe(result), before); // the old tree stays
            (again ? grafted : scanned) += 1;
            if (again)
                expectSame(*again, whole);
            result = again ? *std::move(again) : whole;
        }
    }
    EXPECT_GT(grafted, 2 * scanned);
}

TEST(Rescan, KeepsWhatClonesShareAcrossTheFolder) {
    const auto image = test::MountedImage::make({.type = "btrfs"});
    if (!image)
        GTEST_SKIP() << image.error();
    const fs::path root = (*image)->path();
    const auto run = [&](const std::string& command) {
        return std::system(("cd '" + root.string() + "' && " + command + " && sync").c_str());
    };
    if (run("mkdir in out && head -c 300000 /dev/urandom > out/a && cp --reflink=always out/a in/a && "
            "cp --reflink=always out/a out/b && head -c 200000 /dev/urandom > out/lonely && "
            "head -c 200000 /dev/urandom > in/pair && cp --reflink=always in/pair in/pair2") != 0)
        GTEST_SKIP() << "no clones here";
    ScanResult result = ScanEngine(root.string(), {}).run();
    if (result.root->node("out/a")->reclaimableSize != 0)
        GTEST_SKIP() << "what clones share is not seen here";
    const struct {
        const char* command;
        bool isTold; // by the folder alone
    } steps[] = {
        {"head -c 5000 /dev/urandom > in/new", true},
        {"rm in/pair2", true},
        {"rm in/a", false},                                  // do a and b outside still share?
        {"cp --reflink=always out/lonely in/lonely", false}, // whose blocks are these?
        {"cp --reflink=always in/lonely in/lonelier", true},
        {"dd if=/dev/urandom of=in/lonelier bs=4096 count=1 conv=notrunc 2>/dev/null", true},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.command);
        ASSERT_EQ(run(step.command), 0);
        const ScanResult whole = ScanEngine(root.string(), {}).run();
        const auto again = ScanEngine(root.string(), {}).rescan(result, *result.root->node("in"));
        EXPECT_EQ(again.has_value(), step.isTold);
        if (again)
            expectSame(*again, whole);
        // By the front door the answer is right either way.
        const ScanResult asked = DiskScanner().rescan(result, *result.root->node("in")).get();
        expectSame(asked, whole);
        result = asked;
    }
}

TEST(Rescan, TakesWhateverLiesThereNowAndRefusesWhatIsNoFolderOfTheScan) {
    const TemporaryFolder folder;
    folder.makeFile("root/a/b/file", 1000);
    folder.makeFile("root/a/other", 10);
    const fs::path root = folder / "root";
    const auto whole = [&] { return ScanEngine(root, {}).run(); };
    ScanResult result = whole();
    const auto rescan = [&](std::string_view path) {
        return DiskScanner().rescan(result, *result.root->node(path)).get();
    };
    fs::remove_all(root / "a/b");
    folder.makeFile("root/a/b", 7);
    expectSame(rescan("a/b"), whole());
    fs::remove_all(root / "a");
    const ScanResult without = rescan("a");
    expectSame(without, whole());
    EXPECT_EQ(without.root->size, 0);
    EXPECT_FALSE(without.folderBytes);
    expectSame(rescan(""), whole()); // the root

    EXPECT_THROW(DiskScanner().rescan(result, *without.root), std::invalid_argument);
    EXPECT_THROW(rescan("a/other"), std::invalid_argument);
    CancellationToken token;
    token.cancel();
    EXPECT_THROW(DiskScanner().rescan(result, *result.root->node("a"), nullptr, token).get(), ScanError);
    fs::remove_all(root);
    EXPECT_THROW(rescan("a"), ScanError);
}

} // namespace
} // namespace tarnwell
