#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Scanning/LiveBatch.hpp"
#include "TarnwellCore/Scanning/LiveTree.hpp"
#include "TarnwellCore/Scanning/NodeArena.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"
#include "TarnwellCore/Scanning/TreeAggregation.hpp"

#include "Tests/Support/RandomTree.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tarnwell {
namespace {

using test::TemporaryFolder;

bool isNoLess(const LiveBytes& now, const LiveBytes& before) {
    return now.size >= before.size && now.allocatedSize >= before.allocatedSize &&
           now.reclaimableSize >= before.reclaimableSize;
}

/// Looks at folders at random, and remembers what must not become less.
class Viewer {
public:
    Viewer(const LiveTree& live, unsigned seed) : live_(live), random_(seed) {}

    void descend() {
        auto page = live_.look();
        while (page) {
            check(*page);
            if (page->folders.empty())
                return;
            page = live_.look(*page->folders[random_() % page->folders.size()].node);
        }
    }

    void check(const LivePage& page) {
        checkFolder(page.folder);
        std::size_t listed = page.files->size() + page.folders.size();
        LiveBytes sum;
        for (const LiveFolder& folder : page.folders) {
            checkFolder(folder);
            sum.size += folder.bytes.size;
            EXPECT_EQ(folder.node->parent(), page.folder.node);
        }
        for (const LiveFile& file : *page.files) {
            nodes.insert(file.node);
            EXPECT_EQ(file.node->parent(), page.folder.node);
        }
        EXPECT_LE(sum.size, page.folder.bytes.size);
        EXPECT_TRUE(std::ranges::is_sorted(page.folders, std::ranges::greater(), [](const LiveFolder& each) {
            return each.sizeFor(SizeMode::apparent);
        }));
        std::size_t& before = listed_[page.folder.node];
        EXPECT_GE(listed, before);
        before = listed;
    }

    std::set<const FileNode*> nodes;

private:
    void checkFolder(const LiveFolder& folder) {
        nodes.insert(folder.node);
        const auto [position, isNew] = seen_.emplace(folder.node, folder);
        LiveFolder& before = position->second;
        EXPECT_TRUE(isNoLess(folder.bytes, before.bytes)) << folder.node->path();
        EXPECT_GE(folder.fileCount, before.fileCount);
        EXPECT_GE(folder.directoryCount, before.directoryCount);
        EXPECT_TRUE(folder.isRead || !before.isRead);
        EXPECT_TRUE(folder.isComplete || !before.isComplete);
        before = folder;
    }

