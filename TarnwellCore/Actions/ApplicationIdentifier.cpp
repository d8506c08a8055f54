#include "TarnwellCore/Actions/ApplicationIdentifier.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace tarnwell {

namespace {

constexpr char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

constexpr bool isLetterOrDigit(char character) {
    const char letter = lowered(character);
    return (letter >= 'a' && letter <= 'z') || (letter >= '0' && letter <= '9');
}

bool startsWithName(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && equalsIgnoringCase(text.substr(0, start.size()), start);
}

std::size_t componentCount(std::string_view identifier) {
    return static_cast<std::size_t>(std::ranges::count(identifier, '.')) + 1;
}

struct SecurityProduct {
    std::string_view prefix;
    std::string_view maker;
};

constexpr auto securityProducts = std::to_array<SecurityProduct>({
    {"com.avast", "Avast"},
    {"com.avg", "AVG"},
    {"com.avira", "Avira"},
    {"com.bitdefender", "Bitdefender"},
    {"com.carbonblack", "Carbon Black"},
    {"com.checkpoint", "Check Point"},
    {"com.cisco.amp", "Cisco"},
    {"com.cisco.anyconnect", "Cisco"},
    {"com.cisco.endpoint", "Cisco"},
    {"com.cisco.secureclient", "Cisco"},
    {"com.crowdstrike", "CrowdStrike"},
    {"com.cylance", "Cylance"},
    {"com.drweb", "Doctor Web"},
    {"com.eset", "ESET"},
    {"com.f-secure", "F-Secure"},
    {"com.fireeye", "FireEye"},
    {"com.fortinet", "Fortinet"},
    {"com.intego", "Intego"},
    {"com.jamf.protect", "Jamf"},
    {"com.kaspersky", "Kaspersky"},
    {"com.malwarebytes", "Malwarebytes"},
    {"com.mcafee", "McAfee"},
    {"com.microsoft.wdav", "Microsoft"},
    {"com.norton", "Norton"},
    {"com.objective-see.lulu", "Objective-See"},
    {"com.paloaltonetworks", "Palo Alto Networks"},
    {"com.sentinelone", "SentinelOne"},
    {"com.sophos", "Sophos"},
    {"com.symantec", "Symantec"},
    {"com.tanium", "Tanium"},
    {"com.trellix", "Trellix"},
    {"com.trendmicro", "Trend Micro"},
    {"com.vmware.carbonblack", "Carbon Black"},
    {"com.webroot", "Webroot"},
    {"com.withsecure", "WithSecure"},
    {"com.zscaler", "Zscaler"},
    {"net.kaspersky", "Kaspersky"},
});

} // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, lowered, lowered);
}

bool isUsableIdentifier(std::string_view identifier) {
    constexpr std::size_t shortest = 5;
    constexpr std::size_t longest = 255;
    if (identifier.size() < shortest || identifier.size() > longest || componentCount(identifier) < 2 ||
        identifier.front() == '.' || identifier.back() == '.' ||
        identifier.find("..") != std::string_view::npos)
        return false;
    return std::ranges::all_of(identifier, [](char character) {
        return isLetterOrDigit(character) || character == '.' || character == '-' || character == '_';
    });
}

IdentifierMatch matchIdentifier(std::string_view name, std::string_view identifier) {
    if (!isUsableIdentifier(identifier) || !startsWithName(name, identifier))
        return IdentifierMatch::none;
    if (name.size() == identifier.size())
        return IdentifierMatch::equal;
    const bool isBelow = name[identifier.size()] == '.' && name.size() > identifier.size() + 1;
    return isBelow && componentCount(identifier) > 2 ? IdentifierMatch::below : IdentifierMatch::none;
}

std::string_view makerPrefix(std::string_view identifier) {
    constexpr std::array<std::string_view, 6> hosts = {"bitbucket", "codeberg",   "github",
                                                       "gitlab",    "googlecode", "sourceforge"};
    if (!isUsableIdentifier(identifier) || componentCount(identifier) < 3)
        return {};
    const std::size_t second = identifier.find('.') + 1;
    std::size_t end = identifier.find('.', second);
    const auto isSecond = [&](std::string_view host) {
        return equalsIgnoringCase(identifier.substr(second, end - second), host);
    };
    if (std::ranges::any_of(hosts, isSecond))
        end = identifier.find('.', end + 1);
    if (end == std::string_view::npos || equalsIgnoringCase(identifier.substr(0, end), "com.apple"))
        return {};
    return identifier.substr(0, end);
}

std::string_view makerName(std::string_view identifier) {
    const std::string_view prefix = makerPrefix(identifier);
    return prefix.empty() ? prefix : prefix.substr(prefix.rfind('.') + 1);
}

std::string_view lastComponent(std::string_view identifier) {
    return makerPrefix(identifier).empty() ? std::string_view()
                                           : identifier.substr(identifier.rfind('.') + 1);
}

std::string_view withoutGroupPrefix(std::string_view name) {
    constexpr std::size_t teamLength = 10;
    const auto isOfTeam = [](char character) {
        return (character >= 'A' && character <= 'Z') || (character >= '0' && character <= '9');
    };
    if (name.size() > teamLength + 1 && name[teamLength] == '.' &&
        std::ranges::all_of(name.substr(0, teamLength), isOfTeam))
        name.remove_prefix(teamLength + 1);
    if (startsWithName(name, "group."))
        name.remove_prefix(6);
    return name;
}

std::string_view securityMaker(std::string_view identifier) {
    for (const SecurityProduct& product : securityProducts)
        if (startsWithName(identifier, product.prefix) &&
            (identifier.size() == product.prefix.size() || identifier[product.prefix.size()] == '.'))
            return product.maker;
    return {};
}

} // namespace tarnwell
