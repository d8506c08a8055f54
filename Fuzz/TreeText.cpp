#include "Fuzz/TreeText.hpp"

#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace tarnwell::fuzz {

TreeFromText readTree(TextInput& input, std::string_view rootPath) {
    FileTreeBuilder builder(rootPath);
    RemovedNodes removed;
    std::vector<FileNode*> folders{&builder.root()}; // those that may get further items, from the root down
    while (!input.isAtEnd()) {
        TextInput item(input.take('/'));
        const std::string_view place = item.take(' ');
        const std::int64_t level = TextInput(place).takeInteger();
        FileNodeAttributes attributes;
        attributes.size = item.takeInteger();
        attributes.allocatedSize = item.takeInteger();
        const std::int64_t reclaimableSize = item.takeInteger();
        const std::string_view name = item.take('/');

        folders.resize(static_cast<std::size_t>(
            std::clamp<std::int64_t>(level, 1, static_cast<std::int64_t>(folders.size()))));
        const bool isFolder = place.find('d') != place.npos;
        FileNode& parent = *folders.back();
        FileNode& node = isFolder ? builder.addFolder(parent, name, attributes)
                                  : builder.addFile(parent, name, attributes);
        node.reclaimableSize = reclaimableSize;
        if (isFolder)
            folders.push_back(&node);
        if (place.find('x') != place.npos)
            removed.insert(node);
    }
    return {builder.finishWithoutAggregation(), std::move(removed)};
}

} // namespace tarnwell::fuzz
