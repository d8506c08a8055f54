#include "TarnwellCore/Actions/LeftoverPlaces.hpp"

#include "TarnwellCore/Platform/EntryNames.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using Holds = LeftoverPlace::Holds;
using enum CleanupSafety;

struct Row {
    const char* path;
    Holds holds = Holds::items;
    CleanupSafety safety = reviewNeeded;
    std::string_view ends = {};
    bool hasNames = false;
};

/// In a Library, a user's or the machine's.
constexpr Row everyLibrary[] = {
    {.path = "Application Support", .hasNames = true},
    {.path = "Caches", .safety = safe, .hasNames = true},
    {.path = "Logs", .safety = safe, .hasNames = true},
    {.path = "Preferences", .ends = ".plist|.plist.lockfile"},
    {.path = "Receipts", .ends = ".pkg|.bom|.plist"},
    {.path = "LaunchAgents", .holds = Holds::launchEntries, .ends = ".plist"},
    {.path = "Internet Plug-Ins", .holds = Holds::bundles},
    {.path = "PreferencePanes", .holds = Holds::bundles},
    {.path = "QuickLook", .holds = Holds::bundles},
    {.path = "Spotlight", .holds = Holds::bundles},
    {.path = "Services", .holds = Holds::bundles},
    {.path = "Screen Savers", .holds = Holds::bundles},
    {.path = "Input Methods", .holds = Holds::bundles},
    {.path = "Address Book Plug-Ins", .holds = Holds::bundles},
    {.path = "Automator", .holds = Holds::bundles},
    {.path = "ColorPickers", .holds = Holds::bundles},
    {.path = "Contextual Menu Items", .holds = Holds::bundles},
    {.path = "Mail/Bundles", .holds = Holds::bundles},
    {.path = "Widgets", .holds = Holds::bundles},
};

constexpr Row userLibrary[] = {
    {.path = "Application Scripts", .holds = Holds::groups},
    {.path = "Autosave Information", .ends = ".plist"},
    {.path = "Containers"},
    {.path = "Cookies", .ends = ".binarycookies"},
    {.path = "Group Containers", .holds = Holds::groups},
    {.path = "HTTPStorages", .ends = ".binarycookies"},
    {.path = "Preferences/ByHost", .ends = ".plist"},
    {.path = "Saved Application State", .safety = safe, .ends = ".savedState"},
    {.path = "SyncedPreferences", .ends = ".plist"},
    {.path = "WebKit"},
};

constexpr Row machineLibrary[] = {
    {.path = "Extensions", .holds = Holds::bundles, .safety = caution},
    {.path = "LaunchDaemons", .holds = Holds::launchEntries, .ends = ".plist"},
    {.path = "PrivilegedHelperTools"},
};

constexpr std::string_view iconEnds = ".png|.svg|.svgz|.xpm";

} // namespace

BaseFolders BaseFolders::of(const fs::path& home) {
    std::error_code error;
    const bool isOwn = fs::equivalent(home, homeDirectory(), error);
    const auto folder = [&](const char* variable, const char* usual) {
        const char* const named = isOwn ? std::getenv(variable) : nullptr;
        return named != nullptr && named[0] == '/' ? fs::path(named) : home / usual;
    };
    return {.configuration = folder("XDG_CONFIG_HOME", ".config"),
            .cache = folder("XDG_CACHE_HOME", ".cache"),
            .data = folder("XDG_DATA_HOME", ".local/share"),
            .state = folder("XDG_STATE_HOME", ".local/state")};
}

std::vector<LeftoverPlace> leftoverPlaces(const fs::path& home, const fs::path& machineRoot,
                                          const BaseFolders& folders) {
    std::vector<LeftoverPlace> places;
    const auto add = [&](fs::path base, fs::path path, const Row& row) {
        // Of what lies in the home, the whole way from there is looked at.
        if (const fs::path way = (base / path).lexically_relative(home); !way.empty() && *way.begin() != "..")
            std::tie(base, path) = std::pair(home, way);
        places.push_back({base, path, row.holds, row.safety, row.ends, row.hasNames});
    };
    const fs::path library = "Library";
    for (const fs::path& base : {home, machineRoot})
        for (const Row& row : everyLibrary)
            add(base, library / row.path, row);
    for (const Row& row : userLibrary)
        add(home, library / row.path, row);
    for (const Row& row : machineLibrary)
        add(machineRoot, library / row.path, row);
    add(machineRoot, "private/var/db/receipts", {.path = "", .ends = ".bom|.plist"});

    add(folders.data, "applications", {.path = "", .holds = Holds::menuEntries, .safety = safe});
    add(folders.configuration, "autostart", {.path = "", .holds = Holds::menuEntries, .safety = safe});
    add(home, ".local/bin", {.path = "", .holds = Holds::links, .safety = safe});
    add(folders.configuration, "", {.path = ""});
    add(folders.cache, "", {.path = "", .safety = safe});
    add(folders.data, "", {.path = ""});
    add(folders.state, "", {.path = ""});
    add(folders.data, "metainfo", {.path = "", .safety = safe, .ends = ".metainfo.xml|.appdata.xml"});
    add(folders.data, "mime/packages", {.path = "", .safety = safe, .ends = ".xml"});
    add(folders.data, "dbus-1/services", {.path = "", .ends = ".service"});
    std::vector<std::string> sizes = entryNames(folders.data / "icons/hicolor");
    std::ranges::sort(sizes);
    for (const std::string& size : sizes)
        add(folders.data, fs::path("icons/hicolor") / size / "apps",
            {.path = "", .safety = safe, .ends = iconEnds});
    return places;
}

} // namespace tarnwell
