#pragma once

// The views of a picture, one for each folder that can be gone into.

#include "TarnwellTidyKit/Pictures/PictureRequest.hpp"

#include <string>

namespace tarnwell {

/// Elements of an SVG document that is 1,200 by 800 points: the views, the folder's own last.
std::string pictureViews(const PictureRequest& request);

} // namespace tarnwell
