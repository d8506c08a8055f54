#include "TarnwellTidyKit/Commands/ChangesDigest.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"
#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace tarnwell {

namespace {

TidyRole roleOf(std::int64_t change) {
    return change > 0 ? TidyRole::warning : TidyRole::good;
}

std::int64_t changeOf(const SnapshotDigest::CategoryChange& category) {
    return sizeDifference(category.after, category.before);
}

void addTable(std::string& text, const TidyStyle& style, std::string_view heading, const TidyTable& table) {
    if (table.isEmpty())
        return;
    text += '\n' + style.painted(heading, TidyRole::heading) + '\n';
    table.write(text, style);
}

TidyTable folderTable(const std::vector<SnapshotDigest::Folder>& folders) {
    TidyTable table({TidyColumn::right, TidyColumn::path}, 2);
    for (const SnapshotDigest::Folder& folder : folders)
        table.row({{sizeText(folder.size)}, {folder.path}});
    return table;
}

void writeFolders(JSONWriter& json, std::string_view key,
                  const std::vector<SnapshotDigest::Folder>& folders) {
    json.key(key);
    json.beginArray();
    for (const SnapshotDigest::Folder& folder : folders) {
        json.beginObject();
        json.key("path");
        json.string(folder.path);
        json.key("size");
        json.integer(folder.size);
        json.endObject();
    }
    json.endArray();
}

void writeSpace(JSONWriter& json, std::string_view key, const std::optional<VolumeSpace>& space) {
    json.key(key);
    if (!space) {
        json.null();
        return;
    }
    json.beginObject();
    json.key("available");
    json.integer(space->free);
    json.key("capacity");
    json.integer(space->capacity);
    json.endObject();
}

} // namespace

std::string digestText(const SnapshotDigest& digest, const TidyStyle& style) {
    std::string text = style.painted(harmless(digest.rootPath), TidyRole::heading) + " since " +
                       dayText(digest.from) + ": " + signedSizeText(digest.netChange) + ", from " +
                       sizeText(digest.sizeBefore) + " to " + sizeText(digest.sizeAfter) + " allocated\n";
    if (digest.spaceAfter) {
        text += "  Its volume has " + sizeText(digest.spaceAfter->free) + " free of " +
                sizeText(digest.spaceAfter->capacity);
        if (digest.spaceBefore)
            text += ", " + sizeText(digest.spaceBefore->free) + " then";
        text += "\n";
    }
    TidyTable causes({TidyColumn::right, TidyColumn::left, TidyColumn::path}, 2);
    for (const SnapshotDigest::Cause& cause : digest.causes)
        causes.row({{signedSizeText(cause.change), roleOf(cause.change)},
                    {std::string(rawValue(cause.kind)), TidyRole::quiet},
                    {cause.path}});
    TidyTable categories({TidyColumn::right, TidyColumn::left, TidyColumn::left}, 2);
    for (const SnapshotDigest::CategoryChange& category : digest.categories)
        categories.row({{signedSizeText(changeOf(category)), roleOf(changeOf(category))},
                        {std::string(displayName(category.category))},
                        {"now " + sizeText(category.after), TidyRole::quiet}});
    addTable(text, style, "Largest changes", causes);
    addTable(text, style, "New folders", folderTable(digest.newFolders));
    addTable(text, style, "Folders that are gone", folderTable(digest.goneFolders));
    addTable(text, style, "Categories", categories);
    if (digest.causes.empty())
        text += "  No change is that large.\n";
    return text;
}

void writeCause(JSONWriter& json, std::string_view kind, std::string_view path, std::int64_t before,
                std::int64_t after, std::int64_t change) {
    json.beginObject();
    json.key("after");
    json.integer(after);
    json.key("before");
    json.integer(before);
    json.key("delta");
    json.integer(change);
    json.key("kind");
    json.string(kind);
    json.key("path");
    json.string(path);
    json.endObject();
}

void writeSince(JSONWriter& json, const UUID& id, Date createdAt) {
    json.key("since");
    json.beginObject();
    json.key("createdAt");
    json.string(iso8601Text(createdAt).value_or(""));
    json.key("id");
    json.string(id.text());
    json.endObject();
}

std::string digestDocument(const SnapshotDigest& digest, const UUID& since, const ScanStats& stats) {
    return tidyDocument([&](JSONWriter& json) {
        json.key("categories");
        json.beginArray();
        for (const SnapshotDigest::CategoryChange& category : digest.categories) {
            json.beginObject();
            json.key("after");
            json.integer(category.after);
            json.key("before");
            json.integer(category.before);
            json.key("category");
            json.string(displayName(category.category));
            json.key("delta");
            json.integer(changeOf(category));
            json.endObject();
        }
        json.endArray();
        json.key("causes");
        json.beginArray();
        for (const SnapshotDigest::Cause& cause : digest.causes) {
            writeCause(json, rawValue(cause.kind), cause.path, cause.before, cause.after, cause.change);
        }
        json.endArray();
        writeFolders(json, "goneFolders", digest.goneFolders);
        writeUnreadable(json, stats);
        writeFolders(json, "newFolders", digest.newFolders);
        json.key("path");
        json.string(digest.rootPath);
        writeSince(json, since, digest.from);
        json.key("sizeMode");
        json.string(rawValue(SizeMode::allocated));
        writeSpace(json, "spaceAfter", digest.spaceAfter);
        writeSpace(json, "spaceBefore", digest.spaceBefore);
        json.key("total");
        json.integer(digest.netChange);
    });
}

} // namespace tarnwell
