#include "TarnwellCore/Actions/TrashRestorer.hpp"

#include "TarnwellCore/Analysis/TrashFolders.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Platform/FolderMaking.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/OpenDescriptor.hpp"
#include "TarnwellCore/Platform/TrashNotes.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// So many names are tried for an item whose own is taken.
constexpr int mostNames = 1000;
/// No name of a file system is longer, in bytes.
constexpr std::size_t longestName = 255;
/// A plan that nobody has finished belongs to a process that may still be moving.
constexpr double planPatience = 86'400; // seconds
/// A note tells the second; clocks of the journal and of the note are read one after the other.
constexpr double noteExactness = 3; // seconds

/// Where an item goes.
struct Origin {
    fs::path base; // absolute
    fs::path below;
    LinksOnTheWay links = LinksOnTheWay::ofUserOrRoot;
    std::optional<Date> trashedAt = {};
    const TrashJournalEntry* entry = nullptr; // the journal's, where it is from there

    fs::path path() const { return (base / below).lexically_normal(); }
};

std::string_view refusalText(RestoreRefusal refusal) {
    switch (refusal) {
    case RestoreRefusal::notThere:
        return "It is not in the Trash any more.";
    case RestoreRefusal::unknownOrigin:
        return "Nobody noted where it was.";
    case RestoreRefusal::changed:
        return "Something else lies there now.";
    case RestoreRefusal::otherVolume:
        return "The folder where it was is on another volume now.";
    case RestoreRefusal::cancelled:
        return "It was not restored: that was called off.";
    }
    return "";
}

RestoreOutcome refused(const fs::path& source, RestoreRefusal refusal) {
    return {.source = source, .refusal = refusal, .failure = std::string(refusalText(refusal))};
}

RestoreOutcome failed(const fs::path& source, int error) {
    return {.source = source, .failure = std::generic_category().message(error)};
}

/// The name without what makes it too long, cut between characters.
std::string shortened(std::string_view stem, std::size_t length) {
    std::string_view left = stem.substr(0, length);
    while (isValidUTF8(stem) && !left.empty() && !isValidUTF8(left))
        left.remove_suffix(1);
    return std::string(left);
}

/// "report (restored).pdf", "report (restored 2).pdf".
std::string otherName(const std::string& name, int attempt) {
    const std::size_t dot = name.rfind('.');
    const bool hasExtension = dot != std::string::npos && dot > 0 && name.size() - dot <= 32;
    const std::string extension = hasExtension ? name.substr(dot) : "";
    const std::string mark = attempt == 1 ? " (restored)" : " (restored " + std::to_string(attempt) + ")";
    const std::string stem = name.substr(0, name.size() - extension.size());
    return shortened(stem, longestName - mark.size() - extension.size()) + mark + extension;
}

/// What is known of the items in the Trash, looked up once for an operation.
class Knowledge {
public:
    explicit Knowledge(std::vector<TrashJournalEntry> entries) : entries_(std::move(entries)) {
        for (const TrashJournalEntry& entry : entries_)
            if (entry.location)
                byLocation_[entry.location->native()] = &entry; // the latest counts
            else
                cutShort_.push_back(&entry);
    }

    const std::vector<TrashJournalEntry>& entries() const { return entries_; }

    /// The plan to move this item that a crash kept from being noted as done.
    const TrashJournalEntry* planFor(const ItemIdentity& identity) const {
        for (const TrashJournalEntry* entry : cutShort_)
            if (entry->identity.mayBe(identity))
                return entry;
        return nullptr;
    }

    /// What was noted last of this place.
    const TrashJournalEntry* entryAt(const fs::path& location) const {
        const auto found = byLocation_.find(location.native());
        return found == byLocation_.end() ? nullptr : found->second;
    }

private:
    std::vector<TrashJournalEntry> entries_;
    std::map<std::string, const TrashJournalEntry*> byLocation_;
    std::vector<const TrashJournalEntry*> cutShort_;
};

Origin originOf(const TrashJournalEntry& entry) {
    return {.base = "/", .below = entry.original.relative_path(), .trashedAt = entry.when, .entry = &entry};
}

