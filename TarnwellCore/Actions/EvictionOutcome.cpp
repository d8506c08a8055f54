#include "TarnwellCore/Actions/EvictionOutcome.hpp"

#include <utility>

namespace tarnwell {

namespace {

constexpr const char* notManagedText = "This file is not managed by a File Provider.";
constexpr const char* unavailableText = "File Provider is not available for this file.";

} // namespace

std::string EvictionRefusal::explanation() const {
    switch (kind) {
    case Kind::notCloudManaged:
        return message;
    case Kind::outsideSyncedRoot:
        return "It is not in a synced folder.";
    case Kind::directory:
        return "A folder cannot have its download removed as one item.";
    case Kind::notRegularFile:
        return "Only a regular file can have its download removed.";
    case Kind::dataless:
        return "There is no local copy to free.";
    case Kind::notCurrent:
        return "The local copy is not the current download.";
    }
    return message;
}

CloudEvictionError::CloudEvictionError(Kind kind, const char* description, std::string message)
    : std::runtime_error(description), kind_(kind), message_(std::move(message)) {}

CloudEvictionError CloudEvictionError::notManagedByFileProvider() {
    return notManagedByFileProvider(notManagedText);
}

CloudEvictionError CloudEvictionError::notManagedByFileProvider(std::string message) {
    return {Kind::notManagedByFileProvider, notManagedText, std::move(message)};
}

CloudEvictionError CloudEvictionError::fileProviderUnavailable() {
    return {Kind::fileProviderUnavailable, unavailableText, {}};
}

} // namespace tarnwell
