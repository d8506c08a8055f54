#pragma once

// Names that are the same to the system though their bytes differ: an accent may be part of its letter or
// stand behind it. On macOS file systems find a name by either form, give back the one it was made with, and
// paths from Foundation come in the second. On Linux names are bytes.

#include <string>
#include <string_view>

namespace tarnwell {

/// Whether a name or path may stand for others of other bytes. Never on Linux.
bool mayHaveOtherForms(std::string_view text) noexcept;

/// One form for all texts that are the same; on Linux, and for what is not UTF-8, the text as it is.
std::string commonForm(std::string_view text);

inline bool isSameName(std::string_view a, std::string_view b) {
    return a == b || (mayHaveOtherForms(a) && mayHaveOtherForms(b) && commonForm(a) == commonForm(b));
}

} // namespace tarnwell
