#include "TarnwellTidyKit/Screen/InputDecoder.hpp"

#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>
#include <array>
#include <charconv>

namespace tarnwell {

namespace {

constexpr char escape = '\x1B';
constexpr std::string_view pasteBegin = "200";
constexpr std::string_view pasteEnd = "\x1B[201~";
constexpr std::size_t longestSequence = 64;
constexpr std::size_t longestString = 4096;
// Modifiers as terminals count them, less one.
constexpr int shiftBit = 1;
constexpr int altBit = 2;
constexpr int controlBit = 4;

bool isControl(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

/// The numbers between ';', where what stands behind a ':' is left out; a missing one is 0.
std::array<int, 4> numbers(std::string_view parameters) {
    std::array<int, 4> values{};
    for (int& value : values) {
        const std::size_t end = std::min(parameters.find(';'), parameters.size());
        if (std::from_chars(parameters.data(), parameters.data() + end, value).ec ==
            std::errc::result_out_of_range)
            value = -1;
        if (end == parameters.size())
            break;
        parameters.remove_prefix(end + 1);
    }
    return values;
}

/// The upper eight bits of a channel of one to four hexadecimal digits.
std::optional<int> channel(std::string_view digits) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (error != std::errc() || end != digits.data() + digits.size() || digits.empty() || digits.size() > 4)
        return std::nullopt;
    const unsigned most = (1U << (4 * digits.size())) - 1;
    return static_cast<int>(value * 255 / most);
}

/// "rgb:ffff/ffff/ffff", also "rgba:" with a fourth channel.
std::optional<TerminalAnswer> ground(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || !text.starts_with("rgb"))
        return std::nullopt;
    text.remove_prefix(colon + 1);
    std::array<int, 3> channels{};
    for (int& one : channels) {
        const std::size_t end = std::min(text.find('/'), text.size());
        const auto value = channel(text.substr(0, end));
        if (!value)
            return std::nullopt;
        one = *value;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return TerminalAnswer{TerminalAnswer::Kind::background, channels[0], channels[1], channels[2]};
}

std::optional<Key> letterKey(char final) {
    switch (final) {
    case 'A':
        return Key::up;
    case 'B':
        return Key::down;
    case 'C':
        return Key::right;
    case 'D':
        return Key::left;
    case 'F':
        return Key::end;
    case 'H':
        return Key::home;
    case 'M':
        return Key::enter; // of the number pad
    case 'P':
        return Key::f1;
    case 'Q':
        return Key::f2;
    case 'R':
        return Key::f3;
    case 'S':
        return Key::f4;
    default:
        return std::nullopt;
    }
}

std::optional<Key> numberKey(int number) {
    constexpr std::array<std::pair<int, Key>, 20> keys{{
        {1, Key::home},     {2, Key::insert}, {3, Key::remove}, {4, Key::end},  {5, Key::pageUp},
        {6, Key::pageDown}, {7, Key::home},   {8, Key::end},    {11, Key::f1},  {12, Key::f2},
        {13, Key::f3},      {14, Key::f4},    {15, Key::f5},    {17, Key::f6},  {18, Key::f7},
        {19, Key::f8},      {20, Key::f9},    {21, Key::f10},   {23, Key::f11}, {24, Key::f12},
    }};
    const auto* found = std::ranges::find(keys, number, &std::pair<int, Key>::first);
    return found == keys.end() ? std::nullopt : std::optional(found->second);
}

} // namespace

InputDecoder::InputDecoder(std::vector<std::pair<std::string, KeyPress>> ownKeys)
    : ownKeys_(std::move(ownKeys)) {
    std::erase_if(ownKeys_, [](const auto& own) { return own.first.size() < 2 || own.first[0] != escape; });
}

void InputDecoder::feed(std::string_view bytes) {
    held_ += bytes;
    std::string_view rest = held_;
    while (!rest.empty()) {
        const std::size_t done = take(rest, false);
        if (done == 0)
            break;
        rest.remove_prefix(done);
    }
    held_.erase(0, held_.size() - rest.size());
}

void InputDecoder::settle() {
    while (!held_.empty() && !isPasting_)
        held_.erase(0, std::max<std::size_t>(take(held_, true), 1));
}

std::optional<TerminalInput> InputDecoder::next() {
    if (ready_.empty())
        return std::nullopt;
    TerminalInput input = std::move(ready_.front());
    ready_.pop_front();
    return input;
}

std::size_t InputDecoder::take(std::string_view text, bool isAll) {
    if (isPasting_)
        return takePaste(text);
    if (text[0] == escape)
        return takeEscape(text, isAll);
    // The longest form that could become a character is what is held.
    const Utf8Part part = firstUTF8Part(text);
    if (!part.isWellFormed && part.length == text.size() && text.size() < 4 && !isAll &&
        (static_cast<unsigned char>(text[0]) & 0xC0) == 0xC0)
        return 0;
    if (part.isWellFormed)
        takePlain(part.code, text.substr(0, part.length), false);
    return part.length;
}

std::size_t InputDecoder::takeEscape(std::string_view text, bool isAll) {
    bool isBeginning = false;
    const std::pair<std::string, KeyPress>* own = nullptr;
    for (const auto& candidate : ownKeys_) {
        if (text.starts_with(candidate.first)) {
            if (own == nullptr || own->first.size() < candidate.first.size())
                own = &candidate;
        } else if (std::string_view(candidate.first).starts_with(text)) {
            isBeginning = true;
        }
    }
    if (own != nullptr && (!isBeginning || isAll)) {
        ready_.emplace_back(own->second);
        return own->first.size();
    }
    if (text.size() == 1 || (text.size() == 2 && (text[1] == 'O' || text[1] == '['))) {
        if (!isAll)
            return 0;
        if (text.size() == 1)
            push(Key::escape);
        else
            takePlain(static_cast<unsigned char>(text[1]), text.substr(1), true);
        return text.size();
    }
    switch (text[1]) {
    case '[':
        if (const std::size_t done = takeControlSequence(text); done > 0)
            return done;
        return isAll ? text.size() : 0;
    case 'O': {
        // Some have a number for the modifiers in front of the letter.
        const bool hasNumber = text[2] >= '1' && text[2] <= '8';
        if (hasNumber && text.size() == 3)
            return isAll ? text.size() : 0;
        const char final = text[hasNumber ? 3 : 2];
        if (const auto key = letterKey(final))
            push(*key, hasNumber ? text[2] - '1' : 0);
        return hasNumber ? 4 : 3;
    }
    case ']':
    case 'P':
    case '_':
    case '^':
        if (text.size() == 2 && isAll) { // no terminal answers that slowly: a key with Alt
            takePlain(static_cast<unsigned char>(text[1]), text.substr(1, 1), true);
            return 2;
        }
        if (const std::size_t done = takeString(text); done > 0)
            return done;
        return isAll ? text.size() : 0;
    case escape:
        push(Key::escape);
        return 1;
    default:
        break;
    }
    const std::string_view behind = text.substr(1);
    const Utf8Part part = firstUTF8Part(behind);
    if (!part.isWellFormed && part.length == behind.size() && behind.size() < 4 && !isAll &&
        (static_cast<unsigned char>(behind[0]) & 0xC0) == 0xC0)
        return 0;
    if (part.isWellFormed)
        takePlain(part.code, behind.substr(0, part.length), true);
    return 1 + part.length;
}

std::size_t InputDecoder::takeControlSequence(std::string_view text) {
    // The console of Linux: "ESC [ [ A" is F1.
    if (text[2] == '[') {
        if (text.size() < 4)
            return 0;
        if (text[3] >= 'A' && text[3] <= 'E')
            push(static_cast<Key>(static_cast<int>(Key::f1) + (text[3] - 'A')));
        return 4;
    }
    std::size_t end = 2;
    while (end < text.size() && text[end] >= 0x20 && text[end] < 0x40)
        ++end;
    if (end > longestSequence)
        return end;
    if (end == text.size())
        return 0;
    const char final = text[end];
    if (final < 0x40 || final > 0x7E)
        return end; // broken off: what did it is read anew
    const std::string_view parameters = text.substr(2, end - 2);
    if (final == 'M' && parameters.empty()) {
        // The mouse as older terminals tell it: three bytes, each 32 more.
        if (text.size() < end + 4)
            return 0;
        const auto value = [&](std::size_t index) {
            return static_cast<unsigned char>(text[end + index]) - 32;
        };
        mouse(value(1), value(2), value(3), (value(1) & 3) == 3 && value(1) < 64);
        return end + 4;
    }
    control(parameters, final);
    return end + 1;
}

std::size_t InputDecoder::takeString(std::string_view text) {
    for (std::size_t at = 2; at < text.size(); ++at) {
        const bool isBell = text[at] == '\a';
        if (!isBell && text[at] != escape)
            continue;
        if (!isBell && at + 1 == text.size())
            return 0;
        const std::string_view body = text.substr(2, at - 2);
        if (text[1] == ']' && body.starts_with("11;"))
            if (const auto answer = ground(body.substr(3)))
                ready_.emplace_back(*answer);
        if (isBell)
            return at + 1;
        return text[at + 1] == '\\' ? at + 2 : at; // an escape that is no end begins something else
    }
    return text.size() > longestString ? text.size() : 0;
}

std::size_t InputDecoder::takePaste(std::string_view text) {
    const auto keep = [this](std::string_view piece) {
        pasted_ += piece.substr(0, longestPaste - pasted_.size());
    };
    const std::size_t end = text.find(pasteEnd);
    if (end == std::string_view::npos) {
        // The end may have begun in the last bytes.
        const std::size_t safe = text.size() - std::min(text.size(), pasteEnd.size() - 1);
        keep(text.substr(0, safe));
        return safe;
    }
    keep(text.substr(0, end));
    std::string lines;
    for (std::size_t at = 0; at < pasted_.size(); ++at) {
        if (pasted_[at] == '\n' && at > 0 && pasted_[at - 1] == '\r')
            continue;
        lines += pasted_[at] == '\r' ? '\n' : pasted_[at];
    }
    ready_.emplace_back(Pasted{std::move(lines)});
    pasted_.clear();
    isPasting_ = false;
    return end + pasteEnd.size();
}

void InputDecoder::takePlain(char32_t code, std::string_view bytes, bool alt) {
    KeyPress key{.alt = alt};
    if (code == '\r' || code == '\n') {
        key.key = Key::enter;
    } else if (code == '\t') {
        key.key = Key::tab;
    } else if (code == 0x7F || code == '\b') {
        key.key = Key::backspace;
    } else if (code < 0x20) {
        key.control = true;
        key.text = code == 0      ? " "
                   : code <= 0x1A ? std::string(1, static_cast<char>(code + 0x60))
                                  : std::string(1, static_cast<char>(code + 0x40));
    } else if (isControl(code)) {
        return;
    } else {
        key.text = bytes;
    }
    ready_.emplace_back(std::move(key));
}

void InputDecoder::control(std::string_view parameters, char final) {
    const bool isPrivate = !parameters.empty() && parameters[0] >= '<' && parameters[0] <= '?';
    const char prefix = isPrivate ? parameters[0] : '\0';
    if (isPrivate)
        parameters.remove_prefix(1);
    const auto values = numbers(parameters);
    const int modifiers = values[1] > 0 ? values[1] - 1 : 0;
    if (prefix == '<' && (final == 'M' || final == 'm'))
        return mouse(values[0], values[1], values[2], final == 'm');
    if (prefix == '?' && final == 'c')
        return void(ready_.emplace_back(TerminalAnswer{TerminalAnswer::Kind::attributes}));
    if (isPrivate)
        return;
    if (final == 'n') {
        if (values[0] == 0 || values[0] == 3)
            ready_.emplace_back(TerminalAnswer{TerminalAnswer::Kind::status});
    } else if (final == 'Z') {
        push(Key::tab, shiftBit);
    } else if (final == 'u') {
        // Keys by their characters, from terminals that were asked to tell all of them apart.
        const auto code = static_cast<char32_t>(std::max(values[0], 0));
        if (code == 27)
            return push(Key::escape, modifiers);
        std::string bytes;
        if (code <= 0x10FFFF)
            appendCharacter(bytes, code);
        const std::size_t before = ready_.size();
        if (isValidUTF8(bytes))
            takePlain(code, bytes, (modifiers & altBit) != 0);
        if (ready_.size() > before) {
            auto& key = std::get<KeyPress>(ready_.back());
            key.control = key.control || (modifiers & controlBit) != 0;
            key.shift = key.key != Key::character && (modifiers & shiftBit) != 0;
        }
    } else if (final == '~') {
        if (parameters == pasteBegin)
            isPasting_ = true;
        else if (const auto key = numberKey(values[0]))
            push(*key, modifiers);
    } else if (const auto key = letterKey(final); key && final != 'M' && values[0] <= 1) {
        // Other numbers are those of an answer about the cursor.
        push(*key, modifiers);
    }
}

void InputDecoder::mouse(int code, int column, int row, bool isRelease) {
    using Kind = MouseEvent::Kind;
    using Button = MouseEvent::Button;
    constexpr int wheelBit = 64;
    constexpr int motionBit = 32;
    if (code < 0 || column < 1 || row < 1 || code >= 128)
        return;
    MouseEvent event{.column = column - 1,
                     .row = row - 1,
                     .shift = (code & 4) != 0,
                     .control = (code & 16) != 0,
                     .alt = (code & 8) != 0};
    const int button = code & 3;
    if ((code & wheelBit) != 0) {
        if (button > 1 || isRelease)
            return; // wheels that turn sideways
        event.kind = button == 0 ? Kind::wheelUp : Kind::wheelDown;
    } else {
        event.button = button == 0   ? Button::left
                       : button == 1 ? Button::middle
                       : button == 2 ? Button::right
                                     : Button::none;
        event.kind = isRelease ? Kind::release : (code & motionBit) != 0 ? Kind::drag : Kind::press;
        if (event.kind == Kind::drag && event.button == Button::none)
            return; // moved without a button
    }
    ready_.emplace_back(event);
}

void InputDecoder::push(Key key, int modifiers) {
    ready_.emplace_back(KeyPress{.key = key,
                                 .shift = (modifiers & shiftBit) != 0,
                                 .control = (modifiers & controlBit) != 0,
                                 .alt = (modifiers & altBit) != 0});
}

} // namespace tarnwell
