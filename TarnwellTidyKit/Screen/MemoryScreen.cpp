#include "TarnwellTidyKit/Screen/MemoryScreen.hpp"

#include "TarnwellCore/Text/Utf8.hpp"

#include <array>
#include <stdexcept>
#include <utility>

namespace tarnwell {

namespace {

constexpr std::array<std::pair<std::string_view, Key>, 27> keyNames{{
    {"Up", Key::up},         {"Down", Key::down},
    {"Left", Key::left},     {"Right", Key::right},
    {"Enter", Key::enter},   {"Tab", Key::tab},
    {"BS", Key::backspace},  {"Esc", Key::escape},
    {"PageUp", Key::pageUp}, {"PageDown", Key::pageDown},
    {"Home", Key::home},     {"End", Key::end},
    {"Insert", Key::insert}, {"Del", Key::remove},
    {"F1", Key::f1},         {"F2", Key::f2},
    {"F3", Key::f3},         {"F4", Key::f4},
    {"F5", Key::f5},         {"F6", Key::f6},
    {"F7", Key::f7},         {"F8", Key::f8},
    {"F9", Key::f9},         {"F10", Key::f10},
    {"F11", Key::f11},       {"F12", Key::f12},
    {"Return", Key::enter},
}};

KeyPress namedKey(std::string_view name) {
    KeyPress key;
    while (name.size() > 2 && name[1] == '-') {
        bool* modifier = name[0] == 'C'   ? &key.control
                         : name[0] == 'A' ? &key.alt
                         : name[0] == 'S' ? &key.shift
                                          : nullptr;
        if (modifier == nullptr)
            break;
        *modifier = true;
        name.remove_prefix(2);
    }
    for (const auto& [known, value] : keyNames)
        if (known == name) {
            key.key = value;
            return key;
        }
    if (name == "Space")
        name = " ";
    else if (name == "lt")
        name = "<";
    if (name.empty() || firstUTF8Part(name).length != name.size() || !isValidUTF8(name))
        throw std::invalid_argument("No key has the name \"" + std::string(name) + "\".");
    key.text = name;
    return key;
}

std::string styleName(const Style& style) {
    std::string name = roleName(style.role);
    if (style.fill != Role::ground)
        name += " on " + roleName(style.fill);
    if (style.isBold)
        name += " bold";
    if (style.isSelected)
        name += " selected";
    if (style.isMarked)
        name += " marked";
    return name;
}

} // namespace

std::string roleName(Role role) {
    constexpr std::array<std::string_view, static_cast<std::size_t>(Role::accent)> names = {
        "ground", "text",   "dim",   "heading",  "link",  "danger", "warning",
        "good",   "match",  "bar",   "barTrack", "rule",  "key",    "keyText",
        "input",  "status", "heat0", "heat1",    "heat2", "heat3",  "heat4",
    };
    const auto number = static_cast<std::size_t>(role);
    if (number < names.size())
        return std::string(names[number]);
    return "accent" + std::to_string(number - names.size());
}

MemoryScreen::MemoryScreen(GridSize size, ScreenAbilities abilities) : size_(size), abilities_(abilities) {}

bool MemoryScreen::show(const Grid& grid, std::optional<GridPoint> cursor) {
    if (isBusy) {
        isFrameOwed_ = true;
        return false;
    }
    isFrameOwed_ = false;
    shown_ = grid;
    cursor_ = cursor;
    ++frames_;
    return true;
}

Event MemoryScreen::next(std::optional<std::chrono::milliseconds> timeout) {
    if (isFrameOwed_ && !isBusy) {
        isFrameOwed_ = false;
        return Drawable{};
    }
    std::unique_lock guard(mutex_);
    const auto isReady = [this] { return isWoken_ || !events_.empty(); };
    if (!isReady() && !(endsWithScript && !timeout)) {
        if (timeout)
            changed_.wait_for(guard, *timeout, isReady);
        else
            changed_.wait(guard, isReady);
    }
    if (!events_.empty()) {
        Event event = std::move(events_.front());
        events_.pop_front();
        if (const auto* resized = std::get_if<Resized>(&event))
            size_ = {resized->width, resized->height};
        return event;
    }
    if (std::exchange(isWoken_, false))
        return Woken{};
    if (timeout)
        return Tick{};
    return ScreenLost{};
}

void MemoryScreen::wake() noexcept {
    const std::lock_guard guard(mutex_);
    isWoken_ = true;
    changed_.notify_all();
}

void MemoryScreen::withTerminal(const std::function<void()>& work) {
    give(Resized{size_.width, size_.height});
    work();
}

bool MemoryScreen::copyToClipboard(std::string_view text) {
    constexpr std::size_t most = std::size_t{64} << 10;
    if (text.size() > most)
        return false;
    clipboard_ = text;
    return true;
}

void MemoryScreen::give(Event event) {
    const std::lock_guard guard(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_all();
}

void MemoryScreen::type(std::string_view text) {
    for (KeyPress& key : keys(text))
        give(std::move(key));
}

std::vector<KeyPress> MemoryScreen::keys(std::string_view text) {
    std::vector<KeyPress> keys;
    while (!text.empty()) {
        std::size_t length = firstUTF8Part(text).length;
        std::string_view name = text.substr(0, length);
        if (name == "<") {
            length = text.find('>');
            if (length == std::string_view::npos)
                throw std::invalid_argument("A key's name lacks its \">\".");
            name = text.substr(1, length - 1);
            ++length;
        }
        keys.push_back(namedKey(name));
        text.remove_prefix(length);
    }
    return keys;
}

std::string MemoryScreen::dump(const Grid& grid, bool withStyles) {
    const GridSize size = grid.size();
    std::string rule(static_cast<std::size_t>(size.width), '-');
    rule += '\n';
    std::string text = rule + grid.text() + rule;
    for (int row = 0; withStyles && row < size.height; ++row) {
        std::string stretches;
        for (int begin = 0; begin < size.width;) {
            const Style style = grid.at(begin, row).style;
            int end = begin + 1;
            while (end < size.width && grid.at(end, row).style == style)
                ++end;
            if (style != Style()) {
                stretches += stretches.empty() ? " " : ", ";
                stretches += std::to_string(begin);
                if (end - begin > 1)
                    stretches += "-" + std::to_string(end - 1);
                stretches += " " + styleName(style);
            }
            begin = end;
        }
        if (!stretches.empty())
            text += std::to_string(row) + ":" + stretches + "\n";
    }
    return text;
}

} // namespace tarnwell
