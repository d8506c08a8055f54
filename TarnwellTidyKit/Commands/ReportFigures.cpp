#include "TarnwellTidyKit/Commands/ReportFigures.hpp"

#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"

#include <algorithm>

namespace tarnwell {

namespace {

/// The largest nodes met so far; memory stays with the limit.
class Largest {
public:
    Largest(std::size_t limit, SizeMode mode) : limit_(limit), mode_(mode) {}

    void offer(const FileNode& node) {
        const std::int64_t size = node.sizeFor(mode_);
        if (limit_ == 0 || size <= 0 || (best_.size() == limit_ && size < best_.front()->sizeFor(mode_)))
            return;
        const auto isLarger = [this](const FileNode* a, const FileNode* b) { return comesFirst(*a, *b); };
        if (best_.size() == limit_) {
            if (!comesFirst(node, *best_.front()))
                return;
            std::pop_heap(best_.begin(), best_.end(), isLarger);
            best_.pop_back();
        }
        best_.push_back(&node);
        std::push_heap(best_.begin(), best_.end(), isLarger);
    }

    std::vector<const FileNode*> take() {
        std::ranges::sort(best_, [this](const FileNode* a, const FileNode* b) { return comesFirst(*a, *b); });
        return std::move(best_);
    }

private:
    bool comesFirst(const FileNode& a, const FileNode& b) const {
        if (a.sizeFor(mode_) != b.sizeFor(mode_))
            return a.sizeFor(mode_) > b.sizeFor(mode_);
        return a.path() < b.path();
    }

    std::size_t limit_;
    SizeMode mode_;
    std::vector<const FileNode*> best_;
};

ReportAge ageOf(const FileNode& node, double now) {
    constexpr double day = 86'400;
    if (node.modificationSeconds == FileNode::missingTime)
        return ReportAge::unknown;
    const double seconds = now - node.modificationSeconds;
    return seconds < 30 * day    ? ReportAge::underMonth
           : seconds < 365 * day ? ReportAge::underYear
                                 : ReportAge::older;
}

class Gathering {
public:
    Gathering(SizeMode mode, std::size_t limit, Date now, const RemovedNodes& removed)
        : mode_(mode),
          now_(referenceSeconds(now)),
          removed_(removed),
          hasRemoved_(!removed.isEmpty()),
          files_(limit, mode),
          folders_(limit, mode) {}

    ReportFigures walk(const FileNode& root) {
        if (!root.isDirectory())
            addFile(root);
        else if (root.flags.contains(FileNodeFlags::collapsed))
            addCollapsed(root);
        else
            pending_.push_back(&root);
        while (!pending_.empty()) {
            const FileNode& folder = *pending_.back();
            pending_.pop_back();
            visit(folder);
            if (&folder != &root && !isToldByChild(folder))
                folders_.offer(folder);
        }
        figures_.largestFiles = files_.take();
        figures_.largestFolders = folders_.take();
        return std::move(figures_);
    }

private:
    void visit(const FileNode& folder) {
        constexpr FileNodeFlags uncounted = FileNodeFlags::hardlinkDuplicate | FileNodeFlags::inaccessible;
        for (const FileNode* child : folder.children()) {
            if (hasRemoved_ && removed_.contains(*child))
                continue;
            if (!child->isDirectory()) {
                if (!child->flags.intersects(uncounted))
                    addFile(*child);
            } else if (child->flags.contains(FileNodeFlags::collapsed)) {
                addCollapsed(*child);
                folders_.offer(*child);
            } else {
                pending_.push_back(child);
            }
        }
    }

    void addFile(const FileNode& file) {
        add(file, 1);
        files_.offer(file);
        if (file.includesSharedCloneBlocks) {
            ++figures_.cloneCount;
            if (file.allocatedSize > file.reclaimableSize)
                addChecked(figures_.cloneSharedBytes, file.allocatedSize - file.reclaimableSize);
        }
    }

    void addCollapsed(const FileNode& folder) { add(folder, folder.fileCount()); }

    void add(const FileNode& node, std::int64_t files) {
        figures_.categories[rawValue(node.category)].add(node, files);
        figures_.ages[static_cast<std::size_t>(ageOf(node, now_))].add(node, files);
    }

    bool isToldByChild(const FileNode& folder) const {
        const std::int64_t size = folder.sizeFor(mode_);
        return std::ranges::any_of(folder.children(), [&](const FileNode* child) {
            return child->isDirectory() && child->sizeFor(mode_) >= size - size / 5;
        });
    }

    SizeMode mode_;
    double now_;
    const RemovedNodes& removed_;
    bool hasRemoved_;
    Largest files_;
    Largest folders_;
    ReportFigures figures_;
    std::vector<const FileNode*> pending_;
};

} // namespace

std::int64_t FigureSum::sizeFor(SizeMode mode) const {
    switch (mode) {
    case SizeMode::apparent:
        return size;
    case SizeMode::allocated:
        return allocatedSize;
    case SizeMode::reclaimable:
        return reclaimableSize;
    }
    return size;
}

void FigureSum::add(const FileNode& node, std::int64_t files) {
    addChecked(size, node.size);
    addChecked(allocatedSize, node.allocatedSize);
    addChecked(reclaimableSize, node.reclaimableSize);
    addChecked(fileCount, files);
}

ReportFigures ReportFigures::of(const FileNode& root, SizeMode mode, std::size_t limit, Date now,
                                const RemovedNodes& removed) {
    return Gathering(mode, limit, now, removed).walk(root);
}

} // namespace tarnwell
