#include "TarnwellCore/Actions/EvictionService.hpp"
#include "TarnwellCore/Actions/ResumeOnce.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace fs = std::filesystem;

namespace tarnwell {
namespace {

using Kind = EvictionRefusal::Kind;
using Status = UbiquitousDownloadingStatus;

const std::vector<SyncedRoot>& cloudRoots() {
    static const std::vector<SyncedRoot> roots{{CloudProvider::other, "/cloud/"}};
    return roots;
}

/// What the substitutes were asked to do, as "<function> <path>".
struct Calls {
    std::vector<std::string> made;

    EvictionService service(const CloudItemStatus& status) {
        return {[this, status](const fs::path& url) {
                    made.push_back("probe " + url.string());
                    return status;
                },
                [this](const fs::path& url) { made.push_back("ubiquitous " + url.string()); },
                [this](const fs::path& url) { made.push_back("provider " + url.string()); }};
    }
};

EvictionOutcome evictOne(const EvictionService& service, const fs::path& url) {
    const auto outcomes = service.evict({url}, cloudRoots()).get();
    EXPECT_EQ(outcomes.size(), 1u);
    return outcomes.front();
}

EvictionOutcome refused(const fs::path& url, Kind kind, std::string message = {}) {
    return EvictionRefused{url, {kind, std::move(message)}};
}

TEST(EvictionServiceTests, UnfitURLsAreRefusedBeforeAnyProbing) {
    const struct {
        const char* url;
        Kind kind;
    } cases[] = {
        {"/cloud/folder/", Kind::directory},
        {"/elsewhere/", Kind::directory},
        {"/", Kind::directory},
        {"/cloud/.", Kind::directory},
        {"/cloud/a/..", Kind::directory},
        {"/elsewhere/file", Kind::outsideSyncedRoot},
        {"/cloudy/file", Kind::outsideSyncedRoot},
        {"/cloud/../file", Kind::outsideSyncedRoot},
        {"cloud/file", Kind::outsideSyncedRoot},
        {"", Kind::outsideSyncedRoot},
    };
    Calls calls;
    const EvictionService service = calls.service({.isRegularFile = true});
    for (const auto& row : cases)
        EXPECT_EQ(evictOne(service, row.url), refused(row.url, row.kind)) << row.url;
    EXPECT_TRUE(calls.made.empty());
}

TEST(EvictionServiceTests, TheStatusIsTestedInOrderAndChoosesTheWay) {
    const std::optional<Status> none;
    const struct {
        CloudItemStatus status;
        std::optional<Kind> refusal;
        std::string call;
    } cases[] = {
        {{true, false, true, true, none, 5}, Kind::directory, {}},
        {{false, false, true, true, none, 5}, Kind::notRegularFile, {}},
        {{false, true, true, true, none, 5}, Kind::dataless, {}},
        {{false, true, false, true, none, 5}, Kind::notCurrent, {}},
        {{false, true, false, true, Status::downloaded, 5}, Kind::notCurrent, {}},
        {{false, true, false, true, Status::notDownloaded, 5}, Kind::notCurrent, {}},
        {{false, true, false, true, Status::current, 5}, {}, "ubiquitous /cloud/f"},
        {{false, true, false, false, Status::downloaded, 5}, Kind::notCurrent, {}},
        {{false, true, false, false, Status::current, 5}, {}, "provider /cloud/f"},
        {{false, true, false, false, none, 5}, {}, "provider /cloud/f"},
        {{false, true, false, false, none, -5}, {}, "provider /cloud/f"},
    };
    const fs::path given = "/cloud/x/.././f";
    for (const auto& row : cases) {
        SCOPED_TRACE(&row - cases);
        Calls calls;
        const EvictionOutcome outcome = evictOne(calls.service(row.status), given);
        std::vector<std::string> expected{"probe /cloud/f"};
        if (row.refusal) {
            EXPECT_EQ(outcome, refused(given, *row.refusal));
        } else {
            const auto freed = std::max<std::int64_t>(row.status.allocatedSize, 0);
            EXPECT_EQ(outcome, EvictionOutcome(EvictionEvicted{given, freed}));
            expected.push_back(row.call);
        }
        EXPECT_EQ(calls.made, expected);
    }
}

TEST(EvictionServiceTests, ErrorsBecomeOutcomesAndTheBatchGoesOn) {
    EvictionService service;
    service.probe = [](const fs::path& url) {
        if (url.filename() == "unreadable")
            throw std::runtime_error("No such file or directory");
        if (url.filename() == "unmanaged")
            throw CloudEvictionError::notManagedByFileProvider("because");
        return CloudItemStatus{.isRegularFile = true, .allocatedSize = 4096};
    };
    service.evictFileProviderItem = [](const fs::path& url) {
        if (url.filename() == "unavailable")
            throw CloudEvictionError::fileProviderUnavailable();
        if (url.filename() == "plain")
            throw CloudEvictionError::notManagedByFileProvider();
        if (url.filename() == "odd")
            throw 7;
    };
    const std::vector<fs::path> urls{"/cloud/unreadable", "/cloud/unmanaged", "/cloud/unavailable",
                                     "/cloud/plain",      "/cloud/odd",       "/cloud/good"};
    const auto outcomes = service.evict(urls, cloudRoots()).get();
    ASSERT_EQ(outcomes.size(), urls.size());
    EXPECT_EQ(outcomes[0], EvictionOutcome(EvictionFailed{urls[0], "No such file or directory"}));
    EXPECT_EQ(outcomes[1], refused(urls[1], Kind::notCloudManaged, "because"));
    EXPECT_EQ(outcomes[2],
              EvictionOutcome(EvictionFailed{urls[2], "File Provider is not available for this file."}));
    EXPECT_EQ(outcomes[3],
              refused(urls[3], Kind::notCloudManaged, "This file is not managed by a File Provider."));
    EXPECT_TRUE(std::holds_alternative<EvictionFailed>(outcomes[4]));
    EXPECT_EQ(outcomes[5], EvictionOutcome(EvictionEvicted{urls[5], 4096}));
    EXPECT_EQ(std::get<EvictionRefused>(outcomes[1]).refusal.explanation(), "because");

    EXPECT_TRUE(EvictionService().evict({}, cloudRoots()).get().empty());
    EXPECT_TRUE(std::holds_alternative<EvictionFailed>(evictOne(EvictionService(), "/cloud/a")));
}

TEST(EvictionServiceTests, TheLiveServiceAnswersForRealFiles) {
    const test::TemporaryFolder folder;
    const fs::path file = folder.makeFile("file", 100);
    fs::create_symlink(file, folder / "link");
    // To the system this reads as the path of the file.
    const fs::path withNUL = file.native() + std::string("\0x", 2);
    const EvictionService service = EvictionService::live();
    const std::vector<SyncedRoot> here{{CloudProvider::other, folder.path()}};
    const auto outcomes =
        service.evict({file, folder / "link", folder / "missing", folder.path(), withNUL}, here).get();
    ASSERT_EQ(outcomes.size(), 5u);
    EXPECT_EQ(outcomes[0],
              refused(file, Kind::notCloudManaged, "This file is not managed by a File Provider."));
    EXPECT_EQ(outcomes[1], refused(folder / "link", Kind::notRegularFile));
    EXPECT_TRUE(std::holds_alternative<EvictionFailed>(outcomes[2]));
    EXPECT_EQ(outcomes[3], refused(folder.path(), Kind::directory));
    EXPECT_EQ(outcomes[4], EvictionOutcome(EvictionFailed{withNUL, "Invalid argument"}));
    for (const auto& evict : {service.evictUbiquitousItem, service.evictFileProviderItem})
        EXPECT_THROW(evict(withNUL), std::runtime_error);
    EXPECT_GE(service.probe(file).allocatedSize, 100);
}

TEST(ResumeOnceTests, OnlyTheFirstOfManyCallersResumes) {
    ResumeOnce once;
    std::atomic<int> resumed = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index)
        threads.emplace_back([&] { once([&] { ++resumed; }); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(resumed, 1);
}

} // namespace
} // namespace tarnwell
