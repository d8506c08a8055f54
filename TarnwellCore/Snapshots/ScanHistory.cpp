#include "TarnwellCore/Snapshots/ScanHistory.hpp"

#include "TarnwellCore/Platform/DefaultsDocument.hpp"
#include "TarnwellCore/Platform/DurableFile.hpp"
#include "TarnwellCore/Platform/FileLock.hpp"
#include "TarnwellCore/Platform/KeptAside.hpp"
#include "TarnwellCore/Platform/LenientJSON.hpp"
#include "TarnwellCore/Platform/WholeFile.hpp"
#include "TarnwellCore/Snapshots/EscapedPath.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

constexpr std::string_view scansMember = "scans";
constexpr std::string_view escapedMember = "escapedPaths";
constexpr std::string_view categoriesMember = "categories";

struct Figure {
    std::string_view name;
    std::int64_t ScanRecord::* place;
};
constexpr Figure figures[] = {{"totalSize", &ScanRecord::totalSize},
                              {"totalAllocatedSize", &ScanRecord::totalAllocatedSize},
                              {"totalReclaimableSize", &ScanRecord::totalReclaimableSize},
                              {"fileCount", &ScanRecord::fileCount},
                              {"directoryCount", &ScanRecord::directoryCount},
                              {"unreadableFolderCount", &ScanRecord::unreadableFolderCount}};

// --- One scan ---------------------------------------------------------------------------------------------

template <class Value>
std::optional<Value> valueOf(const DefaultsDocument& document, std::string_view name) {
    const std::optional<UserDefaultsValue> value = document.value(name);
    const Value* const exact = value ? std::get_if<Value>(&*value) : nullptr;
    return exact != nullptr ? std::optional(*exact) : std::nullopt;
}

std::string lineOf(const ScanRecord& record) {
    const std::optional<std::string> finishedAt = iso8601Text(record.finishedAt);
    if (!finishedAt)
        throw std::range_error("The scan's date lies outside the years 1 to 9999.");
    DefaultsDocument scan;
    scan.set("finishedAt", *finishedAt);
    const bool isEscaped = !isValidUTF8(record.rootPath);
    scan.set("rootPath", isEscaped ? escapedPath(record.rootPath) : record.rootPath);
    if (isEscaped)
        scan.set(escapedMember, true);
    if (std::isfinite(record.duration))
        scan.set("duration", record.duration);
    for (const auto& [name, place] : figures)
        scan.set(name, record.*place);
    if (record.volume) {
        scan.set("volumeCapacity", record.volume->capacity);
        scan.set("volumeFreeBytes", record.volume->free);
    }
    if (!record.categories.empty()) {
        DefaultsDocument categories;
        for (const auto& [category, size] : record.categories)
            categories.set(std::to_string(rawValue(category)), size);
        scan.setJSON(categoriesMember, categories.line());
    }
    return scan.line();
}

ScanRecord::CategorySizes categoriesOf(const DefaultsDocument& scan) {
    ScanRecord::CategorySizes sizes;
    const std::optional<DefaultsDocument> document = DefaultsDocument::parse(scan.json(categoriesMember));
    if (!document)
        return sizes;
    for (const FileCategory category : allFileCategories())
        if (const auto size = valueOf<std::int64_t>(*document, std::to_string(rawValue(category))))
            sizes.emplace(category, *size);
    return sizes;
}

/// Nothing where it is no scan, or one of a kind that this program does not know.
std::optional<ScanRecord> recordFrom(std::string_view json) {
    const std::optional<DefaultsDocument> scan = DefaultsDocument::parse(json);
    if (!scan)
        return std::nullopt;
    const auto path = valueOf<std::string>(*scan, "rootPath");
    const auto dateText = valueOf<std::string>(*scan, "finishedAt");
    const std::optional<Date> date = dateText ? dateFromISO8601(*dateText) : std::nullopt;
    if (!path || !date)
        return std::nullopt;
    ScanRecord record;
    record.rootPath = valueOf<bool>(*scan, escapedMember).value_or(false) ? unescapedPath(*path) : *path;
    record.finishedAt = *date;
    const auto whole = valueOf<std::int64_t>(*scan, "duration").value_or(0);
    record.duration = valueOf<double>(*scan, "duration").value_or(static_cast<double>(whole));
    for (const auto& [name, place] : figures)
        record.*place = valueOf<std::int64_t>(*scan, name).value_or(0);
    if (!valueOf<std::int64_t>(*scan, "totalReclaimableSize"))
        record.totalReclaimableSize = record.totalAllocatedSize;
    const auto capacity = valueOf<std::int64_t>(*scan, "volumeCapacity");
    const auto free = valueOf<std::int64_t>(*scan, "volumeFreeBytes");
    if (capacity && free)
        record.volume = VolumeSpace{.capacity = *capacity, .free = *free};
    record.categories = categoriesOf(*scan);
    return record;
}

