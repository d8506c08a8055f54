#include "TarnwellTidyKit/Browser/LiveTreeSource.hpp"

#include <utility>

namespace tarnwell {

namespace {

/// Folders first, then files, as the page has them. Of nodes that are still written only that is asked which
/// never changes.
class LiveEntries final : public BrowserEntries {
public:
    explicit LiveEntries(LivePage page) : page_(std::move(page)) {}

    std::size_t count() const override { return page_.folders.size() + page_.files->size(); }
    BrowserEntry at(std::uint32_t index) const override {
        if (index < page_.folders.size())
            return entry(page_.folders[index]);
        const LiveFile& file = (*page_.files)[index - page_.folders.size()];
        const FileNode& node = *file.node;
        return {.name = node.name(),
                .size = node.size,
                .allocatedSize = node.allocatedSize,
                .reclaimableSize = node.reclaimableSize,
                .fileCount = 1,
                .modificationSeconds = node.modificationSeconds,
                .flags = file.flags,
                .category = node.category,
                .sharesBlocks = node.sharesBlocksWithClones(),
                .reportsPrivateSize = node.reportsPrivateSize,
                .isPending = true,
                .node = &node};
    }
    const FileNode* nodeAt(std::uint32_t index) const override {
        return index < page_.folders.size() ? page_.folders[index].node
                                            : (*page_.files)[index - page_.folders.size()].node;
    }
    BrowserEntry folder() const override { return entry(page_.folder); }
    std::int64_t unreadableSoFar() const override { return page_.unreadableCount; }

private:
    static BrowserEntry entry(const LiveFolder& folder) {
        return {.name = folder.node->name(),
                .size = folder.sizeFor(SizeMode::apparent),
                .allocatedSize = folder.sizeFor(SizeMode::allocated),
                .reclaimableSize = folder.sizeFor(SizeMode::reclaimable),
                .fileCount = folder.fileCount,
                .directoryCount = folder.directoryCount,
                .modificationSeconds = folder.node->modificationSeconds,
                .flags = folder.flags,
                .category = folder.node->category,
                .isDirectory = true,
                .isPending = !folder.isComplete,
                .node = folder.node};
    }

    LivePage page_;
};

} // namespace

std::shared_ptr<const BrowserEntries> LiveTreeSource::look(const FileNode* folder) const {
    std::optional<LivePage> page = folder == nullptr ? tree_->look() : tree_->look(*folder);
    return page ? std::make_shared<const LiveEntries>(*std::move(page)) : nullptr;
}

} // namespace tarnwell