/// By the desktop's hand another item may have come to this place since, or the same from elsewhere. A note
/// has local time without a zone, so that its time alone proves nothing.
bool isOfLaterMove(const NotedOrigin& note, const TrashJournalEntry& entry, bool isSameItem) {
    if (!note.trashedAt || referenceSeconds(*note.trashedAt) <= referenceSeconds(entry.when) + noteExactness)
        return false;
    if (!isSameItem)
        return true;
    const fs::path path = (note.base / note.relativePath).lexically_normal();
    return path != entry.original &&
           fs::path(resolveLinks(path.parent_path())) / path.filename() != entry.original;
}

/// What is known of an item that lies there now, or why it is not to be restored.
std::expected<Origin, RestoreRefusal> originOf(const fs::path& location, const ItemIdentity& identity,
                                               const Knowledge& knowledge) {
    const TrashJournalEntry* const entry = knowledge.entryAt(location);
    const auto note = notedOrigin(location);
    if (entry != nullptr) {
        const bool isSame = entry->identity.mayBe(identity);
        if (!note || !isOfLaterMove(*note, *entry, isSame))
            return isSame ? std::expected<Origin, RestoreRefusal>(originOf(*entry))
                          : std::unexpected(RestoreRefusal::changed);
    }
    std::optional<Origin> noted;
    if (note)
        noted = Origin{.base = note->base,
                       .below = note->relativePath,
                       .links = note->isOfOthers ? LinksOnTheWay::none : LinksOnTheWay::ofUserOrRoot,
                       .trashedAt = note->trashedAt};
    // Another link to a file has its identity, too: a note knows better.
    if (const TrashJournalEntry* const plan = knowledge.planFor(identity);
        plan != nullptr && (!noted || noted->path() == plan->original))
        return originOf(*plan);
    if (!noted)
        return std::unexpected(RestoreRefusal::unknownOrigin);
    return *noted;
}

bool hasLeft(const TrashJournalEntry& entry) {
    if (!entry.location) // the plan of a process that may still be at it, or that has never come to it
        return referenceSeconds(currentDate()) - referenceSeconds(entry.when) > planPatience;
    std::error_code error;
    if (!fs::is_directory(entry.location->parent_path(), error))
        return false; // a disk that is not there now
    const auto identity = itemIdentity(AT_FDCWD, entry.location->c_str());
    return identity ? !identity->mayBe(entry.identity) : identity.error() == ENOENT;
}

Knowledge knowledgeOf(const TrashJournal& journal) {
    try {
        return Knowledge(journal.entries());
    } catch (const std::exception&) {
        return Knowledge({}); // the notes of the desktop are left
    }
}

/// Items on their way back.
class Return {
public:
    Return(const TrashRestorer& restorer, const Knowledge& knowledge)
        : restorer_(restorer), knowledge_(knowledge) {}

    /// What the journal may forget: of a crash before that, it finds out by itself.
    const std::vector<TrashJournalEntry>& restored() const { return restored_; }

    RestoreOutcome run(const fs::path& source) const {
        const fs::path location(PathUtil::withoutTrailingSlashes(source.native()));
        if (!location.is_absolute() || location.native().find('\0') != std::string::npos)
            return failed(source, EINVAL);
        const auto isThere = TrashFolders::isThere(location.parent_path());
        if (!isThere)
            return failed(source, ETIMEDOUT);
        if (!*isThere)
            return refused(source, RestoreRefusal::notThere);
        const OpenDescriptor trash(openFolder(location.parent_path().native()));
        if (!trash.isOpen())
            return failed(source, errno);
        const std::string name = location.filename().native();
        const auto identity = itemIdentity(trash.number(), name.c_str());
        if (!identity)
            return identity.error() == ENOENT ? refused(source, RestoreRefusal::notThere)
                                              : failed(source, identity.error());
        const auto origin = originOf(location, *identity, knowledge_);
        if (!origin)
            return refused(source, origin.error());
        // Beside any folder somebody may have put what looks like a note.
        if (origin->entry == nullptr && !isTrashFolder(location.parent_path()))
            return refused(source, RestoreRefusal::unknownOrigin);
        RestoreOutcome outcome = moveBack(source, trash, name, *identity, *origin);
        if (outcome.succeeded()) {
            removeNote(location);
            if (origin->entry != nullptr)
                restored_.push_back(*origin->entry);
        }
        return outcome;
    }

private:
    bool isTrashFolder(const fs::path& folder) const {
        if (!trashFolders_) {
            trashFolders_.emplace();
            for (const fs::path& each : restorer_.trashFolders(restorer_.home()))
                trashFolders_->insert(
                    resolveLinks(fs::path(PathUtil::withoutTrailingSlashes(each.native()))));
        }
        return trashFolders_->contains(resolveLinks(folder));
    }

