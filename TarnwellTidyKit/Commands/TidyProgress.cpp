#include "TarnwellTidyKit/Commands/TidyProgress.hpp"

#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <cstdint>
#include <string>

namespace tarnwell {

DiskScanner::ProgressHandler TidyProgress::handler() const {
    if (!surroundings_.status)
        return nullptr;
    return [&surroundings = surroundings_](const ScanProgress& progress) {
        const double seconds = progress.elapsed > 0.001 ? progress.elapsed : 0.001;
        const auto rate = static_cast<std::int64_t>(static_cast<double>(progress.fileCount) / seconds);
        std::string line = countedText(progress.fileCount, "file", "files") + "  " +
                           sizeText(progress.allocatedBytesScanned) + "  " + groupedNumber(rate) +
                           " files/s  ";
        // The last column stays free: some terminals go to the next line there.
        const std::size_t used = displayWidth(line) + 1;
        if (surroundings.errorColumns > used)
            line += fitted(progress.currentPath, surroundings.errorColumns - used, Cut::start);
        surroundings.status(fitted(line, surroundings.errorColumns > 1 ? surroundings.errorColumns - 1 : 1));
    };
}

void TidyProgress::show(std::string_view text) const {
    if (surroundings_.status)
        surroundings_.status(
            fitted(text, surroundings_.errorColumns > 1 ? surroundings_.errorColumns - 1 : 1));
}

void TidyProgress::clear() const {
    if (surroundings_.status)
        surroundings_.status({});
}

} // namespace tarnwell
