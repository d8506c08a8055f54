#pragma once

// As much of the Darwin library's header as its side of the platform uses.

#include <locale.h>
#include <wchar.h>

// The name that the locale of every UTF-8 text has here.
#define newlocale(mask, name, base) newlocale(mask, "C.UTF-8", base)

inline int wcwidth_l(wchar_t character, locale_t locale) {
    const locale_t before = ::uselocale(locale);
    const int width = ::wcwidth(character);
    ::uselocale(before);
    return width;
}
