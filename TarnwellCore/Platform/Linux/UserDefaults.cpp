#include "TarnwellCore/Platform/UserDefaults.hpp"

#include "TarnwellCore/Platform/JSONFileDefaults.hpp"
#include "TarnwellCore/Platform/Linux/ConfigurationFolder.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <cstdlib>
#include <filesystem>

namespace tarnwell {

std::filesystem::path configurationFolder() {
    // The base-directory rules have a relative path ignored.
    const char* folder = std::getenv("XDG_CONFIG_HOME");
    if (folder != nullptr && *folder == '/')
        return folder;
    return homeDirectory() / ".config";
}

std::shared_ptr<UserDefaults> UserDefaults::standard() {
    static const std::shared_ptr<UserDefaults> defaults = suite("com.tarnwell");
    return defaults;
}

std::shared_ptr<UserDefaults> UserDefaults::suite(const std::string& name) {
    return std::make_shared<JSONFileDefaults>(configurationFolder() / (name + ".json"));
}

} // namespace tarnwell
