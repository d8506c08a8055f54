#include "TarnwellCLIKit/CLIRender.hpp"
#include "TarnwellCLIKit/RowPath.hpp"
#include "TarnwellCLIKit/RowPieces.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"

#include <limits>
#include <memory>
#include <span>
#include <utility>

namespace tarnwell::CLIRender {

namespace {

struct EscapedForm {
    static bool append(std::string& text, std::string_view bytes) {
        JSONWriter::appendEscaped(text, bytes);
        return false;
    }
    static std::size_t length(std::string_view bytes) { return JSONWriter::escapedLength(bytes); }
};

/// No rows are longer than this, and none much shorter.
std::size_t longestRows(const CLIListedScan& scan) {
    // The keys of a row with their quotes, colons, commas and line feeds, "false", and the longest double
    // from 0 to 1; then what the list of children adds.
    constexpr std::size_t rowFrame = 124 + 5 + 24;
    constexpr std::size_t childrenFrame = 20;
    constexpr std::size_t blanksALevel = 2;
    std::size_t length = 0;
    RowContentLength<EscapedForm> content;
    for (const CLIListedNode& row : scan.children) {
        // A row is an object in a list in another row, or in the document.
        const std::size_t level = 2 * (row.depth > 0 ? static_cast<std::size_t>(row.depth) + 1 : 1);
        constexpr std::size_t lines = 7;
        length += rowFrame + blanksALevel * (level * 2 + (level + 1) * lines) + content.of(row);
        if (!row.node->children().empty())
            length += childrenFrame + blanksALevel * (level + 1) * 2;
    }
    return length;
}

/// A place between two rows of a flat list that are written as objects in one another: the row that comes
/// next, and those whose children are being written, the innermost last.
struct RowPlace {
    std::span<const CLIListedNode> rows;
    std::size_t next = 0;
    std::vector<const CLIListedNode*> open;

    bool rowHasChildren() const { return next + 1 < rows.size() && rows[next + 1].depth > rows[next].depth; }
    /// Whether nothing stands in the innermost list yet.
    bool isAtStart() const { return next == 0 || (!open.empty() && open.back() == &rows[next - 1]); }

    /// Closes the rows that one of this depth is not below; `close` gets each of them.
    template <class Close>
    void closeRows(std::int64_t depth, Close close) {
        for (; !open.empty() && open.back()->depth >= depth; open.pop_back())
            close(*open.back());
    }

    /// To before row `last`, without writing any.
    void moveTo(std::size_t last) {
        for (; next < last; ++next) {
            closeRows(rows[next].depth, [](const CLIListedNode&) {});
            if (rowHasChildren())
                open.push_back(&rows[next]);
        }
    }
};

/// Writes rows from a place on.
class RowWriter {
public:
    RowWriter(TextOutput& output, RowPlace place)
        : output_(output),
          place_(std::move(place)),
          json_(output.text(), documentDepth + 2 * place_.open.size(), place_.isAtStart()) {}

    void writeRows(std::size_t last) {
        for (; place_.next < last; ++place_.next) {
            const CLIListedNode& row = place_.rows[place_.next];
            fetchNode(place_.rows, row);
            closeRows(row.depth);
            output_.endPart();
            json_.beginObject();
            json_.escapedKey("allocatedSize");
            json_.integer(row.allocatedSize());
            if (place_.rowHasChildren()) {
                path_.moveTo(*row.node); // on the way to the children's
                json_.escapedKey("children");
                json_.beginArray();
                place_.open.push_back(&row);
            } else {
                finishRow(row);
            }
        }
        if (last == place_.rows.size())
            closeRows(std::numeric_limits<std::int64_t>::min());
    }

    /// The document and its list of rows.
    static constexpr std::size_t documentDepth = 2;

private:
    void closeRows(std::int64_t depth) {
        place_.closeRows(depth, [&](const CLIListedNode& row) {
            json_.endArray();
            finishRow(row);
            output_.endPart();
        });
    }

    /// What stands behind the children: keys go in ascending order.
    void finishRow(const CLIListedNode& row) {
        path_.moveTo(*row.node);
        json_.escapedKey("isDirectory");
        json_.boolean(row.isDirectory());
        json_.escapedKey("name");
        json_.escapedString(path_.name());
        json_.escapedKey("path");
        json_.escapedString(path_.path());
        json_.escapedKey("reclaimableSize");
        json_.integer(row.reclaimableSize());
        json_.escapedKey("share");
        json_.number(row.share);
        json_.escapedKey("size");
        json_.integer(row.size());
        json_.endObject();
    }

    TextOutput& output_;
    RowPlace place_;
    JSONWriter json_;
    RowPath<EscapedForm> path_;
};

std::string beforeRows() {
    std::string text;
    JSONWriter writer(text);
    writer.beginObject();
    writer.key("children");
    writer.beginArray();
    return text;
}

std::string behindRows(const CLIListedScan& scan) {
    std::string text;
    JSONWriter writer(text, RowWriter::documentDepth, scan.children.empty());
    writer.endArray();
    writer.key("path");
    writer.string(scan.path);
    writer.key("sizeMode");
    writer.string(rawValue(scan.mode));
    writer.key("total");
    writer.integer(scan.selectedTotal);
    writer.key("totalAllocatedSize");
    writer.integer(scan.totalAllocatedSize);
    writer.key("totalReclaimableSize");
    writer.integer(scan.totalReclaimableSize);
    writer.key("totalSize");
    writer.integer(scan.totalSize);
    writer.key("version");
    writer.integer(1);
    writer.endObject();
    text += '\n';
    return text;
}

ListingParts jsonParts(const CLIListedScan& scan) {
    return {.head = beforeRows(),
            .tail = behindRows(scan),
            .rowCount = scan.children.size(),
            .piece = [place = std::make_shared<RowPlace>(RowPlace{scan.children, 0, {}})](
                         std::size_t first, std::size_t last) -> RowPiece {
                place->moveTo(first);
                return
                    [start = *place, last](TextOutput& output) { RowWriter(output, start).writeRows(last); };
            },
            .longest = [&scan] { return longestRows(scan); }};
}

} // namespace

std::string json(const CLIListedScan& scan, NameStyle style) {
    std::string document = wholeListing(jsonParts(scan));
    return style == NameStyle::harmless ? harmlessJSON(document) : document;
}

void json(const CLIListedScan& scan, const TextSink& sink, NameStyle style) {
    if (style == NameStyle::verbatim) {
        handOnListing(jsonParts(scan), sink);
        return;
    }
    handOnListing(jsonParts(scan), [&](std::string_view piece) { sink(harmlessJSON(piece)); });
}

} // namespace tarnwell::CLIRender
