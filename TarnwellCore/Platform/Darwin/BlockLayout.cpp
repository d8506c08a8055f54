#include "TarnwellCore/Platform/BlockLayout.hpp"

#include <sys/attr.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>

namespace tarnwell {

std::optional<BlockLayout> layoutOfSharedBlocks(int file) {
    attrlist request = {};
    request.bitmapcount = ATTR_BIT_MAP_COUNT;
    request.commonattr = ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_DEVID;
    request.forkattr = ATTR_CMNEXT_CLONEID | ATTR_CMNEXT_EXT_FLAGS; // extended, by the option below
    struct __attribute__((packed)) {
        std::uint32_t length;
        attribute_set_t returned;
        dev_t device;
        std::uint64_t cloneID;
        std::uint64_t extendedFlags;
    } answer = {};
    if (::fgetattrlist(file, &request, &answer, sizeof answer, FSOPT_ATTR_CMN_EXTENDED) != 0 ||
        answer.length < sizeof answer || (answer.returned.commonattr & ATTR_CMN_DEVID) == 0 ||
        (answer.returned.forkattr & request.forkattr) != request.forkattr ||
        (answer.extendedFlags & EF_SHARES_ALL_BLOCKS) == 0)
        return std::nullopt;
    return BlockLayout{{static_cast<std::uint64_t>(answer.device), answer.cloneID}};
}

} // namespace tarnwell
