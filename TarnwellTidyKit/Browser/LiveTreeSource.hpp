#pragma once

// A scan under way, as the browser looks at it.

#include "TarnwellCore/Scanning/LiveTree.hpp"
#include "TarnwellTidyKit/Browser/LiveEntries.hpp"

#include <memory>
#include <utility>

namespace tarnwell {

class LiveTreeSource final : public LiveSource {
public:
    explicit LiveTreeSource(std::shared_ptr<const LiveTree> tree) : tree_(std::move(tree)) {}
    std::shared_ptr<const BrowserEntries> look(const FileNode* folder) const override;

private:
    std::shared_ptr<const LiveTree> tree_;
};

} // namespace tarnwell
