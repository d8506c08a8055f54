#pragma once

// The seam between the browser and what shows it. One implementation draws on a terminal (CursesScreen.hpp),
// one into memory (MemoryScreen.hpp).
//
// One thread owns a screen and makes all calls; `wake` alone may come from any thread, also before and after
// `next` waits. While a screen exists it has the terminal; its destructor leaves the terminal as it was
// found.

#include "TarnwellTidyKit/Screen/Event.hpp"
#include "TarnwellTidyKit/Screen/Grid.hpp"

#include <chrono>
#include <functional>
#include <optional>
#include <string_view>

namespace tarnwell {

/// What can be shown. `isDark` may change when a terminal answers late, which a `Resized` tells; nothing else
/// does.
struct ScreenAbilities {
    /// 0 without colours, else 8, 16, 256 or 1 << 24.
    int colours = 0;
    /// Whether anything but ASCII may be drawn. Where not, the screen shows other characters as '?' and those
    /// of lines, bars and marks as the nearest of ASCII; views may choose better.
    bool isUnicode = false;
    /// Whether the ground is dark.
    bool isDark = true;
    bool hasMouse = false;
    friend bool operator==(const ScreenAbilities&, const ScreenAbilities&) = default;
};

class Screen {
public:
    virtual ~Screen() = default;

    virtual GridSize size() const = 0;
    virtual ScreenAbilities abilities() const = 0;

    /// Shows the grid: from its upper left, where it has another size than the screen; and the cursor of a
    /// line that is typed into. Never waits for the terminal: where the line is still busy with an earlier
    /// frame, nothing is drawn, false is given, and `next` tells with `Drawable` when there is room again.
    /// Only what changed is sent.
    virtual bool show(const Grid& grid, std::optional<GridPoint> cursor = std::nullopt) = 0;

    /// The next event (Ctrl-L and coming back from Ctrl-Z are a `Resized`: all is drawn anew), in the order
    /// in which they came; waits for one, without using the processor: for at most `timeout`, then a `Tick`;
    /// without one, for as long as it takes. A timeout of zero asks only.
    virtual Event next(std::optional<std::chrono::milliseconds> timeout = std::nullopt) = 0;

    /// Makes `next` return soon, with `Woken`. Several calls may become one.
    virtual void wake() noexcept = 0;

    /// Gives the terminal back as it was found, calls `work` (a shell, a pager), takes the terminal again.
    /// The next event is a `Resized`. What `work` throws is thrown on.
    virtual void withTerminal(const std::function<void()>& work) = 0;

    /// Asks the terminal to put the text into the clipboard; whether it does cannot be known. Any bytes, at
    /// most 64 KiB: of more, false is given and nothing done.
    virtual bool copyToClipboard(std::string_view text) = 0;

    /// Says that a `QuitRequest` was meant for something smaller than the program: the next one counts as the
    /// first.
    virtual void goOn() noexcept {}

protected:
    Screen() = default;
    Screen(const Screen&) = default;
    Screen& operator=(const Screen&) = default;
};

} // namespace tarnwell
