#pragma once

// The services that keep folders of the user's in step with a cloud.

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwell {

enum class CloudProvider : std::uint8_t {
    iCloudDrive,
    dropbox,
    oneDrive,
    googleDrive,
    other,
};

/// Every provider in the order of the cases.
inline constexpr std::array allCloudProviders{CloudProvider::iCloudDrive, CloudProvider::dropbox,
                                              CloudProvider::oneDrive, CloudProvider::googleDrive,
                                              CloudProvider::other};

/// The name under which a provider is stored, equal to its case.
std::string_view rawValue(CloudProvider provider);

/// The provider of exactly this raw value.
std::optional<CloudProvider> cloudProviderFromRawValue(std::string_view text);

/// The provider's name as the user sees it.
std::string_view displayName(CloudProvider provider);

/// The provider of a folder in the place where the platform keeps the folders of cloud services, by the
/// folder's name; letter case does not count.
CloudProvider cloudProviderOfFolder(std::string_view name);

} // namespace tarnwell
