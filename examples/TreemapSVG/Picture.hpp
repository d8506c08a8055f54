#pragma once

// A treemap of a scanned folder as an SVG document.

#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstdint>
#include <string>

namespace example {

/// `levels` of folders are drawn into one another, 1 or more. The same scan always gives the same bytes.
std::string treemapPicture(const tarnwell::ScanResult& scan, std::int64_t levels, tarnwell::SizeMode mode);

} // namespace example
