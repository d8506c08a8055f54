// Scans a folder. On a terminal one line shows how far the scan is; Control-C calls it off.

#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

using namespace tarnwell;

namespace {

constexpr std::string_view usage = "usage: scan-progress FOLDER\n";

// All that a signal handler may do is to leave a note. The second signal of a kind ends the program at once.
std::atomic<int> caughtSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void noteSignal(int signal) {
    caughtSignal = signal;
}

void catchOnce(int signal) {
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    ::sigaction(signal, &action, nullptr);
}

/// Replaces the line that the cursor is in. The terminal cuts what is too long, because wrapping is off while
/// the line is written; no setting of the terminal outlives the call.
void showLine(std::string_view text) {
    std::cout << "\r\033[?7l" << text << "\033[K\033[?7h" << std::flush;
}

std::string describe(const ScanProgress& progress) {
    return std::to_string(progress.fileCount) + " files, " +
           ByteFormatter::string(progress.allocatedBytesScanned, "0 bytes") + "  " +
           harmless(progress.currentPath);
}

/// What the root holds, and its five largest children; all sizes are allocated ones.
void printTotals(const ScanResult& scan, NameStyle style) {
    const ScanStats& stats = scan.stats;
    std::cout << styled(scan.root->path(), style) << ": "
              << ByteFormatter::string(stats.totalAllocatedSize, "0 bytes") << ", " << stats.fileCount
              << " files and " << stats.directoryCount << " folders in "
              << static_cast<int>(scan.duration * 1000) << " ms\n";
    if (stats.inaccessibleCount > 0)
        std::cout << stats.inaccessibleCount << " folders could not be read\n";
    const auto children = scan.root->children(); // by apparent size
    std::vector<const FileNode*> largest(std::min<std::size_t>(children.size(), 5));
    std::ranges::partial_sort_copy(children, largest, std::greater<>(), &FileNode::allocatedSize,
                                   &FileNode::allocatedSize);
    for (const FileNode* child : largest)
        std::cout << ByteFormatter::string(child->allocatedSize, "0 bytes") << "  "
                  << styled(child->name(), style) << '\n';
}

} // namespace

int main(int count, char** arguments) {
    const std::string_view folder = count == 2 ? arguments[1] : "";
    if (folder == "--help") {
        std::cout << usage;
        return 0;
    }
    if (folder.empty() || folder.starts_with('-')) {
        std::cerr << usage;
        return 2;
    }
    catchOnce(SIGINT);
    catchOnce(SIGTERM);

    const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    const auto session = DiskScanner().session(folder);
    while (const auto progress = session->progress().next()) {
        if (caughtSignal != 0)
            session->cancel();
        else if (isTerminal)
            showLine(describe(*progress));
    }
    if (isTerminal)
        showLine("");
    try {
        printTotals(session->result(), nameStyle(isTerminal));
        return 0;
    } catch (const ScanError& error) {
        std::cerr << styled(error.what(), nameStyle(::isatty(STDERR_FILENO) == 1)) << '\n';
        return error.kind() == ScanError::Kind::cancelled ? 128 + caughtSignal : 1;
    }
}
