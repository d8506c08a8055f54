// make-tree: writes a folder tree whose shape, names and sizes depend on its arguments alone, so that figures
// taken on different days and machines speak of the same tree.
//
// A plan of parents and file counts is drawn first; one walk then writes it with a single open descriptor, so
// depth costs nothing. What a folder holds follows from its own number and --seed only.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "Benchmarks/Arguments.hpp"

namespace tarnwell::benchmarks {
namespace {

constexpr std::string_view usage =
    "usage: make-tree [OPTIONS] FOLDER\n"
    "Writes a reproducible tree to FOLDER, which must not exist.\n"
    "  --files N      files in the tree (1000000)\n"
    "  --folders N    folders, the top one included (36687 for each million files)\n"
    "  --seed N       another tree of the same kind (1)\n"
    "or, instead of that mixed tree, one of:\n"
    "  --flat N       one folder of N files\n"
    "  --thin N       N folders of one file each\n"
    "  --chain N      N folders, each in the one before, with one file each\n";

/// SplitMix64: the standard library's distributions differ between its makers, this does not.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }
    std::uint64_t below(std::uint64_t limit) { return next() % limit; }
    std::uint64_t between(std::uint64_t low, std::uint64_t high) { return low + below(high - low + 1); }

private:
    std::uint64_t state_;
};

/// Folder 0 is the top; a folder's parent has a smaller number.
struct Plan {
    std::vector<std::uint32_t> parents;
    std::vector<std::uint64_t> fileCounts;

