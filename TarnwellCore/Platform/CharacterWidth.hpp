#pragma once

// How wide the system's terminals and screen libraries draw a character.

namespace tarnwell {

/// Columns of a character that can be seen: 0 for one that is drawn on the one before it (accents, joiners,
/// variation selectors), 2 for wide ones of East Asia and for emoji, 1 for all others. Says nothing useful
/// about control characters. Does not depend on the locale. Safe from any thread.
///
/// Linux: ICU's Unicode properties, East_Asian_Width W and F being wide; the C library's wcwidth() is made of
/// the same. macOS: the C library's wcwidth() in the locale "UTF-8"; of what it does not know yet, the blocks
/// of emoji and of East Asian ideographs are wide, as the Unicode Standard has it for their unassigned
/// characters.
int characterWidth(char32_t character) noexcept;

} // namespace tarnwell
