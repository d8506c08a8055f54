#include "TarnwellCore/Actions/BlockSharing.hpp"
#include "TarnwellCore/Analysis/DuplicateFinder.hpp"
#include "TarnwellCore/Platform/CloneReplacement.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include "Tests/Support/MountedImage.hpp"
#include "Tests/Support/TemporaryFolder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tarnwell {
namespace {

namespace fs = std::filesystem;
using test::MountedImage;
using Refusal = SharingRefusal::Kind;

/// Not a multiple of any block, and of several ranges.
constexpr std::size_t size = (33u << 20) + 123;

std::string content() {
    std::string bytes(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes)
        byte = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
    return bytes;
}

/// Whether these are the bytes of a file.
bool holds(const fs::path& path, const std::string& bytes) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    void* const map = ::mmap(nullptr, bytes.size(), PROT_READ, MAP_PRIVATE, file, 0);
    struct stat status = {};
    const bool isSame = ::fstat(file, &status) == 0 && status.st_size == std::ssize(bytes) &&
                        map != MAP_FAILED && std::memcmp(map, bytes.data(), bytes.size()) == 0;
    ::munmap(map, bytes.size());
    ::close(file);
    return isSame;
}

/// All of a file but its blocks and what belongs to its inode alone.
struct Looks {
    mode_t mode;
    uid_t owner;
    gid_t group;
    std::int64_t modified;
    std::string attribute;
    bool operator==(const Looks&) const = default;

    static Looks of(const fs::path& path) {
        struct stat status = {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
        std::array<char, 64> value{};
        const ssize_t length = ::lgetxattr(path.c_str(), "user.note", value.data(), value.size());
        return {status.st_mode, status.st_uid, status.st_gid,
                status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec,
                std::string(value.data(), length < 0 ? 0 : static_cast<std::size_t>(length))};
    }
};

/// Two files and more of equal contents, each with looks of its own, on a file system of the kind.
class BlockSharing : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        auto made = MountedImage::make({.type = GetParam(), .size = 900'000'000});
        if (!made)
            GTEST_SKIP() << made.error();
        image_ = std::move(*made);
        folder_ = image_->path() / "data";
        fs::create_directory(folder_);
        for (const char* name : {"a", "b", "c"})
            add(name);
    }

    void add(const std::string& name) {
        const fs::path path = folder_ / name;
        const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(::write(file, bytes_.data(), bytes_.size()), std::ssize(bytes_));
        ::fsetxattr(file, "user.note", name.data(), name.size(), 0);
        ::fchmod(file, 0600 | static_cast<mode_t>(name[0] & 7));
        ::fsync(file);
        const struct timespec times[2] = {{1'000'000 + name[0], 5}, {2'000'000 + name[0], 7}};
        ::futimens(file, times);
        ::close(file);
        looks_[name] = Looks::of(path);
    }

    DuplicateGroup group() {
        result_ = DuplicateFinder().find({DiskScanner().scan(folder_).get().root}, {.minimumSize = 1}).get();
        EXPECT_EQ(result_.groups.size(), 1u);
        return result_.groups.at(0);
    }

    void expectAllWhole() {
        for (const auto& [name, looks] : looks_) {
            EXPECT_TRUE(holds(folder_ / name, bytes_)) << name;
            EXPECT_TRUE(Looks::of(folder_ / name) == looks) << name;
        }
    }

    std::uint64_t freeBytes() const {
        ::sync();
        const int root = ::open(folder_.c_str(), O_RDONLY | O_CLOEXEC);
        ::syncfs(root);
        ::close(root);
        return fs::space(folder_).free;
    }

    const std::string bytes_ = content();
    std::unique_ptr<MountedImage> image_;
    fs::path folder_;
    std::map<std::string, Looks> looks_;
    DuplicateResult result_; // keeps the nodes of groups
};