    RestoreOutcome moveBack(const fs::path& source, const OpenDescriptor& trash, const std::string& name,
                            const ItemIdentity& identity, const Origin& origin) const {
        const OpenDescriptor base(openFolder(origin.base.native()));
        if (!base.isOpen())
            return failed(source, errno);
        const OpenDescriptor parent(
            openOrMakeFolder(base.number(), origin.below.parent_path().native(), origin.links));
        if (!parent.isOpen())
            return failed(source, errno);
        const std::string ownName = origin.below.filename().native();
        std::string newName = ownName;
        int error = restorer_.move(trash.number(), name.c_str(), parent.number(), newName.c_str());
        for (int attempt = 1; error == EEXIST && attempt <= mostNames; ++attempt) {
            newName = otherName(ownName, attempt);
            error = restorer_.move(trash.number(), name.c_str(), parent.number(), newName.c_str());
        }
        if (error == EXDEV)
            return refused(source, RestoreRefusal::otherVolume);
        if (error != 0)
            return failed(source, error);
        // Somebody may have put another item in its place between the look and the move.
        const auto moved = itemIdentity(parent.number(), newName.c_str());
        if (moved && !moved->mayBe(identity)) {
            restorer_.move(parent.number(), newName.c_str(), trash.number(), name.c_str());
            return refused(source, RestoreRefusal::changed);
        }
        return {.source = source,
                .restoredTo = origin.path().parent_path() / newName,
                .hasOtherName = newName != ownName};
    }

    const TrashRestorer& restorer_;
    const Knowledge& knowledge_;
    mutable std::vector<TrashJournalEntry> restored_;
    mutable std::optional<std::set<std::string>> trashFolders_; // once they are asked for
};

void addItem(TrashListing& listing, const fs::path& location, const Knowledge& knowledge) {
    const auto identity = itemIdentity(AT_FDCWD, location.c_str());
    if (!identity)
        return;
    TrashedItem item{.location = location, .isFolder = identity->type == VnodeType::directory};
    if (const auto origin = originOf(location, *identity, knowledge)) {
        item.original = origin->path();
        item.trashedAt = origin->trashedAt;
        if (origin->entry != nullptr) {
            item.set = origin->entry->set;
            item.number = origin->entry->number;
        }
    }
    listing.items.push_back(std::move(item));
}

/// The latest first. A set stands together, at the date of its latest item: clocks may have been put back
/// while it was moved. Of sets of one millisecond, which are the same to the journal's clock, the one that
/// was written down last.
void sortByDate(std::vector<TrashedItem>& items, const std::vector<TrashJournalEntry>& entries) {
    std::map<UUID, std::size_t> places;
    for (const TrashJournalEntry& entry : entries)
        places.try_emplace(entry.set, places.size());
    std::map<UUID, std::optional<Date>> datesOfSets;
    for (const TrashedItem& item : items)
        if (item.set) {
            std::optional<Date>& latest = datesOfSets[*item.set];
            latest = std::max(latest, item.trashedAt);
        }
    const auto dateOf = [&](const TrashedItem& item) {
        return item.set ? datesOfSets.at(*item.set) : item.trashedAt;
    };
    std::ranges::sort(items, [&](const TrashedItem& left, const TrashedItem& right) {
        if (dateOf(left) != dateOf(right))
            return dateOf(left) > dateOf(right); // a date before none
        if (left.set != right.set)
            return left.set && right.set ? places[*left.set] > places[*right.set] : left.set > right.set;
        if (left.number != right.number)
            return left.number > right.number;
        return left.location.native() < right.location.native();
    });
}

std::vector<fs::path> liveTrashFolders(const fs::path& home) {
    std::vector<fs::path> folders{TrashFolders::ofHome(home)};
    const std::vector<fs::path> others = TrashFolders::onVolumes();
    folders.insert(folders.end(), others.begin(), others.end());
    return folders;
}

} // namespace

TrashRestorer::TrashRestorer(fs::path home, TrashJournal journal)
    : trashFolders(liveTrashFolders),
      move(moveExclusively),
      home_(std::move(home)),
      journal_(std::move(journal)) {}

