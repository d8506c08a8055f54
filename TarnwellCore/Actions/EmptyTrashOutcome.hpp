#pragma once

// How emptying the Trash ended.

#include <string>
#include <variant>

namespace tarnwell {

/// The message is for the user.
struct EmptyTrashFailed {
    std::string message;
    bool operator==(const EmptyTrashFailed&) const = default;
};

struct EmptyTrashEmptied {
    bool operator==(const EmptyTrashEmptied&) const = default;
};

struct EmptyTrashTimedOut {
    bool operator==(const EmptyTrashTimedOut&) const = default;
};

using EmptyTrashOutcome = std::variant<EmptyTrashFailed, EmptyTrashEmptied, EmptyTrashTimedOut>;

} // namespace tarnwell