    void add(std::uint32_t parent, std::uint64_t fileCount) {
        parents.push_back(parent);
        fileCounts.push_back(fileCount);
    }
    std::size_t folderCount() const { return parents.size(); }
};

std::uint64_t drawFileCount(Random& random) {
    // Long-tailed like a home folder: half of the folders hold fewer than ten files, one in a thousand
    // thousands.
    static constexpr struct {
        std::uint64_t perThousand, low, high;
    } classes[] = {{120, 0, 0},    {300, 1, 3},    {250, 4, 10},   {180, 11, 30},
                   {100, 31, 100}, {40, 101, 300}, {9, 301, 1000}, {1, 1001, 12000}};
    std::uint64_t ticket = random.below(1000);
    for (const auto& entry : classes) {
        if (ticket < entry.perThousand)
            return random.between(entry.low, entry.high);
        ticket -= entry.perThousand;
    }
    return 0;
}

Plan mixedPlan(std::uint64_t files, std::uint64_t folders, std::uint64_t seed) {
    Random random(seed);
    Plan plan;
    plan.add(0, drawFileCount(random));
    const auto addFolder = [&](std::uint32_t parent) { plan.add(parent, drawFileCount(random)); };
    // Deep chains, within the path length that every walker can handle.
    for (const std::uint32_t length : {60u, 120u, 240u}) {
        if (plan.folderCount() + length > folders / 4)
            break;
        addFolder(0);
        for (std::uint32_t depth = 1; depth < length; ++depth)
            addFolder(static_cast<std::uint32_t>(plan.folderCount() - 1));
    }
    const auto firstOrdinary = static_cast<std::uint32_t>(plan.folderCount());
    while (plan.folderCount() < folders) {
        const std::uint64_t ordinary = plan.folderCount() - firstOrdinary;
        std::uint32_t parent = 0;
        if (ordinary >= 12) {
            parent = firstOrdinary + static_cast<std::uint32_t>(random.below(ordinary));
            // A sibling of a folder drawn at large: crowded folders attract more.
            if (random.below(100) < 35)
                parent = plan.parents[parent];
        }
        addFolder(parent);
    }
    // The drawn counts are scaled so that their sum is exact.
    std::uint64_t drawn = 0;
    for (const std::uint64_t count : plan.fileCounts)
        drawn += count;
    if (drawn == 0) {
        plan.fileCounts[0] = 1;
        drawn = 1;
    }
    std::uint64_t sum = 0;
    std::uint64_t placed = 0;
    for (std::uint64_t& count : plan.fileCounts) {
        sum += count;
        const std::uint64_t due = sum * files / drawn;
        count = due - placed;
        placed = due;
    }
    return plan;
}

Plan flatPlan(std::uint64_t files) {
    Plan plan;
    plan.add(0, files);
    return plan;
}

Plan thinPlan(std::uint64_t folders) {
    Plan plan;
    plan.add(0, 0);
    for (std::uint64_t index = 0; index < folders; ++index)
        plan.add(0, 1);
    return plan;
}

Plan chainPlan(std::uint64_t folders) {
    Plan plan;
    plan.add(0, 1);
    for (std::uint64_t index = 1; index < folders; ++index)
        plan.add(static_cast<std::uint32_t>(index - 1), 1);
    return plan;
}

constexpr std::array<std::string_view, 40> words = {
    "index",    "main",     "utils",  "README",  "test",     "config",  "model",    "view",
    "helper",   "parser",   "chunk",  "render",  "socket",   "buffer",  "manager",  "types",
    "session",  "button",   "icon",   "layout",  "settings", "report",  "invoice",  "holiday",
    "photo",    "draft",    "backup", "package", "vendor",   "fixture", "snapshot", "driver",
    "protocol", "renderer", "cache",  "module",  "worker",   "queue",   "schema",   "notes"};

constexpr std::array<std::string_view, 24> folderWords = {
    "src",    "lib",  "include", "node_modules", "dist",  "test",  "docs",    "assets",
    "images", "css",  "build",   "vendor",       "core",  "utils", "common",  "components",
    "Photos", "2023", "2024",    "Archive",      "cache", "tmp",   "objects", "internal"};

std::string_view drawExtension(Random& random, std::array<char, 16>& room) {
    static constexpr struct {
        std::uint64_t perThousand;
        std::string_view text;
    } classes[] = {{190, ".js"}, {90, ".h"},   {60, ".c"},  {90, ".py"},  {70, ".json"}, {60, ".o"},
                   {70, ".png"}, {50, ".txt"}, {60, ".ts"}, {30, ".map"}, {30, ".md"},   {30, ".html"},
                   {30, ".jpg"}, {20, ".xml"}, {10, ".so"}, {20, ".css"}, {15, ".svg"},  {10, ".mp3"},
                   {10, ".pdf"}, {5, ".zip"},  {5, ".PNG"}, {20, ".pyc"}, {25, ""}};
    std::uint64_t ticket = random.below(1020);
    for (const auto& entry : classes) {
        if (ticket < entry.perThousand)
            return entry.text;
        ticket -= entry.perThousand;
    }
    // The tail: extensions that no table knows.
    const std::uint64_t length = random.between(1, 9);
    room[0] = '.';
    for (std::uint64_t index = 1; index <= length; ++index)
        room[index] = static_cast<char>('a' + random.below(26));
    return {room.data(), length + 1};
}

/// No two names of a folder are equal: each form carries the file's number in a place of its own.
const char* fileName(Random& random, std::uint64_t number, std::array<char, 256>& room) {
    std::array<char, 16> extensionRoom;
    const std::string_view extension = drawExtension(random, extensionRoom);
    const std::string_view word = words[random.below(words.size())];
    const int wordLength = static_cast<int>(word.size());
    const int extensionLength = static_cast<int>(extension.size());
    // An odd factor maps numbers below 2^32 one to one onto what looks like a hash.
    const auto hash = static_cast<unsigned>((number * 2654435761u) & 0xFFFFFFFFu);
    switch (random.below(8)) {
    case 0:
        std::snprintf(room.data(), room.size(), "%.*s-%08x%.*s", wordLength, word.data(), hash,
                      extensionLength, extension.data());
        break;
    case 1:
        std::snprintf(room.data(), room.size(), "%08x%08x%08x%08x%.*s", hash, hash ^ 0x5bd1e995u,
                      static_cast<unsigned>(random.next() >> 32), static_cast<unsigned>(random.next() >> 32),
                      extensionLength, extension.data());
        break;
    case 2:
        std::snprintf(room.data(), room.size(), "IMG_%04llu%.*s", static_cast<unsigned long long>(number),
                      extensionLength, extension.data());
        break;
    case 3:
        std::snprintf(room.data(), room.size(), ".%.*s%llu%.*s", wordLength, word.data(),
                      static_cast<unsigned long long>(number), extensionLength, extension.data());
        break;
    case 4: {
        const std::string_view second = words[random.below(words.size())];
        std::snprintf(room.data(), room.size(), "%.*s_%.*s_%llu%.*s", wordLength, word.data(),
                      static_cast<int>(second.size()), second.data(), static_cast<unsigned long long>(number),
                      extensionLength, extension.data());
        break;
    }
    default:
        std::snprintf(room.data(), room.size(), "%.*s%llu%.*s", wordLength, word.data(),
                      static_cast<unsigned long long>(number), extensionLength, extension.data());
        break;
    }
    return room.data();
}

struct Totals {
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::uint64_t apparentBytes = 0;
};

void makeFile(int folder, const char* name, Random& random, Totals& totals) {
    static const std::array<char, 16384> content = [] {
        std::array<char, 16384> bytes;
        for (std::size_t index = 0; index < bytes.size(); ++index)
            bytes[index] = static_cast<char>('a' + index % 26);
        return bytes;
    }();
    const int file = ::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file < 0)
        failCall(name);
    const std::uint64_t ticket = random.below(100);
    std::uint64_t size = 0;
    if (ticket < 6) {
        // Real blocks.
        size = random.between(1, ticket == 0 ? content.size() : 4096);
        if (::write(file, content.data(), size) != static_cast<ssize_t>(size))
            failCall(name);
    } else if (ticket < 50) {
        // A size without blocks: mostly kilobytes, now and then gigabytes.
        const std::uint64_t bits = random.below(200) == 0 ? random.between(24, 30) : random.between(4, 17);
        size = random.between(std::uint64_t{1} << bits, (std::uint64_t{2} << bits) - 1);
        if (::ftruncate(file, static_cast<off_t>(size)) != 0)
            failCall(name);
    }
    ::close(file);
    totals.files += 1;
    totals.apparentBytes += size;
}