// --- The file ---------------------------------------------------------------------------------------------

struct History {
    /// A file is there, and it is none.
    bool isDamaged = false;
    DefaultsDocument document = {};
    /// The text of each scan, oldest first.
    std::vector<std::string> scans = {};
};

History readHistory(const fs::path& path, const FileCalls& calls) {
    History history;
    WholeFile file = WholeFile::read(path, calls);
    if (file.outcome == WholeFile::Outcome::unavailable)
        throw std::system_error(file.error, std::generic_category(), "Could not read " + path.string());
    if (file.outcome == WholeFile::Outcome::missing)
        return history;
    history.isDamaged = true;
    if (file.outcome == WholeFile::Outcome::forbidden)
        return history;
    std::optional<DefaultsDocument> document = DefaultsDocument::parse(file.text);
    if (!document || (document->hasMember(scansMember) && !document->json(scansMember).starts_with('[')))
        return history;
    history.isDamaged = false;
    history.document = std::move(*document);
    for (const std::string_view scan : jsonElements(history.document.json(scansMember)))
        history.scans.emplace_back(scan);
    return history;
}

/// Drops the oldest scans of those that can be read.
void dropBeyondCapacity(std::vector<std::string>& scans) {
    struct Dated {
        Date date;
        std::string* text;
    };
    if (scans.size() <= ScanHistory::capacity)
        return;
    std::vector<Dated> dated;
    for (std::string& text : scans)
        if (const std::optional<ScanRecord> record = recordFrom(text))
            dated.push_back({record->finishedAt, &text});
    std::ranges::stable_sort(dated, std::less(), &Dated::date);
    for (std::size_t index = 0; index + ScanHistory::capacity < dated.size(); ++index)
        dated[index].text->clear();
    std::erase(scans, std::string());
}

std::string listText(const std::vector<std::string>& scans) {
    std::string text = "[";
    for (const std::string& scan : scans)
        text.append(text.size() > 1 ? ",\n    " : "\n    ").append(scan);
    return text + "\n  ]";
}

} // namespace

ScanHistory::ScanHistory(std::optional<fs::path> file, FileCalls calls)
    : file_(file ? std::move(*file) : defaultFile()), calls_(std::move(calls)) {}

fs::path ScanHistory::defaultFile() {
    return SnapshotStore::defaultDirectory().parent_path() / "scan-history.json";
}

void ScanHistory::note(const ScanRecord& record) const {
    const std::string line = lineOf(record);
    createFoldersDurably(file_.parent_path(), calls_);
    const FileLock turn(file_, calls_);
    History history = readHistory(file_, calls_);
    history.scans.push_back(line);
    dropBeyondCapacity(history.scans);
    history.document.setJSON(scansMember, listText(history.scans));
    if (!history.document.hasMember("version"))
        history.document.set("version", std::int64_t{1});
    std::optional<KeptAside> damaged;
    if (history.isDamaged)
        damaged.emplace(file_, calls_);
    try {
        replaceFileDurably(file_, history.document.text(), calls_);
    } catch (...) {
        if (damaged)
            damaged->undoUnlessReplaced();
        throw;
    }
}

std::vector<ScanRecord> ScanHistory::list() const {
    const History history = readHistory(file_, calls_);
    std::vector<ScanRecord> records;
    for (auto text = history.scans.rbegin(); text != history.scans.rend(); ++text)
        if (std::optional<ScanRecord> record = recordFrom(*text))
            records.push_back(std::move(*record));
    std::ranges::stable_sort(records, std::greater(), &ScanRecord::finishedAt);
    return records;
}

std::vector<ScanRecord> ScanHistory::series(std::string_view rootPath) const {
    std::vector<ScanRecord> records = list();
    std::erase_if(records, [&](const ScanRecord& record) { return record.rootPath != rootPath; });
    std::ranges::reverse(records);
    return records;
}

const ScanRecord* recordOf(const ScanSnapshot& snapshot, std::span<const ScanRecord> records) {
    const ScanRecord* nearest = nullptr;
    const auto distance = [&](const ScanRecord& record) {
        return std::abs((record.finishedAt - snapshot.createdAt).count());
    };
    for (const ScanRecord& record : records)
        if (record.rootPath == snapshot.rootPath && record.totalSize == snapshot.totalSize &&
            record.totalAllocatedSize == snapshot.totalAllocatedSize && distance(record) <= 3600 &&
            (nearest == nullptr || distance(record) < distance(*nearest)))
            nearest = &record;
    return nearest;
}

} // namespace tarnwell
