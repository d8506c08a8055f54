#pragma once

// Categories as people type them.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellTidyKit/Commands/TidyArguments.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace tarnwell {

/// The category of this name; letter case, blanks and signs do not count: "diskimages", "Disk Images".
std::optional<FileCategory> categoryFromText(std::string_view text);

/// All that an option names, each once. Throws TidyUsageError for a name that no category has.
std::vector<FileCategory> categoriesFrom(const TidyArguments& arguments, std::string_view option);

} // namespace tarnwell
