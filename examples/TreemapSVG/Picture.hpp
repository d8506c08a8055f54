#pragma once

// Layouts of a scanned folder as SVG documents.

#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Scanning/SizeMode.hpp"

#include <cstdint>
#include <string>

namespace example {

enum class Layout { treemap, sunburst, icicle, bars };

/// `levels` of folders are drawn into one another, 1 or more. The same scan always gives the same bytes.
std::string picture(const tarnwell::ScanResult& scan, std::int64_t levels, tarnwell::SizeMode mode,
                    Layout layout);

} // namespace example
