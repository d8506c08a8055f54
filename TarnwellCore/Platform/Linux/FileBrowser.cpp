#include "TarnwellCore/Platform/FileBrowser.hpp"

#include <gio/gio.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <system_error>

namespace tarnwell {

namespace {

struct Free {
    void operator()(void* memory) const { g_free(memory); }
};

bool hasDesktop() {
    for (const char* variable : {"WAYLAND_DISPLAY", "DISPLAY"})
        if (const char* value = std::getenv(variable); value != nullptr && *value != '\0')
            return true;
    return false;
}

bool launch(const std::filesystem::path& item) {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(item, error);
    if (error || !hasDesktop())
        return false;
    const std::unique_ptr<gchar, Free> uri(g_filename_to_uri(path.c_str(), nullptr, nullptr));
    return uri != nullptr && g_app_info_launch_default_for_uri(uri.get(), nullptr, nullptr) != FALSE;
}

} // namespace

bool revealItem(const std::filesystem::path& item) {
    std::error_code error;
    const bool isFolder = std::filesystem::is_directory(item, error);
    return launch(isFolder ? item : item.parent_path());
}

bool openItem(const std::filesystem::path& item) {
    return launch(item);
}

} // namespace tarnwell
