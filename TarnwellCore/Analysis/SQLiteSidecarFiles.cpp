#include "TarnwellCore/Analysis/SQLiteSidecarFiles.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <system_error>
#include <unordered_map>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

std::string_view suffixOf(std::string_view name) {
    for (const std::string_view suffix : SQLiteSidecarFiles::sidecarSuffixes)
        if (name.ends_with(suffix))
            return suffix;
    return {};
}

/// Absolute, without "." and "..", without a "/" at the end.
fs::path standardized(const fs::path& path) {
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error);
    std::string text = (error ? path : absolute).lexically_normal().native();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

/// The database of the family that a standardised path belongs to; nothing when it belongs to none.
std::optional<fs::path> familyOf(const fs::path& member) {
    const std::string& text = member.native();
    const std::string_view name = PathUtil::lastComponent(text);
    if (SQLiteSidecarFiles::isDatabaseFile(name))
        return member;
    // A name that is nothing but the suffix has no database.
    if (SQLiteSidecarFiles::isSidecarFile(name) && suffixOf(name) != name)
        return SQLiteSidecarFiles::databaseURL(member);
    return std::nullopt;
}

} // namespace

bool SQLiteSidecarFiles::fileExists(const fs::path& path) {
    std::error_code error;
    return fs::exists(path, error);
}

bool SQLiteSidecarFiles::isSidecarFile(std::string_view name) {
    return !suffixOf(name).empty();
}

bool SQLiteSidecarFiles::isDatabaseFile(std::string_view name) {
    return !isSidecarFile(name) &&
           std::ranges::find(databaseExtensions, PathUtil::fileExtension(name)) != databaseExtensions.end();
}

std::vector<fs::path> SQLiteSidecarFiles::sidecarURLs(const fs::path& database) {
    std::vector<fs::path> paths;
    paths.reserve(sidecarSuffixes.size());
    for (const std::string_view suffix : sidecarSuffixes)
        paths.emplace_back(database.native() + std::string(suffix));
    return paths;
}

std::vector<fs::path> SQLiteSidecarFiles::existingSidecars(const fs::path& database,
                                                           const ExistenceTest& exists) {
    std::vector<fs::path> paths = sidecarURLs(database);
    std::erase_if(paths, [&](const fs::path& path) { return !exists(path); });
    return paths;
}

std::optional<fs::path> SQLiteSidecarFiles::databaseURL(const fs::path& sidecar) {
    const std::string& text = sidecar.native();
    const std::string_view suffix = suffixOf(text);
    if (suffix.empty())
        return std::nullopt;
    return fs::path(text.substr(0, text.size() - suffix.size()));
}

std::vector<fs::path> SQLiteSidecarFiles::incompleteFamilyPaths(const std::vector<fs::path>& amongRequested,
                                                                const ExistenceTest& exists) {
    std::vector<fs::path> requested;
    std::set<std::string> requestedTexts;
    for (const fs::path& path : amongRequested) {
        const fs::path standard = standardized(path);
        if (requestedTexts.insert(standard.native()).second)
            requested.push_back(path);
    }

    std::unordered_map<std::string, bool> isIncomplete; // by the family's database
    std::vector<fs::path> reported;
    for (const fs::path& path : requested) {
        const auto database = familyOf(standardized(path));
        if (!database)
            continue;
        const auto [family, isNew] = isIncomplete.try_emplace(database->native(), false);
        if (isNew) {
            std::vector<fs::path> members = existingSidecars(*database, exists);
            if (exists(*database))
                members.push_back(*database);
            family->second =
                members.size() >= 2 && !std::ranges::all_of(members, [&](const fs::path& member) {
                    return requestedTexts.contains(member.native());
                });
        }
        if (family->second)
            reported.push_back(path);
    }
    return reported;
}

} // namespace tarnwell
