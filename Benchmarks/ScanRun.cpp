// scan-run: one scan by the library alone, with any number of workers, keeping the tree or only measuring,
// and what it took: entries, wall seconds, processor seconds, voluntary and forced context switches.

#include "TarnwellCore/Scanning/LiveTree.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "Benchmarks/Arguments.hpp"

namespace {

constexpr std::string_view usage =
    "usage: scan-run [--workers N] [--measure 0|1] [--sharing 0|1] [--looks N] FOLDER\n"
    "Scans FOLDER with N workers (as many as the library chooses); with --measure 1 no tree is kept; with "
    "--sharing 0\n"
    "nothing of what files share; with --looks N somebody looks at the tree N times a second meanwhile.\n";

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

} // namespace

int main(int count, char** values) {
    std::uint64_t workers = 0;
    std::uint64_t measuresOnly = 0;
    std::uint64_t keepsSharing = 1;
    std::uint64_t looks = 0;
    const std::string path = tarnwell::benchmarks::parseArguments(count, values,
                                                                  {{"--workers", &workers},
                                                                   {"--measure", &measuresOnly},
                                                                   {"--sharing", &keepsSharing},
                                                                   {"--looks", &looks}},
                                                                  usage);
    tarnwell::ScanOptions options;
    if (workers > 0)
        options.workerCount = static_cast<int>(workers);
    options.keepsSharing = keepsSharing != 0;
    try {
        tarnwell::ScanEngine engine(path, options, measuresOnly == 0);
        const auto live = looks > 0 ? std::make_shared<tarnwell::LiveTree>() : nullptr;
        engine.show(live);
        std::thread viewer([&] {
            while (live != nullptr && live->state() < tarnwell::LiveState::finished) {
                const auto page = live->look();
                if (page && !page->folders.empty())
                    live->look(*page->folders.front().node);
                std::this_thread::sleep_for(std::chrono::microseconds(1'000'000 / looks));
            }
        });
        const auto joined = [&] {
            struct Joiner {
                std::thread& thread;
                ~Joiner() { thread.join(); }
            } const joiner{viewer}; // a scan that fails ends what is looked at, too
            return engine.run();
        };
        const tarnwell::ScanResult result = joined();
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
