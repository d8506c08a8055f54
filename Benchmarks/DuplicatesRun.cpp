// duplicates-run: one search for duplicates by the library alone, and what it took; or the files to search.

#include "TarnwellCore/Analysis/DuplicateFinder.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Benchmarks/Arguments.hpp"

namespace {

constexpr std::string_view usage =
    "usage: duplicates-run [--minimum BYTES] [--workers N] [--list 0|1] FOLDER\n"
    "       duplicates-run --make FILES [--bytes BYTES] FOLDER\n"
    "Searches FOLDER for duplicates and prints what that took; with --list 1, the paths of each group and "
    "an\n"
    "empty line after it instead. Or makes FILES files of BYTES (1048576) there, a fifth of them in groups "
    "of\n"
    "two, three and five.\n";

using tarnwell::benchmarks::failCall;

void makeFiles(const std::string& folder, std::uint64_t count, std::uint64_t length) {
    std::mt19937_64 random(count);
    std::vector<std::uint64_t> words(length / sizeof(std::uint64_t));
    ::mkdir(folder.c_str(), 0755);
    for (std::uint64_t number = 0; number < count; ++number) {
        // Of fifty files, the first ten are three contents; copies lie far apart.
        constexpr bool isNew[] = {true, false, true, false, false, true, false, false, false, false};
        const std::uint64_t kind = number / (count / 50 > 0 ? count / 50 : 1);
        const std::uint64_t group = number % (count / 50 > 0 ? count / 50 : 1);
        std::uint64_t content = kind;
        while (content < 10 && !isNew[content])
            --content;
        random.seed(content * count + group);
        for (std::uint64_t& word : words)
            word = random();
        const std::string subfolder = folder + "/" + std::to_string(number % 100);
        ::mkdir(subfolder.c_str(), 0755);
        const std::string path = subfolder + "/" + std::to_string(number);
        const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (file < 0 || ::write(file, words.data(), words.size() * sizeof(std::uint64_t)) !=
                            static_cast<ssize_t>(words.size() * sizeof(std::uint64_t)))
            failCall(path);
        ::close(file);
    }
}

} // namespace

int main(int count, char** values) {
    std::uint64_t minimum = 1, workers = 0, list = 0, files = 0, bytes = 1 << 20;
    const std::string path = tarnwell::benchmarks::parseArguments(count, values,
                                                                  {{"--minimum", &minimum},
                                                                   {"--workers", &workers},
                                                                   {"--list", &list},
                                                                   {"--make", &files},
                                                                   {"--bytes", &bytes}},
                                                                  usage);
    if (files > 0) {
        makeFiles(path, files, bytes);
        return 0;
    }
    try {
        const tarnwell::ScanResult scan = tarnwell::DiskScanner().scan(path).get();
        const tarnwell::DuplicateResult result =
            tarnwell::DuplicateFinder()
                .find({scan.root}, {.minimumSize = static_cast<std::int64_t>(minimum),
                                    .workerCount = static_cast<int>(workers)})
                .get();
        if (list != 0) {
            for (const tarnwell::DuplicateGroup& group : result.groups) {
                for (const tarnwell::DuplicateMember& member : group.members)
                    std::puts(member.node->path().c_str());
                std::puts("");
            }
            return 0;
        }
        std::printf("%zu groups, %lld bytes read, scan %.4f s, search %.4f s\n", result.groups.size(),
                    static_cast<long long>(result.totals.bytesRead), scan.duration, result.totals.duration);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
