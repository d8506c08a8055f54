#include "TarnwellCore/Analysis/DuplicateFinder.hpp"

#include "TarnwellCore/Analysis/DuplicateSearch.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Scanning/ProgressPoller.hpp"

#include <optional>
#include <utility>

namespace tarnwell {

DuplicateFinder::DuplicateFinder()
    : measure([](int folder, const char* name) { return measureFile(folder, name); }),
      open(openMeasuredFile),
      read([](ContentReader& reader, int file, std::int64_t length, const ContentReader::Taker& take) {
          return reader.read(file, length, take);
      }),
      readOn([](ContentReader& reader, int) { return reader.next(); }),
      layoutOfSharedBlocks(tarnwell::layoutOfSharedBlocks) {}

std::future<DuplicateResult> DuplicateFinder::find(std::vector<std::shared_ptr<const FileNode>> roots,
                                                   DuplicateOptions options, ProgressHandler progress,
                                                   CancellationToken token) const {
    return runInBackground(
        [finder = *this, roots = std::move(roots), options, progress = std::move(progress), token]() mutable {
            DuplicateSearch search(finder, options);
            const auto registration = token.onCancel([&] { search.cancel(); });
            std::optional<ProgressPoller> poller;
            if (progress)
                poller.emplace(options.progressInterval, [&] { progress(search.progress()); });
            DuplicateResult result = search.run(std::move(roots));
            if (poller) {
                poller->finish();
                DuplicateProgress last = search.progress();
                last.groupCount = static_cast<std::int64_t>(result.groups.size());
                last.bytesToRead = last.bytesRead;
                last.elapsed = result.totals.duration;
                last.isFinished = true;
                progress(last);
            }
            return result;
        });
}

} // namespace tarnwell
