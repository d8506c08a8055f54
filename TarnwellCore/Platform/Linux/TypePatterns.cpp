#include "TarnwellCore/Platform/Linux/TypePatterns.hpp"

#include <fnmatch.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <system_error>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::string_view wildcards = "*?[\\";

bool isASCII(std::string_view text) {
    return std::ranges::all_of(text, [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

std::string lowerCaseASCII(std::string_view text) {
    std::string lower(text);
    for (char& byte : lower)
        if (byte >= 'A' && byte <= 'Z')
            byte = static_cast<char>(byte - 'A' + 'a');
    return lower;
}

/// Whether it may match a name of one letter, a dot, and an extension without a dot.
bool mayMatchShortName(std::string_view pattern) {
    return std::string_view("*?[\\x").find(pattern.front()) != std::string_view::npos &&
           (std::ranges::count(pattern, '.') < 2 || pattern.find('[') < pattern.rfind('.'));
}

/// What follows the second colon of a line; empty for a comment, and for what is no line of the format.
std::string_view patternAndFlagsIn(std::string_view line) {
    if (line.starts_with('#'))
        return {};
    for (int field = 0; field < 2; ++field) {
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos)
            return {};
        line.remove_prefix(colon + 1);
    }
    return line;
}

} // namespace

TypePatterns TypePatterns::read(std::span<const std::filesystem::path> folders) {
    TypePatterns patterns;
    for (const std::filesystem::path& folder : folders)
        patterns.isComplete_ = patterns.readFolder(folder) && patterns.isComplete_;
    return patterns;
}

bool TypePatterns::readFolder(const std::filesystem::path& folder) {
    std::ifstream list(folder / "globs2");
    if (!list) {
        const auto isMissing = [&](const char* name) {
            std::error_code error;
            return std::filesystem::status(folder / name, error).type() ==
                   std::filesystem::file_type::not_found;
        };
        return isMissing("mime.cache") && isMissing("globs2") && isMissing("globs");
    }
    for (std::string line; std::getline(list, line);) {
        const std::string_view rest = patternAndFlagsIn(line);
        add(rest);
        // A pattern may hold colons, too: the flags may begin at any of them.
        for (std::size_t end = rest.find(':'); end != std::string_view::npos; end = rest.find(':', end + 1))
            add(rest.substr(0, end));
    }
    return list.eof();
}

void TypePatterns::add(std::string_view pattern) {
    if (pattern.empty())
        return;
    // Letter case beyond ASCII is not folded here.
    isComplete_ = isComplete_ && isASCII(pattern);
    const std::string lower = lowerCaseASCII(pattern);
    const bool isSuffix = lower.starts_with('*') && lower.find_first_of(wildcards, 1) == std::string::npos;
    if (isSuffix && lower.rfind('.') == 1)
        addExtension(lower.substr(2));
    else if (isSuffix) {
        if (std::ranges::count(lower, '.') < 2) // the names that are asked about have one
            suffixes_.push_back(lower.substr(1));
    } else if (lower.find_first_of(wildcards) != std::string::npos) {
        // In its own letter case: "[Z-a]" is another range than "[z-a]".
        if (mayMatchShortName(pattern))
            patterns_.emplace_back(pattern);
    } else if (const std::size_t dot = lower.rfind('.'); dot != std::string::npos) // the whole of one name
        addExtension(lower.substr(dot + 1));
}

std::size_t TypePatterns::markOf(std::string_view extension) {
    return std::hash<std::string_view>()(extension) % markCount;
}

void TypePatterns::addExtension(std::string extension) {
    marks_.set(markOf(extension));
    extensions_.insert(std::move(extension));
}

bool TypePatterns::mayKnow(std::string_view extension) const {
    if (!isComplete_ || extension.find('.') != std::string_view::npos)
        return true;
    const std::string given = "x." + std::string(extension);
    const std::string name = lowerCaseASCII(given);
    const auto isMatch = [](const std::string& pattern, const std::string& text) {
        return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
    };
    return (marks_.test(markOf(std::string_view(name).substr(2))) && extensions_.contains(name.substr(2))) ||
           std::ranges::any_of(suffixes_, [&](const std::string& each) { return name.ends_with(each); }) ||
           std::ranges::any_of(patterns_, [&](const std::string& each) {
               return isMatch(each, name) || (given != name && isMatch(each, given));
           });
}

} // namespace tarnwell
