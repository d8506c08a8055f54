#pragma once

// One cleanup rule as JSON: an object whose keys are the field names. Every key but "id" and "name" may be
// missing or null. Lists of rules are read by CleanupRule::rules, which leaves bad elements out; this is
// for callers who want to know why a rule cannot be read.

#include "TarnwellCore/Analysis/CleanupRule.hpp"

#include <stdexcept>
#include <string_view>

namespace tarnwell {

/// Stored data that does not hold what it should. `what()` is the description for the user.
class DataCorruptionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads one rule. Throws DataCorruptionError: without an id or a name, for a value of another type than
/// the field's, for a category that does not exist, for what is not JSON. Values are taken as they stand,
/// without normalisation.
CleanupRule decodeCleanupRule(std::string_view json);

} // namespace tarnwell
