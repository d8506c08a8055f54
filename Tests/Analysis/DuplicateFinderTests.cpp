#include "TarnwellCore/Analysis/DuplicateFinder.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tarnwell {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using testing::IsEmpty;

constexpr std::int64_t beginning = 65'536;

/// Bytes that say where they are; from `differsFrom` on they depend on `seed` too.
std::string content(std::size_t size, unsigned seed = 0, std::size_t differsFrom = 0) {
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
        bytes[index] = static_cast<char>(index * 31 + index / 251 + (index >= differsFrom ? seed : 0));
    return bytes;
}

std::vector<std::vector<std::string>> namesOf(const DuplicateResult& result) {
    std::vector<std::vector<std::string>> groups;
    for (const DuplicateGroup& group : result.groups) {
        groups.emplace_back();
        for (const DuplicateMember& member : group.members)
            groups.back().emplace_back(member.node->name());
    }
    return groups;
}

DuplicateResult find(const DuplicateFinder& finder, const fs::path& folder, std::int64_t minimumSize = 1) {
    return finder.find({DiskScanner().scan(folder).get().root}, {.minimumSize = minimumSize}).get();
}

/// Has `look` called before anything is read from a file.
void beforeReading(DuplicateFinder& finder, const std::function<void(int file)>& look) {
    finder.read = [look, read = finder.read](ContentReader& reader, int file, std::int64_t length,
                                             const ContentReader::Taker& take) {
        look(file);
        return read(reader, file, length, take);
    };
    finder.readOn = [look, readOn = finder.readOn](ContentReader& reader, int file) {
        look(file);
        return readOn(reader, file);
    };
}

