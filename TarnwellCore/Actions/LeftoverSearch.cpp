#include "TarnwellCore/Actions/LeftoverSearch.hpp"

#include "TarnwellCore/Actions/ApplicationIdentifier.hpp"
#include "TarnwellCore/Analysis/HomeFolder.hpp"
#include "TarnwellCore/Platform/EntryNames.hpp"
#include "TarnwellCore/Platform/PropertyList.hpp"
#include "TarnwellCore/Platform/UUID.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Platform/WholeFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using Holds = LeftoverPlace::Holds;

constexpr std::size_t longestDocument = std::size_t{4} << 20;

std::optional<struct stat> statusOf(const fs::path& path) {
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0)
        return std::nullopt;
    return status;
}

bool isRealFolder(const fs::path& path) {
    const auto status = statusOf(path);
    return status && S_ISDIR(status->st_mode);
}

/// Without the longest of the ends that it has, and without the mark of a machine before it.
std::string_view stemOf(std::string_view name, std::string_view ends) {
    std::size_t cut = 0;
    while (!ends.empty()) {
        const std::string_view end = ends.substr(0, ends.find('|'));
        ends.remove_prefix(std::min(end.size() + 1, ends.size()));
        if (name.size() > end.size() && equalsIgnoringCase(name.substr(name.size() - end.size()), end))
            cut = std::max(cut, end.size());
    }
    name.remove_suffix(cut);
    const std::size_t point = name.rfind('.');
    if (cut > 0 && point != std::string_view::npos && UUID::parse(name.substr(point + 1)))
        name = name.substr(0, point);
    return name;
}

/// Bare words are nothing to know a thing by.
bool hasSeveralWords(std::string_view name) {
    const std::size_t blank = name.find(' ');
    return blank != std::string_view::npos && blank > 0 && blank + 1 < name.size();
}

class Search {
public:
    Search(const InstalledApplication& application, const std::vector<InstalledApplication>& others,
           const fs::path& home)
        : application_(application), others_(others), home_(home) {
        if (const auto status = statusOf(home))
            user_ = status->st_uid;
    }

    void look(const LeftoverPlace& place) {
        const fs::path folder = place.folder();
        if (!isRealFolder(folder) && !fs::is_directory(folder, error_))
            return;
        if (!isReachedByTrustedLinks(place) || ::access(folder.c_str(), R_OK | X_OK) != 0) {
            found_.unreadable.push_back(folder);
            return;
        }
        for (const std::string& name : entryNames(folder))
            lookAt(folder / name, name, place);
    }

    Leftovers result() {
        auto& items = found_.items;
        std::ranges::stable_sort(items, {}, [](const UninstallItem& item) { return item.path.native(); });
        std::set<fs::path> taken; // those above an item sort before it
        std::vector<UninstallItem> kept;
        for (UninstallItem& item : items) {
            fs::path above = item.path;
            while (!taken.contains(above) && above.has_relative_path())
                above = above.parent_path();
            if (!taken.contains(above) && taken.insert(item.path).second)
                kept.push_back(std::move(item));
        }
        items = std::move(kept);
        return std::move(found_);
    }

private:
    struct Match {
        LeftoverReason reason;
        LeftoverDoubt doubt = LeftoverDoubt::none;
        std::string otherName = {};
    };

    /// A link on the way that somebody else made may lead anywhere.
    bool isReachedByTrustedLinks(const LeftoverPlace& place) const {
        // The way to the home is as its owner has it; other folders may lie anywhere.
        const bool isAtHome = place.base == home_;
        fs::path path = isAtHome ? place.base : place.base.root_path();
        for (const fs::path& component :
             isAtHome ? place.relativePath : place.base.relative_path() / place.relativePath) {
            path /= component;
            const auto status = statusOf(path);
            if (!status || (S_ISLNK(status->st_mode) && status->st_uid != 0 && status->st_uid != user_))
                return false;
        }
        return true;
    }