std::future<TrashListing> TrashRestorer::list(CancellationToken token) const {
    return runInBackground([restorer = *this, token = std::move(token)]() -> TrashListing {
        const Knowledge knowledge = knowledgeOf(restorer.journal_);
        TrashListing listing;
        std::set<fs::path> seen;
        for (const fs::path& given : restorer.trashFolders(restorer.home())) {
            const fs::path folder(PathUtil::withoutTrailingSlashes(given.native()));
            const auto isThere = TrashFolders::isThere(folder);
            if (!isThere)
                listing.unanswered.push_back(folder);
            if (!isThere.value_or(false) || !seen.insert(folder).second)
                continue;
            std::error_code error;
            for (fs::directory_iterator entry(folder, error), end;
                 !error && entry != end && !token.isCancelled(); entry.increment(error))
                if (entry->path().filename() != ".DS_Store")
                    addItem(listing, entry->path(), knowledge);
        }
        // Where the Trash may not be read, what the journal knows can still be looked at.
        std::set<std::string> listed;
        for (const TrashedItem& item : listing.items)
            listed.insert(item.location.native());
        std::vector<TrashJournalEntry> left;
        for (const TrashJournalEntry& entry : knowledge.entries()) {
            if (token.isCancelled())
                break;
            const fs::path folder = entry.location ? entry.location->parent_path() : fs::path();
            if (entry.location && !TrashFolders::isThere(folder).value_or(false))
                continue;
            if (hasLeft(entry))
                left.push_back(entry);
            else if (entry.location && !listed.contains(entry.location->native()))
                addItem(listing, *entry.location, knowledge);
        }
        restorer.journal_.forget(left);
        sortByDate(listing.items, knowledge.entries());
        return listing;
    });
}

std::future<std::vector<RestoreOutcome>> TrashRestorer::restore(std::vector<fs::path> locations,
                                                                CancellationToken token) const {
    return runInBackground([restorer = *this, locations = std::move(locations), token = std::move(token)] {
        const Knowledge knowledge = knowledgeOf(restorer.journal_);
        // The journal's order is the order of moving; what it does not know comes last.
        std::vector<std::pair<std::ptrdiff_t, std::size_t>> order;
        for (std::size_t index = 0; index < locations.size(); ++index) {
            const TrashJournalEntry* const entry =
                knowledge.entryAt(fs::path(PathUtil::withoutTrailingSlashes(locations[index].native())));
            order.emplace_back(entry == nullptr ? -1 : entry - knowledge.entries().data(), index);
        }
        std::ranges::stable_sort(order, [](const auto& a, const auto& b) { return a.first > b.first; });
        std::vector<RestoreOutcome> outcomes(locations.size());
        const Return itemReturn(restorer, knowledge);
        for (const auto& [place, index] : order) {
            try {
                outcomes[index] = token.isCancelled() ? refused(locations[index], RestoreRefusal::cancelled)
                                                      : itemReturn.run(locations[index]);
            } catch (const std::exception&) {
                outcomes[index] = failed(locations[index], ENOMEM);
            }
        }
        restorer.journal_.forget(itemReturn.restored());
        return outcomes;
    });
}

std::future<std::vector<RestoreOutcome>> TrashRestorer::restoreSet(UUID set, CancellationToken token) const {
    return runInBackground([restorer = *this, set, token = std::move(token)] {
        const std::vector<TrashedItem> items = restorer.list().get().items; // of a set all or none
        const Knowledge knowledge = knowledgeOf(restorer.journal_);
        std::vector<std::pair<std::size_t, fs::path>> ordered;
        for (const TrashedItem& item : items) {
            const auto identity =
                item.set == set ? itemIdentity(AT_FDCWD, item.location.c_str()) : std::unexpected(ENOENT);
            const auto origin = identity ? originOf(item.location, *identity, knowledge)
                                         : std::unexpected(RestoreRefusal::notThere);
            if (origin && origin->entry != nullptr)
                ordered.emplace_back(origin->entry->number, item.location);
        }
        std::ranges::sort(ordered);
        std::vector<fs::path> locations;
        for (auto& [number, location] : ordered)
            locations.push_back(std::move(location));
        return restorer.restore(std::move(locations), token).get();
    });
}

} // namespace tarnwell
