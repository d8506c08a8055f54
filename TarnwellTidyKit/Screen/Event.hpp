#pragma once

// What a screen tells a program. Values; the model may know them (places in cells come with the mouse only,
// and views say what is there).

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace tarnwell {

enum class Key : std::uint8_t {
    character, ///< `KeyPress::text` has it.
    up,
    down,
    left,
    right,
    enter,
    tab, ///< With shift: backwards.
    backspace,
    escape,
    pageUp,
    pageDown,
    home,
    end,
    insert,
    remove, ///< The key Delete.
    f1,
    f2,
    f3,
    f4,
    f5,
    f6,
    f7,
    f8,
    f9,
    f10,
    f11,
    f12,
};

/// A key. Characters come as their text, "A" without `shift`; a blank is the character " ". With `control`,
/// the letter is the small one: Ctrl-L is "l".
struct KeyPress {
    Key key = Key::character;
    /// One character of UTF-8 that is no control character; empty unless `key` is `character`.
    std::string text = {};
    bool shift = false;
    bool control = false;
    bool alt = false;

    static KeyPress of(std::string_view character) {
        return {.key = Key::character, .text = std::string(character)};
    }
    friend bool operator==(const KeyPress&, const KeyPress&) = default;
};

struct MouseEvent {
    enum class Kind : std::uint8_t { press, drag, release, wheelUp, wheelDown };
    enum class Button : std::uint8_t { none, left, middle, right };
    Kind kind = Kind::press;
    Button button = Button::none;
    /// From 0 at the upper left, inside of the screen.
    int column = 0;
    int row = 0;
    bool shift = false;
    bool control = false;
    bool alt = false;
    friend bool operator==(const MouseEvent&, const MouseEvent&) = default;
};

/// The screen has another size, or what it shows is not known any more (back from a suspension): draw.
struct Resized {
    int width = 0;
    int height = 0;
    friend bool operator==(const Resized&, const Resized&) = default;
};

/// Text put in at once, any bytes; line feeds are '\n'.
struct Pasted {
    std::string text = {};
    friend bool operator==(const Pasted&, const Pasted&) = default;
};

/// The time that `Screen::next` was given is over.
struct Tick {
    friend bool operator==(const Tick&, const Tick&) = default;
};

/// `Screen::wake` was called, once or more often.
struct Woken {
    friend bool operator==(const Woken&, const Woken&) = default;
};

/// A frame was not taken because the line was busy; it is free now: draw the newest.
struct Drawable {
    friend bool operator==(const Drawable&, const Drawable&) = default;
};

/// The terminal is gone: nothing will be seen, no key will come. Told again at every further call.
struct ScreenLost {
    friend bool operator==(const ScreenLost&, const ScreenLost&) = default;
};

/// Somebody wants the program to end: the number of SIGTERM, SIGHUP or SIGINT (Ctrl-C).
struct QuitRequest {
    int signal = 0;
    friend bool operator==(const QuitRequest&, const QuitRequest&) = default;
};

using Event =
    std::variant<KeyPress, MouseEvent, Resized, Pasted, Tick, Woken, Drawable, ScreenLost, QuitRequest>;

} // namespace tarnwell
