#include "TarnwellCore/Actions/CloudProvider.hpp"

#include "TarnwellCore/Platform/LetterCase.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <string>

namespace tarnwell {

std::string_view rawValue(CloudProvider provider) {
    switch (provider) {
    case CloudProvider::iCloudDrive:
        return "iCloudDrive";
    case CloudProvider::dropbox:
        return "dropbox";
    case CloudProvider::oneDrive:
        return "oneDrive";
    case CloudProvider::googleDrive:
        return "googleDrive";
    case CloudProvider::other:
        return "other";
    }
    return "other";
}

std::optional<CloudProvider> cloudProviderFromRawValue(std::string_view text) {
    for (const CloudProvider provider : allCloudProviders)
        if (rawValue(provider) == text)
            return provider;
    return std::nullopt;
}

std::string_view displayName(CloudProvider provider) {
    switch (provider) {
    case CloudProvider::iCloudDrive:
        return "iCloud Drive";
    case CloudProvider::dropbox:
        return "Dropbox";
    case CloudProvider::oneDrive:
        return "OneDrive";
    case CloudProvider::googleDrive:
        return "Google Drive";
    case CloudProvider::other:
        return "File Provider";
    }
    return "File Provider";
}

CloudProvider cloudProviderOfFolder(std::string_view name) {
    const std::string lower = lowerCased(repairedUTF8(name));
    if (lower.starts_with("dropbox"))
        return CloudProvider::dropbox;
    if (lower.starts_with("onedrive"))
        return CloudProvider::oneDrive;
    if (lower.starts_with("googledrive"))
        return CloudProvider::googleDrive;
    return CloudProvider::other;
}

} // namespace tarnwell
