#include "TarnwellCLIKit/CLIRender.hpp"

#include "TarnwellCLIKit/RowPieces.hpp"
#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Scanning/NodeFetch.hpp"
#include "TarnwellCore/Scanning/NodeRuns.hpp"
#include "TarnwellCore/Scanning/NodeSorter.hpp"

#include <algorithm>
#include <atomic>
#include <functional>
#include <iterator>
#include <limits>
#include <ranges>
#include <span>
#include <string_view>

namespace tarnwell::CLIRender {

namespace {

/// Chooses and orders the children of one folder at a time; keeps its memory between folders.
class ChildSelection {
public:
    ChildSelection(SizeMode mode, std::optional<std::int64_t> top)
        : mode_(mode), top_(static_cast<std::uint64_t>(top ? std::max<std::int64_t>(*top, 0) : -1)) {}

    /// Appends the rows for the children of `folder`: to `listed` where no row stands below any of them, to
    /// `pending` otherwise, the last one first.
    void append(std::vector<CLIListedNode>& listed, std::vector<CLIListedNode>& pending,
                const FileNode& folder, std::int64_t depth, bool isLastLevel) {
        const auto children = folder.children();
        const auto kept = static_cast<std::size_t>(std::min<std::uint64_t>(children.size(), top_));
        if (kept == 0)
            return;
        if (kept == children.size() && kept >= hugeFolder && threads_ > 1)
            return appendHuge(listed, pending, folder, depth, isLastLevel);
        const std::int64_t smallest = smallestKept(children, kept);
        if (kept == children.size())
            sorter_.reserve(kept);
        bool hasFolders = false;
        for (std::size_t index = 0; index < children.size(); ++index) {
            if (index + nodesAhead < children.size())
                fetchSoon(children[index + nodesAhead]);
            FileNode& child = *children[index];
            hasFolders = hasFolders || child.isDirectory();
            if (const std::int64_t size = child.sizeFor(mode_); size >= smallest)
                sorter_.add(child, size);
        }
        const auto sorted = sorter_.sorted().first(kept);
        const std::int64_t total = folder.sizeFor(mode_);
        const auto row = [&](const NodeSorter::Item& child) { return rowOf(child, total, depth); };
        if (isLastLevel || !hasFolders)
            std::ranges::transform(sorted, std::back_inserter(listed), row);
        else
            std::ranges::transform(sorted | std::views::reverse, std::back_inserter(pending), row);
        sorter_.clear();
    }

private:
    static CLIListedNode rowOf(const NodeSorter::Item& child, std::int64_t total, std::int64_t depth) {
        const double share = total < 1 ? 0 : static_cast<double>(child.size) / static_cast<double>(total);
        return {child.node, share, child.size, depth};
    }

    /// All children of a folder that is worth several threads.
    void appendHuge(std::vector<CLIListedNode>& listed, std::vector<CLIListedNode>& pending,
                    const FileNode& folder, std::int64_t depth, bool isLastLevel) {
        const auto children = folder.children();
        NodeRuns runs(mode_);
        runs.sort(children, threads_);
        const std::size_t before = listed.size();
        listed.resize(before + children.size());
        const std::span rows = std::span(listed).subspan(before);
        const std::int64_t total = folder.sizeFor(mode_);
        std::atomic<bool> hasFolders = false;
        runs.take(
            [&](std::size_t first, std::span<const NodeSorter::Item> items) {
                bool hasFolder = false;
                for (const NodeSorter::Item& item : items) {
                    hasFolder = hasFolder || item.node->isDirectory();
                    rows[first++] = rowOf(item, total, depth);
                }
                if (hasFolder)
                    hasFolders = true;
            },
            threads_);
        if (isLastLevel || !hasFolders)
            return;
        std::ranges::copy(rows | std::views::reverse, std::back_inserter(pending));
        listed.resize(before);
    }

    /// No smaller child is among the first `kept`: of a large folder, few need be ordered then.
    std::int64_t smallestKept(std::span<FileNode* const> children, std::size_t kept) {
        if (kept == children.size())
            return std::numeric_limits<std::int64_t>::min();
        sizes_.clear();
        for (const FileNode* child : children)
            sizes_.push_back(child->sizeFor(mode_));
        const auto last = sizes_.begin() + static_cast<std::ptrdiff_t>(kept - 1);
        std::nth_element(sizes_.begin(), last, sizes_.end(), std::greater<>());
        return *last;
    }

    /// Of children, from which on several threads put them in order.
    static constexpr std::size_t hugeFolder = 65'536;

    SizeMode mode_;
    /// The largest number for no limit.
    std::uint64_t top_;
    const int threads_ = activeProcessorCount();
    NodeSorter sorter_;
    std::vector<std::int64_t> sizes_;
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

std::size_t longestRows(std::span<const CLIListedNode> rows) {
    std::size_t longest = 0;
    for (const CLIListedNode& row : rows)
        longest += longestLineFrame + indentOf(row) + row.name().size();
    return longest;
}

void writeRows(TextOutput& output, std::span<const CLIListedNode> rows, NameStyle style) {
    std::string& text = output.text();
    for (const CLIListedNode& row : rows) {
        fetchNode(rows, row);
        text += sizeText(row.selected);
        text += "  ";
        text += ByteFormatter::percent(row.share, 1);
        text.append(2 + indentOf(row), ' ');
        appendStyled(text, row.name(), style);
        text += '\n';
        output.endPart();
    }
}

ListingParts textParts(const CLIListedScan& scan, NameStyle style) {
    const std::span<const CLIListedNode> rows = scan.children;
    return {.head = {},
            .tail = sizeText(scan.selectedTotal).append(totalEnd),
            .rowCount = rows.size(),
            .piece = [rows, style](std::size_t first, std::size_t last) -> RowPiece {
                return [piece = rows.subspan(first, last - first), style](TextOutput& output) {
                    writeRows(output, piece, style);
                };
            },
            .longest = [rows] { return longestRows(rows); }};
}

} // namespace

std::vector<CLIListedNode> children(const FileNode& of, SizeMode mode, std::int64_t depthRemaining,
                                    std::optional<std::int64_t> top, std::int64_t level) {
    std::vector<CLIListedNode> listed;
    if (depthRemaining < 1)
        return listed;
    if (!top) // else most of the tree may not be listed
        listed.reserve(depthRemaining == 1 ? of.children().size()
                                           : static_cast<std::size_t>(of.fileCount()) +
                                                 static_cast<std::size_t>(of.directoryCount()));
    ChildSelection selection(mode, top);
    std::vector<CLIListedNode> pending; // the next row last
    selection.append(listed, pending, of, level, depthRemaining == 1);
    while (!pending.empty()) {
        const CLIListedNode row = pending.back();
        pending.pop_back();
        listed.push_back(row);
        const std::int64_t levelsListed = row.depth - level + 1;
        if (levelsListed < depthRemaining)
            selection.append(listed, pending, *row.node, row.depth + 1, levelsListed + 1 == depthRemaining);
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

std::string human(const CLIListedScan& scan, NameStyle style) {
    return wholeListing(textParts(scan, style));
}

void human(const CLIListedScan& scan, const TextSink& sink, NameStyle style) {
    handOnListing(textParts(scan, style), sink);
}

std::string humanListing(const FileNode& root, SizeMode mode, std::int64_t depth,
                         std::optional<std::int64_t> top) {
    return human(listedScan(root, mode, depth, top));
}

} // namespace tarnwell::CLIRender
