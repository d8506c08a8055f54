#pragma once

// What became of one file whose local copy was to be removed, and why it was refused if it was.

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <variant>

namespace tarnwell {

struct EvictionRefusal {
    enum class Kind : std::uint8_t {
        notCloudManaged, ///< the reason is in `message`
        outsideSyncedRoot,
        directory,
        notRegularFile,
        dataless,
        notCurrent,
    };
    Kind kind;
    /// Empty but for `notCloudManaged`.
    std::string message = {};

    /// The reason for the user.
    std::string explanation() const;

    bool operator==(const EvictionRefusal&) const = default;
};

/// `url` is the URL as it was given.
struct EvictionEvicted {
    std::filesystem::path url;
    /// The allocated bytes of the copy that went.
    std::int64_t bytesFreed = 0;
    bool operator==(const EvictionEvicted&) const = default;
};

struct EvictionRefused {
    std::filesystem::path url;
    EvictionRefusal refusal;
    bool operator==(const EvictionRefused&) const = default;
};

struct EvictionFailed {
    std::filesystem::path url;
    /// For the user.
    std::string message;
    bool operator==(const EvictionFailed&) const = default;
};

using EvictionOutcome = std::variant<EvictionEvicted, EvictionRefused, EvictionFailed>;

/// Thrown by the functions of an EvictionService; `what()` is the description for the user.
class CloudEvictionError : public std::runtime_error {
public:
    enum class Kind : std::uint8_t { notManagedByFileProvider, fileProviderUnavailable };

    /// `message` becomes the explanation of the refusal; by default it is the description.
    static CloudEvictionError notManagedByFileProvider();
    static CloudEvictionError notManagedByFileProvider(std::string message);
    static CloudEvictionError fileProviderUnavailable();

    Kind kind() const noexcept { return kind_; }
    /// Empty for `fileProviderUnavailable`.
    const std::string& message() const noexcept { return message_; }

private:
    CloudEvictionError(Kind kind, const char* description, std::string message);

    Kind kind_;
    std::string message_;
};

} // namespace tarnwell