    const LiveTree& live_;
    std::mt19937 random_;
    std::map<const FileNode*, LiveFolder> seen_;
    std::map<const FileNode*, std::size_t> listed_;
};

// A table of calls is of plain functions.
std::function<void()> beforeOpening;

DirectoryCalls callsThatLook() {
    DirectoryCalls calls = DirectoryCalls::live();
    calls.openFolder = [](int folder, const char* name, const std::int32_t* device) {
        beforeOpening();
        return DirectoryCalls::live().openFolder(folder, name, device);
    };
    return calls;
}

void expectPageOfResult(const LivePage& page, const FileNode& folder) {
    EXPECT_EQ(page.folder.node, &folder);
    EXPECT_EQ(page.folder.bytes.allocatedSize, folder.allocatedSize);
    EXPECT_EQ(page.folder.bytes.size, folder.size);
    EXPECT_EQ(page.folder.fileCount, folder.fileCount());
    EXPECT_EQ(page.folder.directoryCount, folder.directoryCount());
    std::vector<const FileNode*> folders;
    std::vector<const FileNode*> files;
    for (const FileNode* child : folder.children())
        (child->isDirectory() ? folders : files).push_back(child);
    EXPECT_TRUE(std::ranges::equal(page.folders, folders, {}, &LiveFolder::node));
    EXPECT_TRUE(std::ranges::equal(*page.files, files, {}, &LiveFile::node));
    for (const LiveFile& file : *page.files)
        EXPECT_EQ(file.flags, file.node->flags);
}

TEST(LiveTree, OnlyGrowsAndEndsAsTheResult) {
    const DirectoryCalls calls = callsThatLook();
    ScanOptions shallow;
    shallow.maximumDepth = 2;
    ScanOptions everyLink;
    everyLink.deduplicateHardlinks = false;
    ScanOptions excluding;
    excluding.descendIntoPackages = false;
    for (std::uint64_t seed = 1; seed <= 4; ++seed) {
        const TemporaryFolder folder;
        test::makeRandomTree(folder.path(), 500, seed);
        folder.makeFile("Tool.app/Contents/binary", 20);
        folder.makeFile("closed/inside", 20);
        excluding.excludedPaths = {folder.path() / "closed"};
        for (ScanOptions options : {ScanOptions(), shallow, everyLink, excluding}) {
            options.workerCount = 3;
            const auto live = std::make_shared<LiveTree>();
            EXPECT_FALSE(live->look());
            ScanEngine engine(folder.path(), options, true, calls);
            engine.show(live);
            std::mutex mutex;
            Viewer inside(*live, 1);
            beforeOpening = [&] {
                const std::lock_guard guard(mutex);
                inside.descend();
            };
            std::atomic<bool> isDone = false;
            std::vector<std::unique_ptr<Viewer>> viewers;
            std::vector<std::thread> threads;
            for (unsigned index = 0; index < 2; ++index) {
                viewers.push_back(std::make_unique<Viewer>(*live, index));
                threads.emplace_back([&isDone, &viewer = *viewers.back()] {
                    while (!isDone)
                        viewer.descend();
                });
            }
            const ScanResult result = engine.run();
            isDone = true;
            for (std::thread& thread : threads)
                thread.join();
            std::set<const FileNode*> nodes;
            result.root->forEachDescendant([&](const FileNode& node) {
                nodes.insert(&node);
                const auto page = live->look(node);
                EXPECT_EQ(page.has_value(), node.isDirectory());
                if (page) {
                    expectPageOfResult(*page, node);
                    for (const auto& viewer : viewers)
                        viewer->check(*page);
                    inside.check(*page);
                }
                return true;
            });
            EXPECT_TRUE(std::ranges::includes(nodes, inside.nodes));
            for (const auto& viewer : viewers)
                EXPECT_TRUE(std::ranges::includes(nodes, viewer->nodes));
            EXPECT_EQ(live->state(), LiveState::finished);
        }
    }
}

/// What the workers of a scan do, a step at a time.
struct StepwiseScan {
    std::shared_ptr<TreeArena> arena = std::make_shared<TreeArena>();
    TreeArena::Lease region = arena->borrowRegion();
    FileNode* root = region->makeNode(nullptr, "/root", true, {});
    LiveTree live;