    void lookAt(const fs::path& path, const std::string& name, const LeftoverPlace& place) {
        if (place.hasNames && equalsIgnoringCase(name, makerName(application_.identifier)) &&
            isRealFolder(path))
            for (const std::string& inner : entryNames(path))
                if (isNameInMakersFolder(inner))
                    add(path / inner, place.safety, {LeftoverReason::makersFolder});
        if (const auto match = matchOf(path, name, place))
            add(path, place.safety, *match);
    }

    std::optional<Match> matchOf(const fs::path& path, const std::string& name,
                                 const LeftoverPlace& place) const {
        const std::string_view stem = stemOf(name, place.ends);
        switch (place.holds) {
        case Holds::items:
            break;
        case Holds::groups:
            if (auto match = groupMatch(stem))
                return match;
            return std::nullopt;
        case Holds::launchEntries:
            if (const auto match = identifierMatch(stem))
                return match;
            return startsProgram(path) ? std::optional(Match{LeftoverReason::startsProgram}) : std::nullopt;
        case Holds::bundles:
            return bundleMatch(path);
        case Holds::menuEntries:
            if (const auto entry = menuEntry(path); entry && isOfApplication(entry->program))
                return Match{LeftoverReason::startsProgram};
            return std::nullopt;
        case Holds::links:
            return leadsThere(path) ? std::optional(Match{LeftoverReason::leadsThere}) : std::nullopt;
        }
        if (const auto match = identifierMatch(stem))
            return match;
        if (place.hasNames && hasSeveralWords(stem) && hasName(application_, stem))
            return Match{LeftoverReason::name};
        return std::nullopt;
    }

    /// Of all applications, the one with the longest identifier owns what matches.
    std::optional<Match> identifierMatch(std::string_view name) const {
        const std::string& identifier = application_.identifier;
        const IdentifierMatch own = matchIdentifier(name, identifier);
        if (own == IdentifierMatch::none)
            return std::nullopt;
        Match match{own == IdentifierMatch::equal ? LeftoverReason::identifier
                                                  : LeftoverReason::belowIdentifier};
        if (std::ranges::count(identifier, '.') < 2)
            match.doubt = LeftoverDoubt::shortIdentifier;
        for (const InstalledApplication& other : others_) {
            if (matchIdentifier(name, other.identifier) == IdentifierMatch::none)
                continue;
            if (equalsIgnoringCase(other.identifier, identifier))
                match.doubt = LeftoverDoubt::otherCopy;
            else if (other.identifier.size() > identifier.size())
                return std::nullopt;
        }
        return match;
    }

    std::optional<Match> groupMatch(std::string_view name) const {
        const std::string_view group = withoutGroupPrefix(name);
        const bool isMarked = group.size() != name.size();
        if (!isMarked) // the application's own
            return identifierMatch(name);
        const std::string_view maker = makerPrefix(application_.identifier);
        std::optional<Match> match = identifierMatch(group);
        if (match)
            match->reason = LeftoverReason::groupContainer;
        else if (isOfMaker(group, maker) && !isOfOther(group))
            match = Match{LeftoverReason::makersGroup};
        else
            return std::nullopt;
        // Groups are made for sharing: another application of that maker may be in it.
        for (const InstalledApplication& other : others_)
            if (match->doubt == LeftoverDoubt::none && isOfMaker(other.identifier, maker)) {
                match->doubt = LeftoverDoubt::otherApplication;
                match->otherName = other.name();
            }
        return match;
    }

    bool isOfOther(std::string_view name) const {
        return std::ranges::any_of(others_, [&](const InstalledApplication& other) {
            return matchIdentifier(name, other.identifier) != IdentifierMatch::none;
        });
    }

    static bool isOfMaker(std::string_view identifier, std::string_view maker) {
        return !maker.empty() && identifier.size() >= maker.size() &&
               equalsIgnoringCase(identifier.substr(0, maker.size()), maker) &&
               (identifier.size() == maker.size() || identifier[maker.size()] == '.');
    }

