#pragma once

// The browser on a screen in memory, over real folders, driven by scripts of keys.

#include "TarnwellTidyKit/Browser/Browser.hpp"
#include "TarnwellTidyKit/Screen/MemoryScreen.hpp"

#include "Tests/TidyKit/Scene.hpp"

#include <functional>
#include <string>
#include <string_view>

namespace tarnwell::test {

class BrowserScene : public Scene {
public:
    BrowserScene();

    GridSize size{80, 24};
    bool isReadOnly = false;
    /// In front of the folder that is browsed; empty to begin with the volumes.
    std::string folder;

    /// Types the keys, each when all that the one before asked for is done, and leaves. What was on the
    /// screen last, as text.
    std::string screenAfter(std::string_view keys);
    /// Whether the screen looks as it was recorded in Browser/<name>.txt. With TARNWELL_RENEW_SCREENS set,
    /// the record is written anew.
    void expectScreen(const std::string& name, std::string_view keys);

    TidyScanChoices choices;
    /// Of all items; they have no Trash unless a test says so.
    WayOut wayOut = WayOut::deletion;
    /// In place of a shell.
    std::function<std::string(const std::string& folder)> shell;

    /// What was copied last, and the exit status.
    std::string clipboard;
    int status = -1;
};

} // namespace tarnwell::test