void fillFolder(int folder, std::uint64_t fileCount, Random& random, Totals& totals) {
    std::array<char, 256> room;
    std::array<char, 256> previous;
    previous[0] = '\0';
    for (std::uint64_t number = 0; number < fileCount; ++number) {
        const char* name = fileName(random, number, room);
        const std::uint64_t ticket = random.below(1000);
        if (ticket < 2 && previous[0] != '\0') {
            if (::linkat(folder, previous.data(), folder, name, 0) != 0)
                failCall(name);
            totals.files += 1;
            continue;
        }
        if (ticket < 6) {
            if (::symlinkat("../target", folder, name) != 0)
                failCall(name);
            totals.files += 1;
            totals.apparentBytes += 9;
            continue;
        }
        makeFile(folder, name, random, totals);
        previous = room;
    }
}

std::string folderName(std::uint64_t seed, std::uint32_t number, bool isShort) {
    // The number is the folder's own, so siblings differ; files never end in "~" and digits.
    Random random(seed * 0xD1B54A32D192ED03u + number);
    const std::string_view word = folderWords[random.below(folderWords.size())];
    return (isShort ? std::string("d") : std::string(word)) + "~" + std::to_string(number);
}

Totals writeTree(const Plan& plan, const std::string& path, std::uint64_t seed) {
    const std::size_t count = plan.folderCount();
    constexpr std::uint32_t none = ~std::uint32_t{0};
    std::vector<std::uint32_t> firstChild(count, none);
    std::vector<std::uint32_t> nextSibling(count, none);
    for (std::size_t index = count; --index > 0;) {
        nextSibling[index] = firstChild[plan.parents[index]];
        firstChild[plan.parents[index]] = static_cast<std::uint32_t>(index);
    }

    Totals totals;
    if (::mkdir(path.c_str(), 0755) != 0)
        failCall(path);
    int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        failCall(path);
    const auto move = [&](const char* name) {
        const int next = ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0)
            failCall(name);
        ::close(folder);
        folder = next;
    };
    const auto fill = [&](std::uint32_t number) {
        Random random((seed << 32) ^ number);
        fillFolder(folder, plan.fileCounts[number], random, totals);
        totals.folders += 1;
    };
    fill(0);
    std::uint32_t current = 0;
    std::uint32_t child = firstChild[0];
    for (;;) {
        if (child != none) {
            // In a chain, short names keep the path within what other walkers can handle.
            const bool isOnlyChild = nextSibling[child] == none && firstChild[current] == child;
            const std::string name = folderName(seed, child, isOnlyChild);
            if (::mkdirat(folder, name.c_str(), 0755) != 0)
                failCall(name);
            move(name.c_str());
            fill(child);
            current = child;
            child = firstChild[current];
        } else if (current != 0) {
            move("..");
            child = nextSibling[current];
            current = plan.parents[current];
        } else {
            break;
        }
    }
    ::close(folder);
    return totals;
}

int run(int count, char** values) {
    std::uint64_t files = 1'000'000;
    std::uint64_t folders = 0;
    std::uint64_t seed = 1;
    std::uint64_t flat = 0;
    std::uint64_t thin = 0;
    std::uint64_t chain = 0;
    const std::string path = parseArguments(count, values,
                                            {{"--files", &files},
                                             {"--folders", &folders},
                                             {"--seed", &seed},
                                             {"--flat", &flat},
                                             {"--thin", &thin},
                                             {"--chain", &chain}},
                                            usage);
    if (folders == 0)
        folders = std::max<std::uint64_t>(1, files * 36'687 / 1'000'000);
    const Plan plan = flat    ? flatPlan(flat)
                      : thin  ? thinPlan(thin)
                      : chain ? chainPlan(chain)
                              : mixedPlan(files, folders, seed);
    const Totals totals = writeTree(plan, path, seed);
    std::printf("%llu files in %llu folders, %llu bytes\n", static_cast<unsigned long long>(totals.files),
                static_cast<unsigned long long>(totals.folders),
                static_cast<unsigned long long>(totals.apparentBytes));
    return 0;
}

} // namespace
} // namespace tarnwell::benchmarks

int main(int count, char** values) {
    return tarnwell::benchmarks::run(count, values);
}
