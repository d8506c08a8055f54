#include "TarnwellCLIKit/CLIRender.hpp"
#include "TarnwellCLIKit/RowPath.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"

namespace tarnwell::CLIRender {

namespace {

struct EscapedForm {
    static bool append(std::string& text, std::string_view bytes) {
        JSONWriter::appendEscaped(text, bytes);
        return false;
    }
    static std::size_t length(std::string_view bytes) { return JSONWriter::escapedLength(bytes); }
};

/// No document is longer than this, and none much shorter.
std::size_t longestDocument(const CLIListedScan& scan) {
    constexpr std::size_t documentFrame = 300;
    // The keys of a row with their quotes, colons, commas and line feeds, "false", and the longest double
    // from 0 to 1; then what the list of children adds.
    constexpr std::size_t rowFrame = 124 + 5 + 24;
    constexpr std::size_t childrenFrame = 20;
    constexpr std::size_t blanksALevel = 2;
    std::size_t length = documentFrame + JSONWriter::escapedLength(scan.path);
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

/// Writes the rows of a flat list as objects in one another.
class RowWriter {
public:
    RowWriter(JSONWriter& json, TextOutput& output) : json_(json), output_(output) {}

    void writeRows(const std::vector<CLIListedNode>& rows) {
        for (auto row = rows.begin(); row != rows.end(); ++row) {
            closeRows(row->depth);
            output_.endPart();
            json_.beginObject();
            json_.key("allocatedSize");
            json_.integer(row->allocatedSize());
            const auto next = row + 1;
            if (next != rows.end() && next->depth > row->depth) {
                path_.moveTo(*row->node); // on the way to the children's
                json_.key("children");
                json_.beginArray();
                open_.push_back(&*row);
            } else {
                finishRow(*row);
            }
        }
        while (!open_.empty())
            closeLastRow();
    }

private:
    /// Closes the rows that a row of this depth is not below.
    void closeRows(std::int64_t depth) {
        while (!open_.empty() && open_.back()->depth >= depth)
            closeLastRow();
    }

    void closeLastRow() {
        json_.endArray();
        finishRow(*open_.back());
        open_.pop_back();
    }

    /// What stands behind the children: keys go in ascending order.
    void finishRow(const CLIListedNode& row) {
        path_.moveTo(*row.node);
        json_.key("isDirectory");
        json_.boolean(row.isDirectory());
        json_.key("name");
        json_.escapedString(path_.name());
        json_.key("path");
        json_.escapedString(path_.path());
        json_.key("reclaimableSize");
        json_.integer(row.reclaimableSize());
        json_.key("share");
        json_.number(row.share);
        json_.key("size");
        json_.integer(row.size());
        json_.endObject();
    }

    JSONWriter& json_;
    TextOutput& output_;
    RowPath<EscapedForm> path_;
    /// Rows whose children are being written, the innermost last.
    std::vector<const CLIListedNode*> open_;
};

std::string writeDocument(const CLIListedScan& scan, TextOutput output) {
    output.reserve([&] { return longestDocument(scan); });
    JSONWriter writer(output.text());
    writer.beginObject();
    writer.key("children");
    writer.beginArray();
    RowWriter(writer, output).writeRows(scan.children);
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
    output.text() += '\n';
    return output.finish();
}

} // namespace

std::string json(const CLIListedScan& scan, NameStyle style) {
    std::string document = writeDocument(scan, TextOutput());
    return style == NameStyle::harmless ? harmlessJSON(document) : document;
}

void json(const CLIListedScan& scan, const TextSink& sink, NameStyle style) {
    if (style == NameStyle::verbatim) {
        writeDocument(scan, TextOutput(sink));
        return;
    }
    const TextSink harmlessSink = [&](std::string_view piece) { sink(harmlessJSON(piece)); };
    writeDocument(scan, TextOutput(harmlessSink));
}

} // namespace tarnwell::CLIRender
