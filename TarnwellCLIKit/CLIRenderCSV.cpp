#include "TarnwellCLIKit/CLIRender.hpp"
#include "TarnwellCLIKit/RowPath.hpp"
#include "TarnwellCLIKit/RowPieces.hpp"
#include "TarnwellCore/Text/DecimalText.hpp"
#include "TarnwellCore/Text/WordScan.hpp"

#include <algorithm>
#include <charconv>
#include <span>

namespace tarnwell::CLIRender {

namespace {

constexpr std::string_view header = "name,path,isDirectory,size,allocatedSize,reclaimableSize,share\n";

bool isQuoted(std::string_view bytes) {
    return WordScan::any(bytes, [](std::uint64_t word) {
        return WordScan::anyEqual(word, ',') | WordScan::anyEqual(word, '"') |
               WordScan::anyEqual(word, '\n') | WordScan::anyEqual(word, '\r');
    });
}

/// Text as it stands in a field; remarkable is what makes the field need quotes around it.
struct FieldForm {
    static bool append(std::string& text, std::string_view bytes) {
        if (!isQuoted(bytes)) [[likely]] {
            text += bytes;
            return false;
        }
        for (const char character : bytes) {
            if (character == '"')
                text += '"';
            text += character;
        }
        return true;
    }

    static std::size_t length(std::string_view bytes) {
        if (!isQuoted(bytes)) [[likely]]
            return bytes.size();
        return bytes.size() + static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '"'));
    }
};

/// The field of a name as a terminal may show it.
struct HarmlessFieldForm {
    static bool append(std::string& text, std::string_view bytes) {
        return isHarmless(bytes) ? FieldForm::append(text, bytes) : FieldForm::append(text, harmless(bytes));
    }

    static std::size_t length(std::string_view bytes) {
        return isHarmless(bytes) ? FieldForm::length(bytes) : FieldForm::length(harmless(bytes));
    }
};

void appendField(std::string& text, std::string_view content, bool isQuotedField) {
    if (isQuotedField)
        text += '"';
    text += content;
    text += isQuotedField ? "\"," : ",";
}

/// The numbers of a row together: they are short.
void appendFields(std::string& text, const CLIListedNode& row) {
    char fields[80];
    char* end = fields;
    for (const std::int64_t number : {row.size(), row.allocatedSize(), row.reclaimableSize()}) {
        end = std::to_chars(end, fields + sizeof fields - 1, number).ptr;
        *end++ = ',';
    }
    text.append(fields, static_cast<std::size_t>(end - fields));
    appendDecimalText(text, row.share);
    text += '\n';
}

/// No rows are longer than this, and none much shorter.
template <class Form>
std::size_t longestRows(std::span<const CLIListedNode> rows) {
    // Four quotes, six commas, "false", a line feed, and the longest double from 0 to 1.
    constexpr std::size_t frame = 4 + 6 + 5 + 1 + 24;
    std::size_t length = 0;
    RowContentLength<Form> content;
    for (const CLIListedNode& row : rows)
        length += frame + content.of(row);
    return length;
}

template <class Form>
void writeRows(TextOutput& output, std::span<const CLIListedNode> rows) {
    std::string& text = output.text();
    RowPath<Form> path;
    for (const CLIListedNode& row : rows) {
        fetchNode(rows, row);
        path.moveTo(*row.node);
        appendField(text, path.name(), path.nameIsRemarkable());
        appendField(text, path.path(), path.pathIsRemarkable());
        text += row.isDirectory() ? "true," : "false,";
        appendFields(text, row);
        output.endPart();
    }
}

template <class Form>
ListingParts csvParts(const CLIListedScan& scan) {
    const std::span<const CLIListedNode> rows = scan.children;
    return {.head = std::string(header),
            .tail = {},
            .rowCount = rows.size(),
            .piece = [rows](std::size_t first, std::size_t last) -> RowPiece {
                return [piece = rows.subspan(first, last - first)](TextOutput& output) {
                    writeRows<Form>(output, piece);
                };
            },
            .longest = [rows] { return longestRows<Form>(rows); }};
}

ListingParts csvParts(const CLIListedScan& scan, NameStyle style) {
    return style == NameStyle::harmless ? csvParts<HarmlessFieldForm>(scan) : csvParts<FieldForm>(scan);
}

} // namespace

std::string csv(const CLIListedScan& scan, NameStyle style) {
    return wholeListing(csvParts(scan, style));
}

void csv(const CLIListedScan& scan, const TextSink& sink, NameStyle style) {
    handOnListing(csvParts(scan, style), sink);
}

} // namespace tarnwell::CLIRender
