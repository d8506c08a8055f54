#pragma once

// The index that the system keeps of what files contain and say of themselves. On Linux there is none that
// every desktop has: the answer says so.

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

struct SystemIndexQuery {
    /// In the index's own language, such as `kMDItemTextContent == "*tax*"cd`.
    std::string expression;
    /// An absolute path: what lies below it is searched.
    std::string folder;
    /// At most so many paths.
    std::size_t limit = 100'000;
    /// Seconds; what has been found until then is the answer.
    double timeLimit = 30;
};

struct SystemIndexFailure {
    enum class Kind : std::uint8_t {
        unavailable, ///< the system keeps no index
        invalid,     ///< the expression is none
        failed,      ///< the index did not answer
        cancelled,
    };
    Kind kind = Kind::unavailable;
    /// For the user.
    std::string message;

    bool operator==(const SystemIndexFailure&) const = default;
};

/// Full paths in no order. Blocks, asking `isCancelled` several times a second. Safe from any thread.
std::expected<std::vector<std::string>, SystemIndexFailure>
askSystemIndex(const SystemIndexQuery& query, const std::function<bool()>& isCancelled);

/// The expression for what contains these words or bears them in its name, without regard to case and marks.
std::string systemIndexExpression(std::string_view words);

} // namespace tarnwell
