#include "TarnwellCLIKit/CLIRender.hpp"

#include "TarnwellCore/Scanning/ByteFormatter.hpp"

#include <algorithm>
#include <string_view>

namespace tarnwell::CLIRender {

namespace {

/// A child with its size read once: a comparison would otherwise fetch two nodes from all over the memory.
struct SortedChild {
    std::int64_t selected;
    const FileNode* node;
    std::size_t position;
};

bool precedes(const SortedChild& a, const SortedChild& b) {
    if (a.selected != b.selected)
        return a.selected > b.selected;
    if (const int order = a.node->name().compare(b.node->name()); order != 0)
        return order < 0;
    return a.position < b.position;
}

/// Chooses and orders the children of one folder at a time; keeps its memory between folders.
class ChildSelection {
public:
    ChildSelection(SizeMode mode, std::optional<std::int64_t> top)
        : mode_(mode), top_(static_cast<std::uint64_t>(top ? std::max<std::int64_t>(*top, 0) : -1)) {}

    /// Appends the rows for the children of `folder`, the last one first.
    void appendReversed(std::vector<CLIListedNode>& rows, const FileNode& folder, std::int64_t depth) {
        const std::size_t kept = sortChildren(folder);
        const std::int64_t total = folder.sizeFor(mode_);
        for (std::size_t index = kept; index-- > 0;) {
            const SortedChild& child = sorted_[index];
            const double share =
                total < 1 ? 0 : static_cast<double>(child.selected) / static_cast<double>(total);
            rows.push_back({child.node, share, child.selected, depth});
        }
    }

private:
    std::size_t sortChildren(const FileNode& folder) {
        const auto children = folder.children();
        const auto kept = static_cast<std::size_t>(std::min<std::uint64_t>(children.size(), top_));
        sorted_.clear();
        if (kept == 0)
            return 0;
        bool isSorted = true; // as it is after a scan when the mode is the apparent size
        for (const FileNode* child : children) {
            sorted_.push_back({child->sizeFor(mode_), child, sorted_.size()});
            isSorted =
                isSorted && (sorted_.size() == 1 || precedes(sorted_[sorted_.size() - 2], sorted_.back()));
        }
        if (!isSorted)
            std::partial_sort(sorted_.begin(), sorted_.begin() + static_cast<std::ptrdiff_t>(kept),
                              sorted_.end(), precedes);
        return kept;
    }

    SizeMode mode_;
    /// The largest number for no limit.
    std::uint64_t top_;
    std::vector<SortedChild> sorted_;
};

/// Bytes of a line beside the name and the indent, at most: "-999 bytes", "100.0%", blanks, line feed.
constexpr std::size_t longestLineFrame = 10 + 2 + 6 + 2 + 1;

std::size_t indentOf(const CLIListedNode& row) {
    return row.depth > 0 ? static_cast<std::size_t>(row.depth) * 2 : 0;
}

std::string sizeText(std::int64_t bytes) {
    return ByteFormatter::string(bytes, "0 bytes");
}

constexpr std::string_view totalEnd = "  total\n";

std::size_t longestText(const CLIListedScan& scan) {
    std::size_t longest = longestLineFrame + totalEnd.size();
    for (const CLIListedNode& row : scan.children)
        longest += longestLineFrame + indentOf(row) + row.name().size();
    return longest;
}

std::string writeText(const CLIListedScan& scan, TextOutput output) {
    output.reserve([&] { return longestText(scan); });
    std::string& text = output.text();
    for (const CLIListedNode& row : scan.children) {
        text += sizeText(row.selected);
        text += "  ";
        text += ByteFormatter::percent(row.share, 1);
        text.append(2 + indentOf(row), ' ');
        text += row.name();
        text += '\n';
        output.endPart();
    }
    text += sizeText(scan.selectedTotal);
    text += totalEnd;
    return output.finish();
}

} // namespace

std::vector<CLIListedNode> children(const FileNode& of, SizeMode mode, std::int64_t depthRemaining,
                                    std::optional<std::int64_t> top, std::int64_t level) {
    std::vector<CLIListedNode> listed;
    if (depthRemaining < 1)
        return listed;
    if (depthRemaining > 1 && !top) // else most of the tree may not be listed
        listed.reserve(static_cast<std::size_t>(of.fileCount) + static_cast<std::size_t>(of.directoryCount));
    ChildSelection selection(mode, top);
    std::vector<CLIListedNode> pending; // the next row last
    selection.appendReversed(pending, of, level);
    while (!pending.empty()) {
        const CLIListedNode row = pending.back();
        pending.pop_back();
        listed.push_back(row);
        const std::int64_t levelsListed = row.depth - level + 1;
        if (levelsListed < depthRemaining)
            selection.appendReversed(pending, *row.node, row.depth + 1);
    }
    return listed;
}

CLIListedScan listedScan(const FileNode& root, SizeMode mode, std::int64_t depth,
                         std::optional<std::int64_t> top) {
    CLIListedScan scan;
    scan.path = root.path();
    scan.mode = mode;
    scan.totalSize = root.size;
    scan.totalAllocatedSize = root.allocatedSize;
    scan.totalReclaimableSize = root.reclaimableSize;
    scan.selectedTotal = root.sizeFor(mode);
    scan.children = children(root, mode, depth, top, 0);
    return scan;
}

std::string human(const CLIListedScan& scan) {
    return writeText(scan, TextOutput());
}

void human(const CLIListedScan& scan, const TextSink& sink) {
    writeText(scan, TextOutput(sink));
}

std::string humanListing(const FileNode& root, SizeMode mode, std::int64_t depth,
                         std::optional<std::int64_t> top) {
    return human(listedScan(root, mode, depth, top));
}

} // namespace tarnwell::CLIRender
