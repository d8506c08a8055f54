#include "TarnwellCLIKit/CLIRender.hpp"
#include "TarnwellCLIKit/RowPath.hpp"
#include "TarnwellCore/Text/DecimalText.hpp"

#include <array>
#include <charconv>

namespace tarnwell::CLIRender {

namespace {

constexpr std::string_view header = "name,path,isDirectory,size,allocatedSize,reclaimableSize,share\n";

constexpr std::array<bool, 256> quotedCharacters = [] {
    std::array<bool, 256> table{};
    for (const unsigned char character : {',', '"', '\n', '\r'})
        table[character] = true;
    return table;
}();

bool isQuoted(std::string_view bytes) {
    for (const char character : bytes)
        if (quotedCharacters[static_cast<unsigned char>(character)])
            return true;
    return false;
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
        std::size_t length = bytes.size();
        for (const char character : bytes)
            length += character == '"' ? 1 : 0;
        return length;
    }
};

void appendField(std::string& text, std::string_view content, bool isQuotedField) {
    if (isQuotedField)
        text += '"';
    text += content;
    text += isQuotedField ? "\"," : ",";
}

void appendField(std::string& text, std::int64_t number) {
    char field[24];
    char* const end = std::to_chars(field, field + sizeof field - 1, number).ptr;
    *end = ',';
    text.append(field, static_cast<std::size_t>(end + 1 - field));
}

/// No document is longer than this, and none much shorter.
std::size_t longestDocument(const std::vector<CLIListedNode>& rows) {
    // Four quotes, six commas, "false", a line feed, and the longest double from 0 to 1.
    constexpr std::size_t frame = 4 + 6 + 5 + 1 + 24;
    std::size_t length = header.size();
    RowContentLength<FieldForm> content;
    for (const CLIListedNode& row : rows)
        length += frame + content.of(row);
    return length;
}

} // namespace

std::string csv(const CLIListedScan& scan) {
    std::string text;
    text.reserve(longestDocument(scan.children));
    text += header;
    RowPath<FieldForm> path;
    for (const CLIListedNode& row : scan.children) {
        path.moveTo(*row.node);
        appendField(text, path.name(), path.nameIsRemarkable());
        appendField(text, path.path(), path.pathIsRemarkable());
        text += row.isDirectory() ? "true," : "false,";
        appendField(text, row.size());
        appendField(text, row.allocatedSize());
        appendField(text, row.reclaimableSize());
        appendDecimalText(text, row.share);
        text += '\n';
    }
    return text;
}

} // namespace tarnwell::CLIRender
