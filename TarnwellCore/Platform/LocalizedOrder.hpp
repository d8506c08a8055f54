#pragma once

// The order in which the platform's file manager sorts names.

#include <string_view>

namespace tarnwell {

/// Less than, equal to or greater than 0 as `left` comes before, with or after `right` in the user's
/// language, with digits compared by their numbers ("Disk 2" before "Disk 10"). Both are valid UTF-8. Safe
/// from any thread.
int compareInLocalizedOrder(std::string_view left, std::string_view right);

} // namespace tarnwell
