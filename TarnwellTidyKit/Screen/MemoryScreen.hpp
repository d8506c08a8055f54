#pragma once

// A screen in memory, for tests: events come from a script, frames are kept.

#include "TarnwellTidyKit/Screen/Screen.hpp"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

class MemoryScreen final : public Screen {
public:
    explicit MemoryScreen(GridSize size = {80, 24},
                          ScreenAbilities abilities = {.colours = 16, .isUnicode = true});

    GridSize size() const override { return size_; }
    ScreenAbilities abilities() const override { return abilities_; }
    bool show(const Grid& grid, std::optional<GridPoint> cursor = std::nullopt) override;
    /// The events that were given, in their order; when there are none, waits for `wake` or for the timeout;
    /// when there are none and `endsWithScript`, `ScreenLost`. A `Resized` changes `size` as it is given out.
    Event next(std::optional<std::chrono::milliseconds> timeout = std::nullopt) override;
    void wake() noexcept override;
    void withTerminal(const std::function<void()>& work) override;
    bool copyToClipboard(std::string_view text) override;

    void give(Event event);
    /// Keys as one writes them: "abc<Down><Enter><C-l><A-x><S-Tab><Space><lt>". Throws std::invalid_argument
    /// for a name that is none.
    void type(std::string_view keys);
    static std::vector<KeyPress> keys(std::string_view text);

    bool endsWithScript = true;
    /// While true, `show` takes nothing, like a line that is busy.
    bool isBusy = false;

    /// What was shown last, and how often something was.
    const Grid& shown() const { return shown_; }
    std::size_t frames() const { return frames_; }
    std::optional<GridPoint> cursor() const { return cursor_; }
    const std::string& clipboard() const { return clipboard_; }

    /// The screen for people and for recorded files: `Grid::text` between two rules, then, where
    /// `withStyles`, for each row that is not all plain text the stretches of other styles ("3: 0-14 heading,
    /// 20 link selected").
    static std::string dump(const Grid& grid, bool withStyles = true);
    std::string dump(bool withStyles = true) const { return dump(shown_, withStyles); }

private:
    GridSize size_;
    ScreenAbilities abilities_;
    Grid shown_;
    std::size_t frames_ = 0;
    bool isFrameOwed_ = false;
    std::optional<GridPoint> cursor_;
    std::string clipboard_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Event> events_; // guarded by mutex_
    bool isWoken_ = false;     // guarded by mutex_
};

/// The name of a role as `dump` has it: "heading", "accent7".
std::string roleName(Role role);

} // namespace tarnwell
