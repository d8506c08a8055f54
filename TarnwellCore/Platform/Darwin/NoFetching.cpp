#include "TarnwellCore/Platform/NoFetching.hpp"

#include <sys/resource.h>

namespace tarnwell {

// Threads come from a pool that the whole process shares, so each gets back the policy that it had.

NoFetching::NoFetching()
    : before_(::getiopolicy_np(IOPOL_TYPE_VFS_MATERIALIZE_DATALESS_FILES, IOPOL_SCOPE_THREAD)) {
    ::setiopolicy_np(IOPOL_TYPE_VFS_MATERIALIZE_DATALESS_FILES, IOPOL_SCOPE_THREAD,
                     IOPOL_MATERIALIZE_DATALESS_FILES_OFF);
}

NoFetching::~NoFetching() {
    if (before_ >= 0)
        ::setiopolicy_np(IOPOL_TYPE_VFS_MATERIALIZE_DATALESS_FILES, IOPOL_SCOPE_THREAD, before_);
}

} // namespace tarnwell
