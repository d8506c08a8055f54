#include "TarnwellCLIKit/CLIListing.hpp"

namespace tarnwell {

bool CLIListedNode::operator==(const CLIListedNode& other) const {
    if (share != other.share || selected != other.selected || depth != other.depth)
        return false;
    if (node == other.node)
        return true;
    return isDirectory() == other.isDirectory() && size() == other.size() &&
           allocatedSize() == other.allocatedSize() && reclaimableSize() == other.reclaimableSize() &&
           name() == other.name() && path() == other.path();
}

} // namespace tarnwell
