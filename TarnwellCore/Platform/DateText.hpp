#pragma once

// Dates in the user's language, from the platform's formatters.

#include "TarnwellCore/Platform/Date.hpp"

#include <string>

namespace tarnwell {

/// A date relative to another in full words ("yesterday", "2 weeks ago"). Safe from any thread.
std::string localizedRelativeDate(Date date, Date reference);

/// A date in the medium date style and the short time style. Safe from any thread.
std::string localizedMediumDate(Date date);

} // namespace tarnwell
