#pragma once

// The bytes that a terminal sends, as events. Keys, mouse and pastes look alike in all terminals of today
// (ECMA-48, xterm's control sequences); what a terminal has of its own comes from its description.
//
// A terminal also answers questions between the keys. Answers are taken out here, so that none of them is
// ever mistaken for typing, however late it comes. What is not understood is left out whole.
//
// Any bytes may come, in pieces of any size: what is held back of an unfinished sequence is bounded.

#include "TarnwellTidyKit/Screen/Event.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tarnwell {

/// What a terminal says of itself.
struct TerminalAnswer {
    enum class Kind : std::uint8_t {
        attributes, ///< To "CSI c": there is a terminal that answers.
        status,     ///< To "CSI 5 n": everything sent before has been drawn.
        background, ///< To "OSC 11 ; ?": the colour of the ground.
    };
    Kind kind = Kind::attributes;
    /// 0…255; of the ground.
    int red = 0;
    int green = 0;
    int blue = 0;
    friend bool operator==(const TerminalAnswer&, const TerminalAnswer&) = default;
};

using TerminalInput = std::variant<KeyPress, MouseEvent, Pasted, TerminalAnswer>;

class InputDecoder {
public:
    /// Sequences of two bytes and more that stand for keys on this terminal, beside the usual ones.
    explicit InputDecoder(std::vector<std::pair<std::string, KeyPress>> ownKeys = {});

    void feed(std::string_view bytes);
    /// What has come in whole, in order.
    std::optional<TerminalInput> next();
    /// Whether the beginning of something is held: it may go on, or be a key of its own (Escape). After a
    /// pause of some 50 ms it is: call `settle`.
    bool isHolding() const { return !held_.empty() && !isPasting_; }
    /// Makes keys of what is held. A paste waits for its end.
    void settle();

    static constexpr std::size_t longestPaste = std::size_t{1} << 20; // the rest of a longer one is left out

private:
    /// Bytes at the front of `text` that are done with; 0 when more have to come.
    std::size_t take(std::string_view text, bool isAll);
    std::size_t takeEscape(std::string_view text, bool isAll);
    std::size_t takeControlSequence(std::string_view text);
    std::size_t takeString(std::string_view text);
    std::size_t takePaste(std::string_view text);
    void takePlain(char32_t code, std::string_view bytes, bool alt);
    void control(std::string_view parameters, char final);
    void mouse(int code, int column, int row, bool isRelease);
    void push(Key key, int modifiers = 0);

    std::vector<std::pair<std::string, KeyPress>> ownKeys_;
    std::string held_;
    std::string pasted_;
    bool isPasting_ = false;
    std::deque<TerminalInput> ready_;
};

} // namespace tarnwell
