#pragma once

// A reader of CSV documents, to tell whether a document says what it should.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell::test {

/// The fields of a document, row by row. Nothing when it is malformed: a row without a line feed at its end,
/// a quote or a carriage return in a bare field, anything but a comma or a line feed behind a closing quote.
std::optional<std::vector<std::vector<std::string>>> readCSV(std::string_view document);

} // namespace tarnwell::test
