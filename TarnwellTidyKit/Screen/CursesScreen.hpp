#pragma once

// The screen on a terminal, by ncurses.
//
// ncurses knows how a terminal is spoken to and what has changed between two frames. What it says is caught
// and sent when the line has room (FramePipe, TerminalLine): no key ever waits for a frame. After each few
// hundred bytes the terminal is asked for a sign that it has drawn them; until the sign has come, no further
// frame is made, so none of them queues up on a slow line, however long that line is. Terminals that never
// answer are not asked.

#include "TarnwellTidyKit/Screen/Screen.hpp"

#include <memory>

namespace tarnwell {

class CursesScreen final : public Screen {
public:
    enum class Ground { asked, dark, light };
    struct Options {
        /// The colour behind the text; where the terminal is asked and does not say, dark.
        Ground ground = Ground::asked;
        bool hasColours = true;
    };

    /// Takes the terminal behind standard output. At most one exists in a process; it sets the locale's
    /// characters (LC_CTYPE). Throws std::runtime_error, with a text for the user, where there is no terminal
    /// or its type is not known.
    explicit CursesScreen(Options options);
    ~CursesScreen() override;

    GridSize size() const override;
    ScreenAbilities abilities() const override;
    bool show(const Grid& grid, std::optional<GridPoint> cursor = std::nullopt) override;
    Event next(std::optional<std::chrono::milliseconds> timeout = std::nullopt) override;
    void wake() noexcept override;
    void withTerminal(const std::function<void()>& work) override;
    bool copyToClipboard(std::string_view text) override;
    void goOn() noexcept override;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace tarnwell
