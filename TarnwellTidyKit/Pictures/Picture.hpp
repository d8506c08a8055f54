#pragma once

// Self-contained pictures of a folder for browsers and image viewers: areas, angles and lengths are sizes,
// colours are categories. Every item says what it is when pointed at, and a click on a folder goes into it.
//
// There is no script in them, neither their own nor one from elsewhere: each folder that can be gone into is
// a view of its own, drawn beforehand, and a link to its place in the document shows it. So names, which are
// any bytes, cannot become one; they stand in texts and titles only, made harmless (HarmlessText.hpp) and
// escaped. Light and dark follow the reader's wish. The same tree and request give the same bytes. As an
// image without links the folder itself is seen.

#include "TarnwellTidyKit/Pictures/PictureRequest.hpp"

#include <string>
#include <string_view>

namespace tarnwell {

/// Stands near the beginning of every picture, and tells them from other files.
inline constexpr std::string_view pictureMark = "<!-- A picture of a folder by tarnwell-tidy -->";

/// A whole SVG document.
std::string drawSVG(const PictureRequest& request);

/// The same as a page, as wide as its window.
std::string drawHTML(const PictureRequest& request);

} // namespace tarnwell
