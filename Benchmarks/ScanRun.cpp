// scan-run: one scan by the library alone, with any number of workers, keeping the tree or only measuring,
// and what it took: entries, wall seconds, processor seconds, voluntary and forced context switches.

#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "Benchmarks/Arguments.hpp"

namespace {

constexpr std::string_view usage =
    "usage: scan-run [--workers N] [--measure 0|1] FOLDER\n"
    "Scans FOLDER with N workers (as many as the library chooses); with --measure 1 no tree is kept.\n";

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

} // namespace

int main(int count, char** values) {
    std::uint64_t workers = 0;
    std::uint64_t measuresOnly = 0;
    const std::string path = tarnwell::benchmarks::parseArguments(
        count, values, {{"--workers", &workers}, {"--measure", &measuresOnly}}, usage);
    tarnwell::ScanOptions options;
    if (workers > 0)
        options.workerCount = static_cast<int>(workers);
    try {
        const tarnwell::ScanResult result = tarnwell::ScanEngine(path, options, measuresOnly == 0).run();
        const std::int64_t entryCount = result.stats.fileCount + result.stats.directoryCount;
        rusage used = {};
        ::getrusage(RUSAGE_SELF, &used);
        std::printf("%lld entries, %.4f s, %.4f s of processor time, %ld voluntary and %ld forced switches\n",
                    static_cast<long long>(entryCount), result.duration,
                    seconds(used.ru_utime) + seconds(used.ru_stime), used.ru_nvcsw, used.ru_nivcsw);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
