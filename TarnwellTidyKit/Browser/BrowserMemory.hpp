#pragma once

// What the browser remembers from one time to the next, in the user's settings.

#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellTidyKit/Browser/BrowserView.hpp"
#include "TarnwellTidyKit/Browser/Ordering.hpp"

#include <cstdint>
#include <string>

namespace tarnwell {

/// Columns beside size, bar, share and name.
enum class BrowserColumn : std::uint8_t { items = 1, modified = 2, sizes = 4, change = 8 };

struct BrowserMemory {
    /// The folder that was looked at last, a full path; empty for none.
    std::string folder = {};
    BrowserView view = BrowserView::list;
    SortChoice sort = {};
    SizeMode mode = SizeMode::apparent;
    bool showsHidden = true;
    /// Bits of BrowserColumn.
    unsigned columns = 0;
    bool asksBeforeTrash = true;

    bool operator==(const BrowserMemory&) const = default;

    static BrowserMemory load(const AppSettings& settings);
    /// All but `asksBeforeTrash`, which is a setting of its own.
    void store(AppSettings& settings) const;
};

} // namespace tarnwell
