#include "Tests/Support/PlainCSV.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace tarnwell::test {

namespace {

/// Takes the content of a field up to what ends it; nothing when it is malformed.
std::optional<std::string> takeField(std::string_view& document) {
    std::string content;
    if (!document.starts_with('"')) {
        const std::size_t end = std::min(document.find_first_of(",\n\"\r"), document.size());
        content = document.substr(0, end);
        document.remove_prefix(end);
        return content;
    }
    for (;;) {
        document.remove_prefix(1); // the opening quote, or the second one of a pair
        const std::size_t quote = document.find('"');
        if (quote == document.npos)
            return std::nullopt;
        content += document.substr(0, quote);
        document.remove_prefix(quote + 1);
        if (!document.starts_with('"'))
            return content;
        content += '"';
    }
}

} // namespace

std::optional<std::vector<std::vector<std::string>>> readCSV(std::string_view document) {
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row;
    while (!document.empty()) {
        std::optional<std::string> field = takeField(document);
        if (!field || !(document.starts_with(',') || document.starts_with('\n')))
            return std::nullopt;
        row.push_back(*std::move(field));
        if (document.front() == '\n')
            rows.push_back(std::exchange(row, {}));
        document.remove_prefix(1);
    }
    if (!row.empty())
        return std::nullopt;
    return rows;
}

} // namespace tarnwell::test
