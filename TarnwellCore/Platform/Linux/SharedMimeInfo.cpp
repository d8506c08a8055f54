#include "TarnwellCore/Platform/Linux/SharedMimeInfo.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/LetterCase.hpp"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <optional>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::string_view wildcardBytes = "*?[\\";

/// A hundred times the list that desktops come with. A longer one is passed over as a whole.
constexpr std::size_t longestList = 4 << 20;

/// Matching one star more may take as many times longer as a name has bytes.
constexpr auto mostStars = 3;

/// The text of a regular file; empty where there is none that can be read.
std::string listAt(const std::filesystem::path& path) {
    // A pipe that somebody put there would never open, a device might do anything.
    const int descriptor = withoutInterruption(
        [&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    if (descriptor < 0)
        return {};
    std::string text;
    struct stat status = {};
    ssize_t count = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? 1 : -1;
    std::array<char, 32'768> buffer;
    while (count > 0 && text.size() <= longestList) {
        count = withoutInterruption([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
        if (count > 0)
            text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    ::close(descriptor);
    return count == 0 && text.size() <= longestList ? text : std::string();
}

/// Calls `visit` with every line that is no comment.
template <class Visit>
void forEachLine(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size());
        if (const std::string_view line = text.substr(0, length); !line.empty() && line.front() != '#')
            visit(line);
        text.remove_prefix(std::min(length + 1, text.size()));
    }
}

/// The two words of a line; nothing when there are not two.
std::optional<std::pair<std::string, std::string>> twoWords(std::string_view line, char separator) {
    const std::size_t position = line.find(separator);
    if (position == 0 || position == std::string_view::npos || position + 1 == line.size())
        return std::nullopt;
    return std::pair(std::string(line.substr(0, position)), std::string(line.substr(position + 1)));
}

std::string inLowerCase(std::string_view text) {
    if (std::ranges::any_of(text, [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; }))
        return lowerCased(text);
    std::string lower(text);
    for (char& byte : lower)
        if (byte >= 'A' && byte <= 'Z')
            byte = static_cast<char>(byte - 'A' + 'a');
    return lower;
}

/// Whether it may match a name of one letter, a dot, and an extension.
bool mayMatchShortName(std::string_view pattern) {
    return std::string_view("*?[\\x").find(pattern.front()) != std::string_view::npos;
}

/// Dots that match nothing but themselves; none where some may stand between brackets.
std::size_t dotsOf(std::string_view pattern) {
    return pattern.find('[') < pattern.rfind('.')
               ? 0
               : static_cast<std::size_t>(std::ranges::count(pattern, '.'));
}

bool isMatch(const std::string& pattern, const std::string& name) {
    return ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

} // namespace

struct TypePatterns::Name {
    std::string given;
    std::string lower;

    explicit Name(std::string_view extension)
        : given("x." + std::string(extension)), lower(inLowerCase(given)) {}
};

TypePatterns TypePatterns::read(std::span<const std::filesystem::path> folders) {
    TypePatterns patterns;
    for (std::size_t folder = 0; folder < folders.size(); ++folder)
        patterns.readList(listAt(folders[folder] / "globs2"), folder);
    return patterns;
}

void TypePatterns::readList(const std::string& list, std::size_t folder) {
    std::vector<std::string> replaced;
    forEachLine(list, [&](std::string_view line) {
        // "weight:type:pattern", flags may follow. A pattern may hold colons, too.
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
        int weight = 0;
        if (second == std::string_view::npos ||
            std::from_chars(line.data(), line.data() + first, weight).ptr != line.data() + first)
            return;
        const std::string_view type = line.substr(first + 1, second - first - 1);
        std::string_view pattern = line.substr(second + 1);
        const bool isCaseSensitive = pattern.ends_with(":cs");
        if (isCaseSensitive)
            pattern.remove_suffix(3);
        if (type.empty() || pattern.empty() || withoutOlderPatterns_.contains(std::string(type)))
            return;
        if (pattern == "__NOGLOBS__")
            replaced.emplace_back(type);
        else
            add(type, pattern, weight, folder, isCaseSensitive);
    });
    withoutOlderPatterns_.insert(replaced.begin(), replaced.end());
}

void TypePatterns::add(std::string_view type, std::string_view pattern, int weight, std::size_t folder,
                       bool isCaseSensitive) {
    const bool isSuffix =
        pattern.starts_with('*') && pattern.find_first_of(wildcardBytes, 1) == std::string_view::npos;
    const bool isExtension = isSuffix && pattern.size() > 2 && pattern[1] == '.';
    if (!isSuffix &&
        (pattern.find_first_of(wildcardBytes) == std::string_view::npos || // the whole of one name
         !mayMatchShortName(pattern) || std::ranges::count(pattern, '*') > mostStars))
        return;
    const auto [known, isNew] = indexOfType_.try_emplace(std::string(type), types_.size());
    if (isNew)
        types_.emplace_back(type);
    Pattern entry{std::string(pattern), known->second, folder, weight, isCaseSensitive};
    if (!isSuffix) {
        entry.dots = dotsOf(pattern);
        wildcards_.push_back(std::move(entry));
        return;
    }
    entry.text.erase(0, isExtension ? 2 : 1);
    std::string key = inLowerCase(entry.text);
    if (!isCaseSensitive)
        entry.text = key;
    if (!isExtension) {
        suffixes_.push_back(std::move(entry));
        return;
    }
    marks_.set(markOf(key));
    extensions_[std::move(key)].push_back(std::move(entry));
}

std::size_t TypePatterns::markOf(std::string_view extension) {
    return std::hash<std::string_view>()(extension) % markCount;
}

/// Calls `visit` with each pattern that matches and the length it has beside others, until it returns true.
template <class Visit>
bool TypePatterns::anyMatch(const Name& name, Visit visit) const {
    const auto endsWith = [&](const Pattern& each) {
        return (each.isCaseSensitive ? name.given : name.lower).ends_with(each.text);
    };
    for (std::size_t dot = name.lower.find('.'); dot != std::string::npos;
         dot = name.lower.find('.', dot + 1)) {
        const std::string_view extension = std::string_view(name.lower).substr(dot + 1);
        if (!marks_.test(markOf(extension)))
            continue;
        if (const auto found = extensions_.find(std::string(extension)); found != extensions_.end())
            for (const Pattern& each : found->second)
                if (endsWith(each) && visit(each, each.text.size() + 2))
                    return true;
    }
    for (const Pattern& each : suffixes_)
        if (endsWith(each) && visit(each, each.text.size() + 1))
            return true;
    // In the letter case of the list as well: "[Z-a]" is another range than "[z-a]".
    const auto dots = static_cast<std::size_t>(std::ranges::count(name.lower, '.'));
    const bool isLower = name.given == name.lower;
    for (const Pattern& each : wildcards_)
        if (each.dots <= dots &&
            (isMatch(each.text, name.given) ||
             (!isLower && !each.isCaseSensitive && isMatch(each.text, name.lower))) &&
            visit(each, each.text.size()))
            return true;
    return false;
}

bool TypePatterns::mayKnow(std::string_view extension) const {
    return anyMatch(Name(extension), [](const Pattern&, std::size_t) { return true; });
}

std::vector<std::string_view> TypePatterns::types(std::string_view extension) const {
    struct Rank {
        int weight;
        std::size_t length;
        std::size_t distance; // from the preferred folder, the other way round
        auto operator<=>(const Rank&) const = default;
    };
    std::optional<Rank> best;
    std::vector<std::string_view> found;
    anyMatch(Name(extension), [&](const Pattern& each, std::size_t length) {
        const Rank rank{each.weight, length, ~each.folder};
        if (!best || *best < rank) {
            best = rank;
            found.clear();
        }
        if (rank == *best && std::ranges::find(found, types_[each.type]) == found.end())
            found.push_back(types_[each.type]);
        return false;
    });
    return found;
}

TypeRelations TypeRelations::read(std::span<const std::filesystem::path> folders) {
    TypeRelations relations;
    for (const std::filesystem::path& folder : folders) {
        forEachLine(listAt(folder / "aliases"), [&](std::string_view line) {
            if (auto words = twoWords(line, ' '))
                relations.canonicalNames_.insert(*std::move(words)); // the preferred folder's stays
        });
        forEachLine(listAt(folder / "subclasses"), [&](std::string_view line) {
            if (auto words = twoWords(line, ' '))
                relations.parents_[words->first].push_back(std::move(words->second));
        });
        forEachLine(listAt(folder / "generic-icons"), [&](std::string_view line) {
            if (auto words = twoWords(line, ':'))
                relations.icons_.insert(*std::move(words));
        });
    }
    return relations;
}

std::string_view TypeRelations::canonical(std::string_view type) const {
    const auto found = canonicalNames_.find(std::string(type));
    return found == canonicalNames_.end() ? type : std::string_view(found->second);
}

std::unordered_set<std::string> TypeRelations::withAncestors(std::string_view type) const {
    std::unordered_set<std::string> found; // also what keeps a circle from being walked for ever
    std::vector<std::string> pending{std::string(type)};
    while (!pending.empty()) {
        const std::string next(canonical(pending.back()));
        pending.pop_back();
        if (!found.insert(next).second)
            continue;
        if (next.starts_with("text/"))
            pending.emplace_back("text/plain");
        if (const auto parents = parents_.find(next); parents != parents_.end())
            pending.insert(pending.end(), parents->second.begin(), parents->second.end());
    }
    return found;
}

std::string TypeRelations::genericIcon(std::string_view type) const {
    if (const auto found = icons_.find(std::string(type)); found != icons_.end())
        return found->second;
    return std::string(type.substr(0, type.find('/'))) + "-x-generic";
}

} // namespace tarnwell