    std::optional<Match> bundleMatch(const fs::path& path) const {
        if (!isRealFolder(path))
            return std::nullopt;
        const WholeFile file =
            WholeFile::read(path / "Contents/Info.plist", FileCalls::live(), longestDocument);
        const auto texts = readPropertyList(file.text);
        const auto identifier =
            texts ? texts->find("CFBundleIdentifier") : PropertyListTexts::const_iterator();
        if (!texts || identifier == texts->end())
            return std::nullopt;
        std::optional<Match> match = identifierMatch(identifier->second.front());
        if (match)
            match->reason = LeftoverReason::bundleIdentifier;
        return match;
    }

    bool startsProgram(const fs::path& path) const {
        const auto texts = readPropertyList(WholeFile::read(path, FileCalls::live(), longestDocument).text);
        if (!texts)
            return false;
        for (const char* key : {"Program", "ProgramArguments"})
            if (const auto value = texts->find(key); value != texts->end())
                return isOfApplication(value->second.front());
        return false;
    }

    bool leadsThere(const fs::path& path) const {
        const auto status = statusOf(path);
        return status && S_ISLNK(status->st_mode) && isOfApplication(resolveLinks(path));
    }

    bool isOfApplication(const fs::path& program) const {
        if (!program.is_absolute() || program.native().find('\0') != std::string::npos)
            return false;
        return isWithin(program, application_.location) ||
               isWithin(resolveLinks(program), application_.location);
    }

    static bool hasName(const InstalledApplication& application, std::string_view text) {
        return std::ranges::any_of(application.names,
                                   [&](const std::string& name) { return equalsIgnoringCase(name, text); });
    }

    bool isNameInMakersFolder(std::string_view name) const {
        return hasName(application_, name) ||
               equalsIgnoringCase(name, lastComponent(application_.identifier)) ||
               identifierMatch(name).has_value();
    }

    void add(const fs::path& path, CleanupSafety safety, Match match) {
        const auto status = statusOf(path);
        const auto identity = itemIdentity(AT_FDCWD, path.c_str());
        const fs::path real = fs::path(resolveLinks(path.parent_path())) / path.filename();
        if (!status || !identity || isWithin(real, application_.location) ||
            isWithin(application_.location, real))
            return;
        const bool isByName =
            match.reason == LeftoverReason::makersFolder || match.reason == LeftoverReason::name;
        if (isByName && match.doubt == LeftoverDoubt::none)
            for (const InstalledApplication& other : others_)
                if (hasName(other, path.filename().native())) {
                    match.doubt = equalsIgnoringCase(other.identifier, application_.identifier)
                                      ? LeftoverDoubt::otherCopy
                                      : LeftoverDoubt::otherApplication;
                    match.otherName = other.name();
                }
        if (status->st_uid != user_ && status->st_uid != 0)
            match.doubt = LeftoverDoubt::otherUser;
        if (match.doubt != LeftoverDoubt::none || match.reason == LeftoverReason::name ||
            match.reason == LeftoverReason::makersGroup)
            safety = CleanupSafety::caution;
        found_.items.push_back({.path = path,
                                .reason = match.reason,
                                .doubt = match.doubt,
                                .otherName = std::move(match.otherName),
                                .safety = safety,
                                .identity = *identity});
    }

    const InstalledApplication& application_;
    const std::vector<InstalledApplication>& others_;
    const fs::path& home_;
    uid_t user_ = ::geteuid();
    Leftovers found_;
    std::error_code error_;
};

} // namespace

Leftovers findLeftovers(const InstalledApplication& application,
                        const std::vector<InstalledApplication>& others,
                        const std::vector<LeftoverPlace>& places, const fs::path& home,
                        const CancellationToken& token) {
    Search search(application, others, home);
    for (const LeftoverPlace& place : places)
        if (!token.isCancelled())
            search.look(place);
    return search.result();
}

} // namespace tarnwell
