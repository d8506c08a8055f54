#include "TarnwellCore/Actions/TrashJournal.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/DurableFile.hpp"
#include "TarnwellCore/Platform/FileLock.hpp"
#include "TarnwellCore/Platform/TrashInfo.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <map>
#include <ranges>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// Others must not keep this from reading by making the file endless.
constexpr std::size_t longestReading = 16 * TrashJournal::largestFile;

[[noreturn]] void fail(int error, const char* attempt, const fs::path& path) {
    throw std::system_error(error, std::generic_category(), attempt + path.string());
}

template <class Number>
std::optional<Number> numberOf(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// Takes the text up to the next separator off the front.
std::string_view takeField(std::string_view& text, char separator) {
    const std::size_t length = std::min(text.find(separator), text.size());
    const std::string_view field = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return field;
}

std::string identityText(const ItemIdentity& identity) {
    return std::to_string(identity.device) + ":" + std::to_string(identity.inode) + ":" +
           std::to_string(static_cast<std::uint32_t>(identity.type)) + ":" +
           (identity.birth ? std::to_string(*identity.birth) : "-");
}

std::optional<ItemIdentity> identityOf(std::string_view text) {
    const auto device = numberOf<std::uint64_t>(takeField(text, ':'));
    const auto inode = numberOf<std::uint64_t>(takeField(text, ':'));
    const auto type = numberOf<std::uint32_t>(takeField(text, ':'));
    const auto birth = numberOf<std::int64_t>(text);
    if (!device || !inode || !type || (!birth && text != "-"))
        return std::nullopt;
    return ItemIdentity{*device, *inode, static_cast<VnodeType>(*type), birth};
}

std::string timeText(Date when) {
    return std::to_string(std::llround(referenceSeconds(when) * 1000));
}

std::string line(std::string_view kind, const UUID& set, std::size_t number, Date when,
                 const ItemIdentity& identity, const fs::path& path) {
    return std::string(kind) + "\t" + set.text() + "\t" + std::to_string(number) + "\t" + timeText(when) +
           "\t" + identityText(identity) + "\t" + percentEscaped(path.native()) + "\n";
}

std::string goneLine(const TrashJournalEntry& entry) {
    return "gone\t" + entry.set.text() + "\t" + std::to_string(entry.number) + "\n";
}

/// Closed with its owner.
class OpenFile {
public:
    OpenFile(int descriptor, const FileCalls& calls) : descriptor_(descriptor), calls_(calls) {}
    ~OpenFile() {
        if (descriptor_ != -1)
            calls_.close(descriptor_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    bool isOpen() const { return descriptor_ != -1; }
    int number() const { return descriptor_; }

    bool isRegular() const {
        struct stat status = {};
        return ::fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
    }
    /// Whether a crash has cut the last line short.
    bool endsWithinALine() const {
        struct stat status = {};
        char last = '\n';
        return ::fstat(descriptor_, &status) == 0 && status.st_size > 0 &&
               ::pread(descriptor_, &last, 1, status.st_size - 1) == 1 && last != '\n';
    }

private:
    int descriptor_;
    const FileCalls& calls_;
};

using Key = std::pair<UUID, std::size_t>;

/// What lines have told so far.
class Reading {
public:
    void readLine(std::string_view text) {
        const std::string_view kind = takeField(text, '\t');
        const auto set = UUID::parse(takeField(text, '\t'));
        const auto number = numberOf<std::size_t>(takeField(text, '\t'));
        if (!set || !number)
            return;
        if (kind == "gone") {
            entries_.erase({*set, *number});
            return;
        }
        const auto time = numberOf<std::int64_t>(takeField(text, '\t'));
        const auto identity = identityOf(takeField(text, '\t'));
        auto path = percentDecoded(takeField(text, '\t'));
        if (!time || !identity || !path || !path->starts_with('/') || path->find('\0') != std::string::npos)
            return;
        if (kind == "plan") {
            const auto [planned, isNew] = entries_.try_emplace(
                Key(*set, *number), order_,
                TrashJournalEntry{.set = *set,
                                  .number = *number,
                                  .when = dateFromReferenceSeconds(static_cast<double>(*time) / 1000),
                                  .original = *std::move(path),
                                  .location = {},
                                  .identity = *identity});
            order_ += isNew ? 1 : 0;
        } else if (kind == "moved") {
            const auto planned = entries_.find({*set, *number});
            if (planned == entries_.end())
                return;
            // A set may take long: what lies in the Trash came there now, not when all of it was planned.
            planned->second.second.when = dateFromReferenceSeconds(static_cast<double>(*time) / 1000);
            planned->second.second.location = *std::move(path);
            planned->second.second.identity = *identity;
        }
    }

    std::vector<TrashJournalEntry> inOrder() && {
        std::vector<std::pair<std::size_t, TrashJournalEntry>> ordered;
        ordered.reserve(entries_.size());
        for (auto& [key, entry] : entries_)
            ordered.push_back(std::move(entry));
        std::ranges::sort(ordered, {}, [](const auto& entry) { return entry.first; });
        std::vector<TrashJournalEntry> entries;
        entries.reserve(ordered.size());
        for (auto& [order, entry] : ordered)
            entries.push_back(std::move(entry));
        return entries;
    }

private:
    std::size_t order_ = 0;
    std::map<Key, std::pair<std::size_t, TrashJournalEntry>> entries_;
};

} // namespace

/// The journal while nobody else has it.
class TrashJournal::Locked {
public:
    explicit Locked(const TrashJournal& journal)
        : journal_(journal), lock_(withFolder(journal), journal.calls_, journal.patience) {}

    std::vector<TrashJournalEntry> read() const {
        Reading reading;
        const std::string whole = text();
        // The last line counts only with its end.
        for (std::string_view rest = whole; rest.find('\n') != std::string_view::npos;)
            reading.readLine(takeField(rest, '\n'));
        return std::move(reading).inOrder();
    }

    /// Adds lines at the end of the file.
    void append(std::string_view lines, bool durably) {
        const OpenFile file(open(journal_.file_, O_RDWR | O_APPEND | O_CREAT), journal_.calls_);
        if (!file.isOpen())
            fail(errno, "Could not open ", journal_.file_);
        if (!file.isRegular())
            fail(EINVAL, "Could not write ", journal_.file_);
        const std::string text = (file.endsWithinALine() ? "\n" : "") + std::string(lines);
        for (std::string_view rest = text; !rest.empty();) {
            const ssize_t written = withoutInterruption(
                [&] { return journal_.calls_.write(file.number(), rest.data(), rest.size()); });
            if (written <= 0)
                fail(written == 0 ? EIO : errno, "Could not write ", journal_.file_);
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
        if (durably && withoutInterruption([&] { return journal_.calls_.sync(file.number()); }) == -1)
            fail(errno, "Could not write ", journal_.file_);
    }

    /// Keeps of these entries the newest that fit into so many bytes.
    void replace(const std::vector<TrashJournalEntry>& entries, std::size_t mostBytes = SIZE_MAX) {
        std::vector<std::string> lines;
        std::size_t size = 0;
        for (const TrashJournalEntry& entry : std::views::reverse(entries)) {
            std::string text =
                line("plan", entry.set, entry.number, entry.when, entry.identity, entry.original);
            if (entry.location)
                text += line("moved", entry.set, entry.number, entry.when, entry.identity, *entry.location);
            size += text.size();
            if (size > mostBytes)
                break;
            lines.push_back(std::move(text));
        }
        std::string whole;
        for (const std::string& each : std::views::reverse(lines))
            whole += each;
        replaceFileDurably(journal_.file_, whole, journal_.calls_);
    }

    std::uintmax_t size() const {
        std::error_code error;
        const std::uintmax_t size = fs::file_size(journal_.file_, error);
        return error ? 0 : size;
    }

private:
    /// Nobody but the user may open it, and it is no link or device that somebody put there.
    int open(const fs::path& path, int flags) const {
        return withoutInterruption([&] {
            return journal_.calls_.open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                                        0600);
        });
    }

    std::string text() const {
        const OpenFile file(open(journal_.file_, O_RDONLY), journal_.calls_);
        if (!file.isOpen()) {
            if (errno == ENOENT)
                return {};
            fail(errno, "Could not open ", journal_.file_);
        }
        if (!file.isRegular())
            fail(EINVAL, "Could not read ", journal_.file_);
        std::string text;
        std::array<char, 16'384> buffer;
        while (text.size() < longestReading) {
            const ssize_t count = withoutInterruption(
                [&] { return journal_.calls_.read(file.number(), buffer.data(), buffer.size()); });
            if (count < 0)
                fail(errno, "Could not read ", journal_.file_);
            if (count == 0)
                break;
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

    static const fs::path& withFolder(const TrashJournal& journal) {
        createFoldersDurably(journal.file_.parent_path(), journal.calls_);
        return journal.file_;
    }

    const TrashJournal& journal_;
    const FileLock lock_;
};

TrashJournal::TrashJournal(fs::path file, FileCalls calls)
    : file_(std::move(file)), calls_(std::move(calls)) {}

fs::path TrashJournal::defaultFile() {
    const std::optional<fs::path> support = applicationSupportDirectory();
    return (support ? *support : homeDirectory() / "Library/Application Support") / "Tarnwell" /
           "trash-journal.txt";
}

TrashJournal::Set TrashJournal::plan(const std::vector<fs::path>& items) const noexcept {
    Set set(nullptr);
    try {
        std::string lines;
        set.isPlanned_.resize(items.size());
        for (std::size_t number = 0; number < items.size(); ++number) {
            const fs::path item(PathUtil::withoutTrailingSlashes(items[number].native()));
            const auto identity = itemIdentity(AT_FDCWD, item.c_str());
            if (!identity || item.native().find('\0') != std::string::npos)
                continue;
            const fs::path folder = item.has_parent_path() ? item.parent_path() : fs::path(".");
            const fs::path original = fs::path(resolveLinks(folder)) / item.filename();
            if (!original.is_absolute())
                continue;
            lines += line("plan", set.id_, number, currentDate(), *identity, original);
            set.isPlanned_[number] = true;
        }
        if (lines.empty())
            return set;
        Locked locked(*this);
        if (locked.size() + lines.size() > largestFile) {
            std::vector<TrashJournalEntry> entries = locked.read();
            if (entries.size() > mostEntries)
                entries.erase(entries.begin(), entries.end() - mostEntries);
            locked.replace(entries, largestFile / 2); // not at the limit again with the next set
        }
        locked.append(lines, true);
        set.journal_ = this;
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // The items are moved all the same.
    }
    return set;
}

void TrashJournal::Set::noteMoved(std::size_t number, const fs::path& location) noexcept {
    if (journal_ == nullptr || number >= isPlanned_.size() || !isPlanned_[number])
        return;
    try {
        if (const auto identity = itemIdentity(AT_FDCWD, location.c_str())) {
            Locked(*journal_).append(line("moved", id_, number, currentDate(), *identity, location), false);
            hasMoved_ = true;
        }
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // The plan is there: who looks for the item finds it by its identity.
    }
}

TrashJournal::Set::Set(Set&& other) noexcept
    : journal_(std::exchange(other.journal_, nullptr)),
      id_(other.id_),
      isPlanned_(std::move(other.isPlanned_)),
      hasMoved_(other.hasMoved_) {}

TrashJournal::Set::~Set() {
    if (journal_ == nullptr || !hasMoved_)
        return;
    try {
        Locked(*journal_).append("", true);
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
    }
}

std::vector<TrashJournalEntry> TrashJournal::entries() const {
    std::error_code error;
    if (!fs::exists(file_, error) && !error)
        return {}; // and no folder is made for it
    return Locked(*this).read();
}

void TrashJournal::forget(const std::vector<TrashJournalEntry>& entries) const noexcept {
    if (entries.empty())
        return;
    try {
        Locked locked(*this);
        std::string lines;
        for (const TrashJournalEntry& entry : entries)
            lines += goneLine(entry);
        locked.append(lines, true);
        // What is left of a large set may be about to be restored: all of it is kept.
        if (locked.size() > largestFile / 4)
            locked.replace(locked.read());
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // What is gone is found to be gone the next time as well.
    }
}

} // namespace tarnwell
