#pragma once

// Recognising installers of the same application by their file names.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// What an installer's file name says.
struct InstallerName {
    /// The application: lower case, without version numbers, platform, processor and words such as
    /// "setup", the rest joined by single blanks.
    std::string stem;
    /// The first version number in the name, most significant part first; empty when there is none.
    std::vector<std::uint64_t> version;
    /// The platform and processor that the name tells, in its order; two installers of one version that
    /// differ in this do not replace each other.
    std::string variant;
};

/// Whether a file of this name installs software, by its extension.
bool isInstaller(std::string_view name);

/// Takes a file name apart. A name of nothing but numbers and such words is its own stem.
InstallerName installerName(std::string_view name);

/// The stem alone: "App-1.2.3.dmg", "App 2.0 (1).dmg" and "App_v3-arm64.pkg" all give "app".
std::string installerStem(std::string_view name);

} // namespace tarnwell