TEST_P(BlockSharing, FreesSpaceAndChangesNothingElse) {
    fs::create_hard_link(folder_ / "c", folder_ / "c2");
    const DuplicateGroup before = group();
    EXPECT_GT(before.waste, std::int64_t{2 * size - 100'000});
    const std::uint64_t freeBefore = freeBytes();

    std::vector<SharingOutcome> reported;
    const auto outcomes = tarnwell::BlockSharing()
                              .share(SharingRequest::of(before),
                                     [&](const SharingOutcome& outcome) { reported.push_back(outcome); })
                              .get();
    EXPECT_EQ(outcomes, reported);
    ASSERT_EQ(outcomes.size(), 2u);
    std::int64_t freed = 0;
    for (const SharingOutcome& outcome : outcomes) {
        EXPECT_TRUE(std::holds_alternative<SharingDone>(outcome)) << urlOf(outcome);
        freed += bytesFreedBy(outcome);
    }
    EXPECT_NEAR(static_cast<double>(freed), 2.0 * size, 200'000);
    EXPECT_NEAR(static_cast<double>(freeBytes()) - static_cast<double>(freeBefore), 2.0 * size, 4'000'000);
    expectAllWhole();

    const DuplicateGroup after = group();
    EXPECT_EQ(after.waste, 0);
    EXPECT_TRUE(after.areClones(0, 1) && after.areClones(1, 3) && after.areLinks(2, 3));
    for (const SharingOutcome& outcome : tarnwell::BlockSharing().share(SharingRequest::of(after)).get())
        EXPECT_EQ(outcome, SharingOutcome(SharingDone{urlOf(outcome), 0}));

    // Of three files two of which are clones, one too many takes space.
    add("d");
    const DuplicateGroup mixed = group();
    EXPECT_FALSE(mixed.areClones(0, 4));
    EXPECT_NEAR(static_cast<double>(mixed.waste), size, 100'000);
}

TEST_P(BlockSharing, RefusesWithAReason) {
    for (const char* name : {"changed", "immutable", "open", "gone"})
        add(name);
    SharingRequest request = SharingRequest::of(group());
    const test::TemporaryFolder elsewhere;
    fs::copy_file(folder_ / "b", elsewhere / "b");
    struct stat status = {};
    ASSERT_EQ(::stat((elsewhere / "b").c_str(), &status), 0);
    const int other = ::open(elsewhere.path().c_str(), O_PATH | O_CLOEXEC);
    request.items.push_back({(elsewhere / "b").string(), measureFile(other, "b")->version});
    ::close(other);

    { // behind the back of the times
        struct stat was = {};
        ASSERT_EQ(::stat((folder_ / "changed").c_str(), &was), 0);
        const int file = ::open((folder_ / "changed").c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_EQ(::pwrite(file, "x", 1, size - 1), 1);
        const struct timespec times[2] = {was.st_atim, was.st_mtim};
        ::futimens(file, times);
        ::close(file);
    }
    const int locked = ::open((folder_ / "immutable").c_str(), O_RDONLY | O_CLOEXEC);
    int flags = FS_IMMUTABLE_FL;
    ASSERT_EQ(::ioctl(locked, FS_IOC_SETFLAGS, &flags), 0);
    const int written = ::open((folder_ / "open").c_str(), O_WRONLY | O_CLOEXEC);
    fs::remove(folder_ / "gone");
    for (SharingRequest::Item& item : request.items) // the flag is no news to the caller
        if (item.path.ends_with("/immutable"))
            item.version = measureFile(locked)->version;

    std::map<std::string, Refusal> refusals;
    std::vector<std::string> done;
    for (const SharingOutcome& outcome : tarnwell::BlockSharing().share(request).get()) {
        if (const auto* refused = std::get_if<SharingRefused>(&outcome))
            refusals[urlOf(outcome).string()] = refused->refusal.kind;
        else
            done.push_back(urlOf(outcome).filename());
    }
    EXPECT_EQ(done, (std::vector<std::string>{"b", "c"}));
    EXPECT_EQ(refusals,
              (std::map<std::string, Refusal>{{(folder_ / "changed").string(), Refusal::notTheSame},
                                              {(folder_ / "immutable").string(), Refusal::immutable},
                                              {(folder_ / "open").string(), Refusal::openForWriting},
                                              {(folder_ / "gone").string(), Refusal::notTheSame},
                                              {(elsewhere / "b").string(), Refusal::otherFileSystem}}));
    // What only the kernel can see: equal to all appearances, but not in its bytes.
    request.items = {{request.items[0]}, {(folder_ / "changed").string(), {}}};
    const int folder = ::open(folder_.c_str(), O_PATH | O_CLOEXEC);
    request.items[1].version = measureFile(folder, "changed")->version;
    ::close(folder);
    const auto outcome = tarnwell::BlockSharing().share(request).get().at(0);
    ASSERT_TRUE(std::holds_alternative<SharingRefused>(outcome));
    EXPECT_EQ(std::get<SharingRefused>(outcome).refusal.kind, Refusal::notTheSame);
    EXPECT_GT(bytesFreedBy(outcome), 0) << "all but the end was shared";

    flags = 0;
    ::ioctl(locked, FS_IOC_SETFLAGS, &flags);
    ::close(locked);
    ::close(written);
    looks_.erase("gone");
    looks_.erase("changed");
    expectAllWhole();
}

/// Runs `body` in a process that is killed at the call of its number, until it gets to its end.
void killAtEveryCall(const std::function<void(const std::function<void()>& called)>& body,
                     const std::function<void()>& check) {
    for (int fatal = 1;; ++fatal) {
        const pid_t process = ::fork();
        if (process == 0) {
            int calls = 0;
            body([&] {
                if (++calls == fatal)
                    ::kill(::getpid(), SIGKILL);
            });
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(process, &status, 0), process);
        check();
        if (WIFEXITED(status)) {
            EXPECT_GT(fatal, 2);
            return;
        }
    }
}

TEST_P(BlockSharing, AKillAtAnyTimeLeavesEveryFileWhole) {
    const SharingRequest request = SharingRequest::of(group());
    killAtEveryCall(
        [&](const std::function<void()>& called) {
            tarnwell::BlockSharing service;
            service.shareExtents = [&](const SharingFile& first, const SharingFile& further, const auto&) {
                return shareExtents(first, further, [&] { return called(), false; });
            };
            service.share(request).get();
        },
        [&] { expectAllWhole(); });
    EXPECT_EQ(group().waste, 0);
}

INSTANTIATE_TEST_SUITE_P(OnRealFileSystems, BlockSharing, testing::Values("btrfs", "xfs"),
                         [](const auto& kind) { return std::string(kind.param); });

TEST(SharingElsewhere, IsRefused) {
    const auto image = MountedImage::make({.type = "ext4"});
    if (!image)
        GTEST_SKIP() << image.error();
    const test::TemporaryFolder folder((*image)->path());
    for (const char* name : {"a", "b"})
        folder.writeFile(name, "the same");
    const auto result =
        DuplicateFinder().find({DiskScanner().scan(folder.path()).get().root}, {.minimumSize = 1}).get();
    const auto outcomes = tarnwell::BlockSharing().share(SharingRequest::of(result.groups.at(0))).get();
    EXPECT_EQ(outcomes, std::vector<SharingOutcome>({SharingRefused{folder / "b", {Refusal::unsupported}}}));
    const CancellationToken token;
    token.cancel();
    const auto cancelled =
        tarnwell::BlockSharing().share(SharingRequest::of(result.groups.at(0)), nullptr, token).get();
    EXPECT_EQ(cancelled, std::vector<SharingOutcome>({SharingRefused{folder / "b", {Refusal::cancelled}}}));
}

TEST(SharingLeftovers, OnlyWhatNobodyNeedsIsRemoved) {
    const test::TemporaryFolder folder;
    const auto name = [](const char* end) {
        return std::string(temporaryNameStart) + "01234567-89AB-4CDE-8F01-2345678900" + end;
    };
    const timespec longAgo[2] = {{1'000'000, 0}, {1'000'000, 0}};
    for (const std::string& file : {name("01"), name("02"), name("03"), name("0x"), std::string("other")}) {
        folder.writeFile(file, "text");
        ::utimensat(AT_FDCWD, (folder / file).c_str(), longAgo, 0);
    }
    folder.writeFile(name("04"), "written by somebody who still had it open");
    // Written to between the exchange and the end: nothing else has these contents.
    folder.writeFile(name("08"), "text");
    const timespec later[2] = {{1'000'001, 0}, {1'000'001, 0}};
    ::utimensat(AT_FDCWD, (folder / name("08")).c_str(), later, 0);
    folder.makeFolder(name("05"));
    fs::create_symlink("other", folder / name("06"));
    ASSERT_EQ(::mkfifo((folder / name("07")).c_str(), 0600), 0);
    fs::create_hard_link(folder / name("03"), folder / "its other name");
    const int held = ::open((folder / name("02")).c_str(), O_RDONLY | O_CLOEXEC);
    ::flock(held, LOCK_EX);

    const auto left = [&] {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder.path()))
            names.insert(entry.path().filename());
        return names;
    };
    std::set<std::string> expected = left();
    const int open = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    CloneCalls calls;
    calls.remove = [](int at, const char* file) { return ::unlinkat(at, file, 0); };
    removeSharingLeftovers(open, std::time(nullptr) + 80'000, calls);
    EXPECT_EQ(left(), expected) << "not for a day";
    removeSharingLeftovers(open, std::time(nullptr) + 90'000, calls);
    expected.erase(name("01"));
    EXPECT_EQ(left(), expected);
    ::close(held);
    removeSharingLeftovers(open, std::time(nullptr) + 90'000, calls);
    expected.erase(name("02"));
    EXPECT_EQ(left(), expected);
    ::close(open);
}

// --- What systems do that can only clone whole files, with the calls that do it here
// ---------------------------

int cloneHere(int file, int folder, const char* name) {
    const int clone = ::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const int result = clone < 0 ? -1 : ::ioctl(clone, FICLONE, file);
    ::close(clone);
    return result;
}

int copyMetadataHere(int from, int folder, const char* name) {
    struct stat status = {};
    std::array<char, 64> value{};
    const int to = ::openat(folder, name, O_RDWR | O_CLOEXEC);
    const ssize_t length = ::fgetxattr(from, "user.note", value.data(), value.size());
    const struct timespec* times = &status.st_atim; // the time of modification follows it
    static_assert(offsetof(struct stat, st_mtim) == offsetof(struct stat, st_atim) + sizeof(struct timespec));
    const int result =
        to >= 0 && ::fstat(from, &status) == 0 && ::fchmod(to, status.st_mode & 07777) == 0 &&
                ::fsetxattr(to, "user.note", value.data(), static_cast<std::size_t>(length), 0) == 0 &&
                ::futimens(to, times) == 0
            ? 0
            : -1;
    ::close(to);
    return result;
}

TEST_P(BlockSharing, ByClonesIsAllOrNothing) {
    struct Trouble {
        std::string call; // at which something happens
        std::function<void(const std::string& other)> happens;
        bool fails = false;
        std::optional<SharingFault::Kind> fault;
    };
    const auto touch = [&](const char* name) {
        return [this, name](const std::string&) { fs::permissions(folder_ / name, fs::perms(0640)); };
    };
    const auto writeOver = [&](const std::string& other) { // the old file, behind the exchange
        const int file = ::open((folder_ / other).c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(::pwrite(file, "new", 3, 0), 3);
        ::close(file);
    };
    using Kind = SharingFault::Kind;
    const std::vector<Trouble> troubles{
        {"clone", nullptr, true, Kind::failed},           {"metadata", nullptr, true, Kind::failed},
        {"metadata", touch("a"), false, Kind::different}, {"metadata", touch("b"), false, Kind::different},
        {"exchange", nullptr, true, Kind::failed},        {"exchange", writeOver, false, Kind::different},
        {"remove", nullptr, true, Kind::failed},          {"", nullptr, false, std::nullopt},
    };
    const auto replace =
        [&](const std::function<int(const std::string& call, const std::string& other)>& before) {
            const int folder = ::open(folder_.c_str(), O_RDONLY | O_CLOEXEC);
            const auto file = [&](const char* name) {
                const auto version = measureFile(folder, name)->version;
                return SharingFile{*openMeasuredFile(folder, name, version), folder, name, version};
            };
            const SharingFile first = file("a");
            const SharingFile further = file("b");
            const CloneCalls calls{
                .clone =
                    [&](int from, int in, const char* name) {
                        return before("clone", name) != 0 ? -1 : cloneHere(from, in, name);
                    },
                .copyMetadata =
                    [&](int from, int in, const char* name) {
                        return before("metadata", name) != 0 ? -1 : copyMetadataHere(from, in, name);
                    },
                .exchange =
                    [&](int in, const char* one, const char* other) {
                        return before("exchange", other) != 0
                                   ? -1
                                   : ::renameat2(in, one, in, other, RENAME_EXCHANGE);
                    },
                .remove =
                    [&](int in, const char* name) {
                        return before("remove", name) != 0 ? -1 : ::unlinkat(in, name, 0);
                    },
            };
            const auto result = replaceByClone(first, further, 42, calls, [] { return false; });
            for (const int descriptor : {first.file, further.file, folder})
                ::close(descriptor);
            return result;
        };
    const auto leftovers = [&] {
        return std::distance(fs::directory_iterator(folder_), {}) - std::ssize(looks_);
    };
    for (const Trouble& trouble : troubles) {
        SCOPED_TRACE(trouble.call);
        int times = 0;
        const auto result = replace([&](const std::string& call, const std::string& other) {
            if (call != trouble.call || times++ > 0)
                return 0;
            if (trouble.happens)
                trouble.happens(other);
            errno = EIO;
            return trouble.fails ? -1 : 0;
        });
        EXPECT_EQ(result ? std::nullopt : std::optional(result.error().kind), trouble.fault);
        if (trouble.happens == nullptr) {
            expectAllWhole();
            EXPECT_EQ(leftovers(), trouble.call == "remove" ? 1 : 0)
                << "removing is the one call that may leave one";
        } else {
            EXPECT_EQ(leftovers(), 0);
            if (trouble.call == "exchange") {
                EXPECT_TRUE(holds(folder_ / "b", "new" + bytes_.substr(3))) << "what was written is lost";
            }
            add("a");
            add("b");
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(folder_))
            if (entry.path().filename().string().starts_with(temporaryNameStart))
                fs::remove(entry.path());
    }
    killAtEveryCall(
        [&](const std::function<void()>& called) { replace([&](auto&&...) { return called(), 0; }); },
        [&] {
            expectAllWhole();
            for (const fs::directory_entry& entry : fs::directory_iterator(folder_))
                if (!looks_.contains(entry.path().filename().string())) {
                    EXPECT_TRUE(entry.path().filename().string().starts_with(temporaryNameStart));
                    fs::remove(entry.path());
                }
        });
    const DuplicateGroup after = group();
    EXPECT_TRUE(after.areClones(0, 1) && !after.areClones(0, 2));

    fs::create_hard_link(folder_ / "b", folder_ / "b2");
    EXPECT_EQ(replace([](auto&&...) { return 0; }).error().kind, Kind::hasOtherLinks);
}

} // namespace
} // namespace tarnwell
