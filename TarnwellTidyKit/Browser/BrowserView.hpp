#pragma once

// The views of a place, in the order in which Tab goes through them.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarnwell {

enum class BrowserView : std::uint8_t {
    list,
    map,
    largest,
    found, ///< what a search came to
    categories,
    ages,
    changes,
    findings,
    rules,
    duplicates,
    volumes,
    history,
    trash,
    outcomes,
};
inline constexpr std::size_t browserViewCount = 14;

struct BrowserViewName {
    /// In the settings.
    std::string_view rawValue;
    /// For people.
    std::string_view title;
};
inline constexpr std::array<BrowserViewName, browserViewCount> browserViewNames = {
    {{"list", "List"},
     {"map", "Map"},
     {"largest", "Largest"},
     {"found", "Found"},
     {"categories", "Categories"},
     {"ages", "Ages"},
     {"changes", "Changes"},
     {"findings", "Findings"},
     {"rules", "Rules"},
     {"duplicates", "Duplicates"},
     {"volumes", "Volumes"},
     {"history", "History"},
     {"trash", "Trash"},
     {"outcomes", "Outcomes"}}};

constexpr std::string_view titleOf(BrowserView view) {
    return browserViewNames[static_cast<std::size_t>(view)].title;
}

} // namespace tarnwell
