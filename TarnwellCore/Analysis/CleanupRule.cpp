#include "TarnwellCore/Analysis/CleanupRule.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/Trim.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>

namespace tarnwell {

namespace {

CleanupRule preset(std::string_view name, std::string_view title) {
    CleanupRule rule;
    rule.id = "autopilot.preset." + std::string(name);
    rule.name = title;
    return rule;
}

std::vector<CleanupRule> makePresets() {
    const std::filesystem::path home = homeDirectory();

    CleanupRule downloads =
        preset("downloads-30d-100mb", "Downloads older than 30 days and larger than 100 MB");
    downloads.locationPrefix = (home / "Downloads").native();
    downloads.minimumSize = 100'000'000;
    downloads.olderThanDays = 30;

    CleanupRule installers = preset("dmg-pkg-180d", "Old DMG/PKG installers");
    installers.extensions = {"dmg", "pkg"};
    installers.olderThanDays = 180;

    CleanupRule archives = preset("xcode-archives-90d", "Xcode archives older than 90 days");
    archives.locationPrefix = (home / "Library/Developer/Xcode/Archives").native();
    archives.extensions = {"xcarchive"};
    archives.olderThanDays = 90;

    return {downloads.normalized(), installers.normalized(), archives.normalized()};
}

/// 128 random bits in hexadecimal digits.
std::string randomToken() {
    std::random_device random;
    std::string token;
    for (int part = 0; part < 4; ++part) {
        std::array<char, 9> digits{};
        const int length = std::snprintf(digits.data(), digits.size(), "%08x", random());
        token.append(digits.data(), static_cast<std::size_t>(length));
    }
    return token;
}

std::string days(std::int64_t count) {
    return std::to_string(count) + (count == 1 ? " day" : " days");
}

/// "a", "a or b", "a, b or c".
std::string alternatives(const std::vector<std::string>& items) {
    std::string text;
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index > 0)
            text += index + 1 == items.size() ? " or " : ", ";
        text += items[index];
    }
    return text;
}

} // namespace

const std::vector<CleanupRule>& CleanupRule::presets() {
    static const std::vector<CleanupRule> presets = makePresets();
    return presets;
}

CleanupRule CleanupRule::makeDraft() {
    CleanupRule draft;
    draft.id = "autopilot.rule." + randomToken();
    draft.name = "New rule";
    draft.isEnabled = false;
    return draft.normalized();
}

CleanupRule CleanupRule::normalized() const {
    CleanupRule rule = *this;
    rule.locationPrefix = normalizedLocation(locationPrefix);
    rule.extensions = normalizedExtensions(extensions);
    return rule;
}

std::optional<std::string> CleanupRule::normalizedLocation(const std::optional<std::string>& location) {
    if (!location)
        return std::nullopt;
    std::string_view text = trimmed(*location);
    if (text == "/")
        return "/";
    while (text.ends_with('/'))
        text.remove_suffix(1);
    if (text.empty())
        return std::nullopt;
    return std::string(text);
}

std::vector<std::string> CleanupRule::normalizedExtensions(const std::vector<std::string>& extensions) {
    std::vector<std::string> normal;
    for (const std::string& entry : extensions) {
        std::string_view text = trimmed(entry);
        while (text.starts_with('.'))
            text.remove_prefix(1);
        std::string extension = PathUtil::lowerCase(text);
        if (!extension.empty() && std::ranges::find(normal, extension) == normal.end())
            normal.push_back(std::move(extension));
    }
    return normal;
}

std::string CleanupRule::conditionSummary() const {
    std::vector<std::string> kinds;
    kinds.reserve(categories.size() + extensions.size());
    for (const FileCategory category : categories)
        kinds.emplace_back(displayName(category));
    for (const std::string& extension : extensions)
        kinds.push_back("." + harmless(extension));

    if (kinds.empty() && !locationPrefix && !minimumSize && !olderThanDays && !lastOpenedBeforeDays)
        return "Matches anything in the scan";

    // A node has to meet both lists where both are given: "Archives with .zip or .iso".
    std::string text;
    if (!categories.empty() && !extensions.empty()) {
        const auto firstExtension = kinds.begin() + static_cast<std::ptrdiff_t>(categories.size());
        text = alternatives({kinds.begin(), firstExtension}) + " with " +
               alternatives({firstExtension, kinds.end()});
    } else {
        text = kinds.empty() ? "Anything" : alternatives(kinds);
    }
    if (locationPrefix)
        text += " in " + harmless(*locationPrefix);
    if (minimumSize)
        text += " over " + ByteFormatter::string(*minimumSize, "0 bytes");
    if (olderThanDays)
        text += ", modified over " + days(*olderThanDays) + " ago";
    if (lastOpenedBeforeDays)
        text += ", last opened over " + days(*lastOpenedBeforeDays) + " ago";
    return text;
}

} // namespace tarnwell