    void handIn(FileNode& folder, std::vector<FileNode*> children, std::uint32_t opened,
                const std::vector<FileNode*>& closed = {}, std::int64_t linked = 0) {
        const auto array = region->makeChildArray(children.size());
        std::ranges::copy(children, array.begin());
        FolderSums sums;
        for (const FileNode* child : children)
            if (!child->isDirectory())
                sums.add(*child);
        sums.store(folder, static_cast<std::size_t>(std::ranges::count_if(children, &FileNode::isDirectory)));
        folder.setChildren(array);
        LiveBatch batch;
        batch.records.push_back({.node = &folder, .opened = opened, .kind = LiveRecord::Kind::settled});
        for (FileNode* each : closed)
            batch.records.push_back({.node = each, .kind = LiveRecord::Kind::closed});
        if (linked > 0)
            batch.links.push_back({&folder, {linked, linked, linked}});
        live.handIn(batch);
        EXPECT_TRUE(batch.isEmpty());
    }
};

TEST(LiveTree, SaysWhatIsReadWhatIsCompleteAndWhatLinksMayStillTakeAway) {
    StepwiseScan scan;
    const auto node = [&](FileNode* parent, const char* name, bool isDirectory, std::int64_t size = 0) {
        return scan.region->makeNode(parent, name, isDirectory, {.size = size, .allocatedSize = size});
    };
    scan.live.begin(scan.arena, *scan.root);
    EXPECT_FALSE(scan.live.look()->folder.isRead);
    FileNode* a = node(scan.root, "a", true);
    FileNode* closed = node(scan.root, "closed", true, 7); // as a placeholder has, whose bytes count
    FileNode* z = node(scan.root, "z", true);
    scan.handIn(*scan.root, {a, closed, z}, 2, {closed});
    auto page = scan.live.look();
    EXPECT_TRUE(page->folder.isRead);
    EXPECT_EQ(page->folder.bytes.size, 7);
    EXPECT_EQ(page->folder.directoryCount, 3);
    ASSERT_EQ(page->folders.size(), 3u);
    EXPECT_EQ(page->folders[0].node, closed);
    EXPECT_TRUE(page->folders[0].isComplete);
    EXPECT_FALSE(page->folders[1].isRead);

    FileNode* first = node(z, "first", false, 5000);
    scan.handIn(*z, {first}, 0, {}, 5000);
    page = scan.live.look();
    EXPECT_EQ(page->folders[0].node, z);
    EXPECT_EQ(page->folders[0].bytes, LiveBytes());
    EXPECT_EQ(page->folders[0].linked, (LiveBytes{5000, 5000, 5000}));
    EXPECT_TRUE(page->folders[0].isComplete);
    EXPECT_FALSE(page->folder.isComplete);

    FileNode* second = node(a, "second", false, 5000);
    second->flags.insert(FileNodeFlags::hardlinkDuplicate);
    scan.handIn(*a, {second}, 0);
    EXPECT_TRUE(scan.live.look()->folder.isComplete);

    // While sums are settled: what somebody saw before can be seen, what nobody saw is waited for.
    const auto files = scan.live.look(*a)->files;
    scan.live.beginSettling();
    EXPECT_EQ(scan.live.look()->state, LiveState::settling);
    EXPECT_EQ(scan.live.look(*a)->files, files);
    std::atomic<bool> isSettled = false;
    std::thread viewer([&] {
        const auto waitedFor = scan.live.look(*z);
        EXPECT_TRUE(isSettled);
        EXPECT_TRUE((*waitedFor->files)[0].flags.contains(FileNodeFlags::hardlinkDuplicate));
    });
    setHardlinkDuplicate(*first, true);
    setHardlinkDuplicate(*second, false);
    rollUp(*scan.root, 1);
    isSettled = true;
    scan.live.finish();
    viewer.join();
    page = scan.live.look();
    EXPECT_EQ(page->state, LiveState::finished);
    EXPECT_EQ(page->folders[0].node, a);
    EXPECT_EQ(page->folders[0].bytes.size, 5000);
    EXPECT_EQ(page->folders[2].linked, LiveBytes());
    EXPECT_FALSE(scan.live.look(*first));
}

TEST(LiveTree, OfAScanThatWasCalledOffStaysWhatWasRead) {
    const TemporaryFolder folder;
    for (int index = 0; index < 200; ++index)
        folder.makeFile("folder " + std::to_string(index) + "/inside/file", 10);
    const DirectoryCalls calls = callsThatLook();
    const auto live = std::make_shared<LiveTree>();
    std::optional<LivePage> page;
    {
        ScanOptions options;
        options.workerCount = 2;
        ScanEngine engine(folder.path(), options, true, calls);
        engine.show(live);
        std::atomic<int> count = 0;
        beforeOpening = [&] {
            if (++count == 150)
                engine.cancel();
        };
        EXPECT_THROW(engine.run(), ScanError);
    }
    EXPECT_EQ(live->state(), LiveState::abandoned);
    page = live->look();
    ASSERT_TRUE(page);
    EXPECT_EQ(page->folders.size(), 200u);
    EXPECT_FALSE(page->folder.isComplete);
    EXPECT_GT(page->folder.fileCount, 0);
    const auto below = live->look(*page->folders.front().node);
    ASSERT_TRUE(below);
    EXPECT_EQ(below->folders.size(), 1u);
    EXPECT_TRUE(below->folder.node->path().starts_with(folder.path().string()));

    const auto missing = std::make_shared<LiveTree>();
    ScanEngine engine(folder / "missing", {});
    engine.show(missing);
    EXPECT_THROW(engine.run(), ScanError);
    EXPECT_EQ(missing->state(), LiveState::abandoned);
    EXPECT_FALSE(missing->look());
}

} // namespace
} // namespace tarnwell
