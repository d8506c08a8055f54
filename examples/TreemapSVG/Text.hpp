#pragma once

// Names of files as text in a picture. Names are any bytes; an SVG document holds only characters of XML.

#include <string>
#include <string_view>

namespace example {

/// The name in UTF-8: ill-formed parts become U+FFFD, what steers a terminal or turns text around is left
/// out.
std::string printable(std::string_view name);

/// Printable text with the markup characters of XML escaped.
std::string escaped(std::string_view printable);

/// Points that printable text takes in a common sans-serif font of this size, estimated on the safe side.
double textWidth(std::string_view printable, double fontSize);

/// The text, or as much of its beginning as fits the width with "…"; empty when that would say nothing.
std::string fitted(std::string_view printable, double width, double fontSize);

} // namespace example
