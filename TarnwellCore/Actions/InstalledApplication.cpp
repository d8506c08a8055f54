#include "TarnwellCore/Actions/InstalledApplication.hpp"

#include "TarnwellCore/Actions/ApplicationIdentifier.hpp"
#include "TarnwellCore/Platform/DesktopEntry.hpp"
#include "TarnwellCore/Platform/EntryNames.hpp"
#include "TarnwellCore/Platform/PropertyList.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Platform/WholeFile.hpp"

#include <algorithm>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// No application says so much of itself.
constexpr std::size_t longestText = std::size_t{4} << 20;

bool isFolder(const fs::path& path) {
    std::error_code error;
    return fs::is_directory(fs::symlink_status(path, error));
}

bool isBundleName(const fs::path& path) {
    return equalsIgnoringCase(path.extension().native(), ".app") && path.stem() != path.filename();
}

void addName(std::vector<std::string>& names, const std::string& name) {
    if (!name.empty() && std::ranges::find(names, name) == names.end())
        names.push_back(name);
}

/// The path with all links but the last component's resolved.
fs::path withResolvedParent(const fs::path& path) {
    return fs::path(resolveLinks(path.parent_path())) / path.filename();
}

std::vector<std::string> sortedNames(const fs::path& folder) {
    std::vector<std::string> names = entryNames(folder);
    std::ranges::sort(names);
    return names;
}

/// The program that the words start: behind "env" and what that sets.
std::optional<std::string> programOf(const std::vector<std::string>& words) {
    std::size_t first = 0;
    if (!words.empty() && fs::path(words.front()).filename() == "env")
        for (first = 1; first < words.size() && words[first].find('=') != std::string::npos;)
            ++first;
    if (first >= words.size() || !words[first].starts_with('/') ||
        words[first].find('\0') != std::string::npos)
        return std::nullopt;
    return words[first];
}

} // namespace

std::string_view rawValue(InstalledApplication::Kind kind) {
    switch (kind) {
    case InstalledApplication::Kind::bundle:
        return "bundle";
    case InstalledApplication::Kind::appImage:
        return "appImage";
    case InstalledApplication::Kind::folder:
        return "folder";
    }
    return "folder";
}

std::optional<InstalledApplication> applicationBundle(const fs::path& path) {
    if (!isBundleName(path) || !isFolder(path))
        return std::nullopt;
    InstalledApplication application{.location = withResolvedParent(path)};
    const WholeFile information =
        WholeFile::read(path / "Contents/Info.plist", FileCalls::live(), longestText);
    if (const auto texts = readPropertyList(information.text)) {
        const auto textAt = [&](std::string_view key) {
            const auto found = texts->find(key);
            return found == texts->end() ? std::string() : found->second.front();
        };
        application.identifier = textAt("CFBundleIdentifier");
        addName(application.names, textAt("CFBundleDisplayName"));
        addName(application.names, textAt("CFBundleName"));
    }
    addName(application.names, path.stem().native());
    return application;
}

std::vector<InstalledApplication> applicationBundlesIn(const fs::path& folder) {
    std::vector<InstalledApplication> applications;
    for (const std::string& name : sortedNames(folder)) {
        const fs::path path = folder / name;
        if (auto application = applicationBundle(path))
            applications.push_back(*std::move(application));
        else if (!name.starts_with('.') && !isBundleName(path) && isFolder(path))
            for (const std::string& inner : sortedNames(path))
                if (auto held = applicationBundle(path / inner))
                    applications.push_back(*std::move(held));
    }
    return applications;
}

std::optional<MenuEntry> menuEntry(const fs::path& file) {
    if (file.extension() != ".desktop")
        return std::nullopt;
    const auto entry = readDesktopEntry(WholeFile::read(file, FileCalls::live(), longestText).text);
    const auto program = entry ? programOf(entry->command) : std::nullopt;
    if (!program)
        return std::nullopt;
    return MenuEntry{
        .file = withResolvedParent(file), .name = entry->name, .program = withResolvedParent(*program)};
}

std::vector<MenuEntry> menuEntriesIn(const fs::path& folder) {
    std::vector<MenuEntry> entries;
    for (const std::string& name : sortedNames(folder))
        if (auto entry = menuEntry(folder / name))
            entries.push_back(*std::move(entry));
    return entries;
}

} // namespace tarnwell