TEST(DuplicateFinder, GroupsWhatIsEqualToTheLastByte) {
    const TemporaryFolder folder;
    std::vector<std::vector<std::string>> expected;
    // Sizes around the lengths of the beginning and of a read, and in each a pair, and files that differ from
    // it in the last byte, the first, and the first behind the beginning.
    const std::vector<std::size_t> sizes{1, 65'535, 65'536, 65'537, 1'048'576, 1'048'577, 2'200'000};
    for (const std::size_t size : sizes) {
        const std::string prefix = std::to_string(size);
        for (const char* copy : {"/pair a", "/b/pair b"})
            folder.writeFile(prefix + copy, content(size));
        folder.writeFile(prefix + "/last", content(size, 1, size - 1));
        folder.writeFile(prefix + "/first", content(size, 2));
        if (size > beginning)
            folder.writeFile(prefix + "/behind", content(size, 3, beginning));
        expected.insert(expected.begin(), {"pair b", "pair a"}); // "b/…" comes before "pair…"
    }
    folder.makeFile("empty a");
    folder.makeFile("empty b");
    fs::create_symlink("1/pair a", folder / "link");

    const auto root = DiskScanner().scan(folder.path()).get().root;
    std::vector<DuplicateProgress> reports;
    const DuplicateFinder finder;
    const DuplicateResult result =
        finder
            .find({root}, {.minimumSize = 0, .progressInterval = 0.001},
                  [&](const DuplicateProgress& progress) { reports.push_back(progress); })
            .get();
    EXPECT_EQ(namesOf(result), expected);
    EXPECT_THAT(result.dropped, IsEmpty());
    EXPECT_EQ(result.totals.duplicateCount, std::ssize(sizes));
    std::int64_t waste = 0;
    for (const DuplicateGroup& group : result.groups) {
        EXPECT_EQ(group.waste, group.members[1].node->reclaimableSize) << group.size;
        waste += group.waste;
    }
    EXPECT_EQ(result.totals.waste, waste);
    ASSERT_FALSE(reports.empty());
    EXPECT_TRUE(reports.back().isFinished);
    EXPECT_EQ(reports.back().groupCount, std::ssize(sizes));
    EXPECT_EQ(reports.back().bytesRead, result.totals.bytesRead);
    EXPECT_TRUE(std::ranges::is_sorted(reports, {}, &DuplicateProgress::bytesRead));

    // The same from several, overlapping parts and a second scan of one of them; and with a minimum.
    const auto part = std::shared_ptr<const FileNode>(root, root->node("65537"));
    const auto again = DiskScanner().scan(folder / "65537").get().root;
    const auto both = finder.find({root, part, again, nullptr}, {.minimumSize = 65'537}).get();
    EXPECT_EQ(namesOf(both), std::vector(expected.begin(), expected.begin() + 4));
    EXPECT_EQ(namesOf(finder.find({part}, {.minimumSize = 1}).get()), std::vector(1, expected.front()));
    EXPECT_THAT(finder.find({}, {}).get().groups, IsEmpty());
}

TEST(DuplicateFinder, OneInodeIsOneFile) {
    const TemporaryFolder folder;
    const std::string bytes = content(100'000);
    folder.writeFile("b", bytes);
    fs::create_hard_link(folder / "b", folder / "a");
    const DuplicateFinder finder;
    EXPECT_THAT(find(finder, folder.path()).groups, IsEmpty()) << "links alone are no duplicates";

    folder.writeFile("c", bytes);
    folder.writeFile("d", bytes);
    fs::create_hard_link(folder / "d", folder / "d2");
    const TemporaryFolder elsewhere(folder.path().parent_path());
    fs::create_hard_link(folder / "d", elsewhere / "unseen");
    const DuplicateResult result = find(finder, folder.path());
    ASSERT_EQ(namesOf(result), (std::vector<std::vector<std::string>>{{"a", "b", "c", "d", "d2"}}));
    const DuplicateGroup& group = result.groups.front();
    EXPECT_TRUE(group.areLinks(0, 1) && group.areLinks(3, 4));
    EXPECT_FALSE(group.areLinks(1, 2) || group.areClones(1, 2) || group.areClones(0, 1));
    ASSERT_EQ(group.files.size(), 3u);
    EXPECT_TRUE(group.files[2].hasUnseenLinks && !group.files[0].hasUnseenLinks);
    // What has links elsewhere frees nothing: that one is kept, and the two others may go.
    EXPECT_EQ(group.waste, group.files[0].reclaimableSize + group.files[1].reclaimableSize);
    EXPECT_EQ(group.files[2].reclaimableSize, 0);
}

TEST(DuplicateFinder, WhatIsNotTheSameAnyMoreDropsOut) {
    struct Case {
        const char* what;
        std::function<void(const fs::path&)> spoil;
        std::optional<FileFault::Kind> fault;
    };
    const auto replace = [](const fs::path& file, const auto& make) {
        fs::remove(file);
        make(file);
    };
    const std::vector<Case> cases{
        {"left alone", [](const fs::path&) {}, std::nullopt},
        {"vanished", [](const fs::path& file) { fs::remove(file); }, FileFault::Kind::vanished},
        {"grown", [](const fs::path& file) { fs::resize_file(file, 300'000); }, FileFault::Kind::changed},
        {"shrunk", [](const fs::path& file) { fs::resize_file(file, 10); }, FileFault::Kind::changed},
        {"attributes", [](const fs::path& file) { ::chmod(file.c_str(), 0600); }, FileFault::Kind::changed},
        {"a link to its like",
         [&](const fs::path& file) {
             replace(file, [](const fs::path& at) { fs::create_symlink("a", at); });
         },
         FileFault::Kind::replaced},
        {"a FIFO",
         [&](const fs::path& file) { replace(file, [](const fs::path& at) { ::mkfifo(at.c_str(), 0600); }); },
         FileFault::Kind::replaced},
        {"a copy",
         [&](const fs::path& file) {
             fs::copy_file(file, file.string() + ".new");
             fs::rename(file.string() + ".new", file);
         },
         FileFault::Kind::replaced},
    };
    // Two others are compared with it in step, twenty by their digests.
    for (const auto& [others, isWhileReading] : {std::pair(2u, false), {2u, true}, {20u, true}})
        for (const Case& each : cases) {
            SCOPED_TRACE(std::string(each.what) + (isWhileReading ? ", while it is read" : ", before"));
            const TemporaryFolder folder;
            folder.writeFile("victim", content(200'000));
            for (unsigned other = 0; other < others; ++other)
                folder.writeFile(std::string(1, static_cast<char>('a' + other)), content(200'000));
            DuplicateFinder finder;
            std::atomic<int> victims = 0;
            struct stat status = {};
            ASSERT_EQ(::stat((folder / "victim").c_str(), &status), 0);
            if (isWhileReading)
                // The first page and its end, the beginning and its end, the whole; or the second of four
                // steps.
                beforeReading(finder, [&](int file) {
                    struct stat open = {};
                    if (::fstat(file, &open) == 0 && open.st_ino == status.st_ino &&
                        ++victims == (others > 2 ? 5 : 4))
                        each.spoil(folder / "victim");
                });
            else
                finder.open = [&](int parent, const char* name, const FileVersion& version) {
                    if (std::string_view(name) == "victim" && ++victims == 1)
                        each.spoil(folder / "victim");
                    return openMeasuredFile(parent, name, version);
                };
            const DuplicateResult result = find(finder, folder.path());
            ASSERT_EQ(result.groups.size(), 1u);
            EXPECT_EQ(result.groups[0].members.size(), each.fault ? others : others + 1);
            ASSERT_EQ(result.dropped.size(), each.fault ? 1u : 0u);
            if (each.fault) {
                EXPECT_EQ(result.dropped[0].node->name(), "victim");
                // Of an open file the system tells no more than that its name is gone.
                const bool isGone = isWhileReading && *each.fault == FileFault::Kind::replaced;
                EXPECT_EQ(result.dropped[0].fault.kind, isGone ? FileFault::Kind::vanished : *each.fault);
            }
        }
}

TEST(DuplicateFinder, AFailureConcernsOneFile) {
    const TemporaryFolder folder;
    for (const char* name : {"x/a", "x/b", "x/c", "gone/d", "gone/e"})
        folder.writeFile(name, content(70'000));
    const auto root = DiskScanner().scan(folder.path()).get().root;
    fs::remove_all(folder / "gone");
    DuplicateFinder finder;
    finder.open = [](int parent, const char* name, const FileVersion& version) {
        return std::string_view(name) == "b" ? std::unexpected(FileFault::of(EACCES))
                                             : openMeasuredFile(parent, name, version);
    };
    const DuplicateResult result = finder.find({root}, {.minimumSize = 1}).get();
    EXPECT_EQ(namesOf(result), (std::vector<std::vector<std::string>>{{"a", "c"}}));
    std::map<std::string, FileFault::Kind> dropped;
    for (const DroppedFile& file : result.dropped)
        dropped.emplace(file.node->name(), file.fault.kind);
    EXPECT_EQ(dropped, (std::map<std::string, FileFault::Kind>{{"b", FileFault::Kind::failed},
                                                               {"d", FileFault::Kind::vanished},
                                                               {"e", FileFault::Kind::vanished}}));

    finder.readOn = [](auto&&...) -> std::expected<std::span<const std::byte>, int> {
        throw std::bad_alloc();
    };
    EXPECT_THROW(finder.find({root}, {.minimumSize = 1}).get(), std::bad_alloc);
}

TEST(DuplicateFinder, TellsNearDuplicatesApartAsAPlainComparisonDoes) {
    const TemporaryFolder folder;
    std::minstd_rand random(7);
    std::map<std::string, std::string> contents; // by name
    for (const std::size_t size : {4'096u, 16'385u, 65'537u, 200'001u})
        for (const int count : {2, 3, 8, 16, 17, 20}) {
            // Each set is of a size of its own. Its contents differ in one byte at most.
            const std::size_t length = size + static_cast<std::size_t>(count) * 100;
            const std::string base = content(length, static_cast<unsigned>(random()));
            std::vector<std::string> kinds{base};
            for (const std::size_t differing :
                 {length - 1, random() % length, length - 1 - length / 3, std::size_t{4'096}}) {
                kinds.push_back(base);
                kinds.back()[differing] ^= 1;
            }
            for (int number = 0; number < count; ++number) {
                const std::string name = std::to_string(length) + "-" + std::to_string(number);
                contents[name] = kinds[random() % std::min<std::size_t>(kinds.size(), 1 + random() % 5)];
                folder.writeFile(name, contents[name]);
            }
        }
    const auto root = DiskScanner().scan(folder.path()).get().root;
    for (const bool isDisturbed : {false, true}) {
        DuplicateFinder finder;
        std::mutex mutex;
        std::set<std::string> victims;
        if (isDisturbed)
            beforeReading(finder, [&](int file) {
                const std::lock_guard guard(mutex);
                if (random() % 20 != 0)
                    return;
                // A name cannot be told from a descriptor everywhere, but an inode can.
                struct stat status = {};
                ::fstat(file, &status);
                root->forEachDescendant([&](const FileNode& node) {
                    struct stat named = {};
                    const std::string path = node.path();
                    if (::stat(path.c_str(), &named) != 0 || named.st_ino != status.st_ino)
                        return true;
                    const int victim = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
                    EXPECT_EQ(::pwrite(victim, "!", 1, static_cast<off_t>(random() % 16'384)), 1);
                    ::close(victim);
                    victims.insert(std::string(node.name()));
                    return false;
                });
            });
        const DuplicateResult result = finder.find({root}, {.minimumSize = 1}).get();
        std::map<std::string, std::set<std::string>> expected;
        for (const auto& [name, bytes] : contents)
            if (!victims.contains(name))
                expected[bytes].insert(name);
        std::set<std::set<std::string>> groups;
        for (const auto& [bytes, names] : expected)
            if (names.size() > 1)
                groups.insert(names);
        std::set<std::set<std::string>> found;
        for (const auto& names : namesOf(result))
            found.emplace(names.begin(), names.end());
        EXPECT_EQ(found, groups);
        std::set<std::string> dropped;
        for (const DroppedFile& file : result.dropped)
            dropped.emplace(file.node->name());
        EXPECT_EQ(dropped, victims);
        EXPECT_EQ(victims.empty(), !isDisturbed);
    }
}

TEST(DuplicateFinder, ReadsNoFurtherThanThereIsALike) {
    const TemporaryFolder folder;
    constexpr std::int64_t size = 10 << 20;
    folder.writeFile("a", content(size));
    folder.writeFile("b", content(size, 1, 100'000));
    folder.writeFile("c", content(size, 2, 5'000));
    folder.writeFile("d", content(size, 3));
    const DuplicateResult result = find(DuplicateFinder(), folder.path());
    EXPECT_THAT(result.groups, IsEmpty());
    // A page of each; then of three in step 64 KiB, and as much of the two that are left.
    EXPECT_EQ(result.totals.bytesRead, 4 * 4'096 + (3 + 2) * beginning);
}

TEST(DuplicateFinder, MakesDoWithFewDescriptors) {
    const TemporaryFolder folder;
    for (unsigned set = 0; set < 40; ++set)
        for (const char* name : {"/a", "/b", "/c"})
            folder.writeFile(std::to_string(set) + name, content(70'000 + set));
    const auto root = DiskScanner().scan(folder.path()).get().root;
    struct rlimit before = {};
    ::getrlimit(RLIMIT_NOFILE, &before);
    struct rlimit few = before;
    few.rlim_cur = 64; // as if a few files of each worker were no burden
    for (const int workers : {1, 4}) {
        ::setrlimit(RLIMIT_NOFILE, &few);
        std::vector<int> taken;
        for (int file = 0; (file = ::dup(STDERR_FILENO)) >= 0;)
            taken.push_back(file);
        // What is needed: the root, and for each worker a folder, a look at a file, and the file.
        for (int left = 0; left < 1 + workers * 3; ++left) {
            ::close(taken.back());
            taken.pop_back();
        }
        const DuplicateResult result =
            DuplicateFinder().find({root}, {.minimumSize = 1, .workerCount = workers}).get();
        for (const int file : taken)
            ::close(file);
        ::setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_EQ(result.groups.size(), 40u);
        EXPECT_EQ(result.totals.duplicateCount, 80);
        EXPECT_THAT(result.dropped, IsEmpty());
    }
}

TEST(DuplicateFinder, PlaceholdersAreNeverTouched) {
    const TemporaryFolder folder;
    for (const char* name : {"a", "b", "cloud"})
        folder.writeFile(name, content(5'000));
    FileTreeBuilder builder(folder.path().string());
    builder.addFile(builder.root(), "a", 5'000);
    builder.addFile(builder.root(), "b", 5'000);
    builder.addFile(builder.root(), "cloud", {.size = 5'000, .flags = FileNodeFlags::dataless});
    DuplicateFinder finder;
    std::mutex mutex;
    std::vector<std::string> touched;
    finder.measure = [&](int parent, const char* name) {
        const std::lock_guard guard(mutex);
        touched.emplace_back(name);
        auto found = measureFile(parent, name);
        found->isDataless = touched.back() == "b"; // since the scan
        return found;
    };
    finder.open = [&](auto&&...) -> std::expected<int, FileFault> {
        ADD_FAILURE() << "nothing has a like";
        return std::unexpected(FileFault::of(EIO));
    };
    const auto result = finder.find({builder.finish()}, {.minimumSize = 1}).get();
    EXPECT_THAT(touched, testing::UnorderedElementsAre("a", "b"));
    EXPECT_EQ(result.dropped.size(), 1u);
}

TEST(DuplicateFinder, DeepTreesAndAnyNumberOfWorkers) {
    const TemporaryFolder folder;
    // Paths far beyond PATH_MAX.
    const std::string component(200, 'd');
    int parent = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level < 60; ++level) {
        for (int number = 0; number < 4; ++number) {
            const int file =
                ::openat(parent, std::to_string(number).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            const std::string bytes = content(66'000, static_cast<unsigned>(number), 65'999);
            ASSERT_EQ(::write(file, bytes.data(), bytes.size()), std::ssize(bytes));
            ::close(file);
        }
        ASSERT_EQ(::mkdirat(parent, component.c_str(), 0700), 0);
        const int next = ::openat(parent, component.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(parent);
        parent = next;
    }
    ::close(parent);
    const auto root = DiskScanner().scan(folder.path()).get().root;
    for (const int workers : {1, 2, 9}) {
        const DuplicateResult result =
            DuplicateFinder().find({root}, {.minimumSize = 1, .workerCount = workers}).get();
        ASSERT_EQ(result.groups.size(), 4u);
        EXPECT_THAT(result.dropped, IsEmpty());
        for (std::size_t group = 0; group < 4; ++group) {
            ASSERT_EQ(result.groups[group].members.size(), 60u);
            // Digits come before letters.
            EXPECT_EQ(result.groups[group].members[0].node->name(), std::to_string(group));
            EXPECT_EQ(result.groups[group].members[0].node->parent(), root.get());
            EXPECT_EQ(result.groups[group].members[59].node->depth(), 60u);
        }
    }
}

TEST(DuplicateFinder, CancellingEndsItAtOnce) {
    const TemporaryFolder folder;
    for (const char* name : {"a", "b"}) {
        folder.writeFile(name, "");
        fs::resize_file(folder / name, std::uintmax_t{1} << 42); // would take an hour
    }
    const CancellationToken token;
    std::atomic<bool> hasThrown = false;
    auto running = DuplicateFinder().find(
        {DiskScanner().scan(folder.path()).get().root}, {.progressInterval = 0.001},
        [&](const DuplicateProgress& progress) {
            if (progress.bytesRead > 1'000'000 && !hasThrown.exchange(true))
                token.cancel();
        },
        token);
    EXPECT_THROW(running.get(), ScanError);
    EXPECT_TRUE(hasThrown);
}

} // namespace
} // namespace tarnwell
