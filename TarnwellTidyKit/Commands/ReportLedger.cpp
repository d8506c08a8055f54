#include "TarnwellTidyKit/Commands/ReportLedger.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"

#include <array>
#include <string_view>

namespace tarnwell {

namespace {

constexpr std::array<std::string_view, ledgerEntryCount> names = {
    "measured", "sharedTwice", "folders",   "unreadable",  "excluded", "mounted",
    "outside",  "snapshots",   "purgeable", "unexplained", "excess"};

void writeBytes(JSONWriter& json, std::optional<std::int64_t> bytes) {
    bytes ? json.integer(*bytes) : json.null();
}

} // namespace

std::string ledgerText(const VolumeLedger& ledger, const TidyStyle& style) {
    std::string heading = "Where the rest of the volume is";
    if (ledger.volume)
        heading = "Where " + (ledger.used ? sizeText(*ledger.used) + " of " : std::string()) +
                  harmless(ledger.volume->path) + (ledger.used ? " are" : " is");
    std::string text = style.painted(heading, TidyRole::heading) + "\n";
    TidyTable table({TidyColumn::right, TidyColumn::sentence, TidyColumn::left}, 2);
    for (const LedgerLine& line : ledger.lines) {
        TidyTable::Cell figure{"not known", TidyRole::quiet};
        if (line.bytes)
            figure = {(line.isSubtracted && *line.bytes > 0 ? "-" : "") + sizeText(*line.bytes)};
        table.row({figure,
                   {std::string(tarnwell::text(line.entry))},
                   {line.count > 0 ? groupedNumber(line.count) : std::string(), TidyRole::quiet}});
    }
    table.write(text, style);
    return text;
}

void writeLedger(JSONWriter& json, const VolumeLedger& ledger) {
    json.beginObject();
    json.key("lines");
    json.beginArray();
    for (const LedgerLine& line : ledger.lines) {
        json.beginObject();
        json.key("bytes");
        writeBytes(json, line.bytes);
        json.key("count");
        json.integer(line.count);
        json.key("entry");
        json.string(names.at(static_cast<std::size_t>(line.entry)));
        json.key("isSubtracted");
        json.boolean(line.isSubtracted);
        json.key("paths");
        json.beginArray();
        for (const std::string& path : line.paths)
            json.string(path);
        json.endArray();
        json.key("text");
        json.string(text(line.entry));
        json.endObject();
    }
    json.endArray();
    json.key("path");
    ledger.volume ? json.string(ledger.volume->path) : json.null();
    json.key("used");
    writeBytes(json, ledger.used);
    json.endObject();
}

} // namespace tarnwell
