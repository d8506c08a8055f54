#include "TarnwellTidyKit/Screen/CursesScreen.hpp"

#include "TarnwellCore/Text/Utf8.hpp"
#include "TarnwellTidyKit/Screen/FramePipe.hpp"
#include "TarnwellTidyKit/Screen/InputDecoder.hpp"
#include "TarnwellTidyKit/Screen/Palette.hpp"
#include "TarnwellTidyKit/Screen/PlainCharacters.hpp"
#include "TarnwellTidyKit/Screen/TerminalLine.hpp"
#include "TarnwellTidyKit/Screen/TerminalRequests.hpp"
#include "TarnwellTidyKit/Screen/TerminalSignals.hpp"
#include "TarnwellTidyKit/Screen/TrueColours.hpp"

#ifndef NCURSES_WIDECHAR
#define NCURSES_WIDECHAR 1
#endif
#define NCURSES_NOMACROS 1
#include <curses.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds escapePause{50};   // longer, and an Escape is a key
constexpr milliseconds answerPause{100};  // for the first answer, before the first frame
constexpr milliseconds signPause{20'000}; // for the sign that a frame is drawn; then it is taken for lost
constexpr milliseconds busyPause{20};
constexpr std::size_t bytesWithoutSign = 512;
constexpr int trueColours = 1 << 24;

/// The terminal's own sequence for something, or nothing.
std::string capability(const char* name) {
    const char* text = ::tigetstr(const_cast<char*>(name)); // NOLINT: some declare it so, and leave it alone
    if (text == nullptr || text == reinterpret_cast<const char*>(-1)) // NOLINT: what the library says
        return {};
    // Pauses ("$<5>") are for machines that nobody has any more.
    std::string sequence(text);
    for (std::size_t begin = 0; (begin = sequence.find("$<", begin)) != std::string::npos;) {
        const std::size_t end = sequence.find('>', begin);
        if (end == std::string::npos)
            break;
        sequence.erase(begin, end - begin + 1);
    }
    return sequence;
}

std::vector<std::pair<std::string, KeyPress>> ownKeys() {
    constexpr std::array<std::pair<const char*, Key>, 26> names{{
        {"kcuu1", Key::up},   {"kcud1", Key::down},    {"kcub1", Key::left},   {"kcuf1", Key::right},
        {"kent", Key::enter}, {"kbs", Key::backspace}, {"kpp", Key::pageUp},   {"knp", Key::pageDown},
        {"khome", Key::home}, {"kend", Key::end},      {"kich1", Key::insert}, {"kdch1", Key::remove},
        {"kf1", Key::f1},     {"kf2", Key::f2},        {"kf3", Key::f3},       {"kf4", Key::f4},
        {"kf5", Key::f5},     {"kf6", Key::f6},        {"kf7", Key::f7},       {"kf8", Key::f8},
        {"kf9", Key::f9},     {"kf10", Key::f10},      {"kf11", Key::f11},     {"kf12", Key::f12},
        {"kfnd", Key::home},  {"kslt", Key::end},
    }};
    std::vector<std::pair<std::string, KeyPress>> keys;
    for (const auto& [name, key] : names)
        if (std::string sequence = capability(name); !sequence.empty())
            keys.emplace_back(std::move(sequence), KeyPress{.key = key});
    if (std::string sequence = capability("kcbt"); !sequence.empty())
        keys.emplace_back(std::move(sequence), KeyPress{.key = Key::tab, .shift = true});
    return keys;
}

SCREEN* newTerminal(const std::string& type, std::FILE* output, std::FILE* input) {
    return ::newterm(const_cast<char*>(type.c_str()), output, input); // NOLINT: likewise
}

/// A table of the terminal's that the library knows; `type` or, for a new relative of a common one, that one.
SCREEN* openScreen(const std::string& type, std::FILE* output, std::FILE* input) {
    if (SCREEN* screen = newTerminal(type, output, input); screen != nullptr)
        return screen;
    for (const std::string_view family :
         {"xterm", "alacritty", "foot", "wezterm", "ghostty", "kitty", "tmux"})
        if (type.starts_with(family))
            for (const char* common : {"xterm-256color", "xterm"})
                if (SCREEN* screen = newTerminal(common, output, input); screen != nullptr)
                    return screen;
    throw std::runtime_error("The terminal's type \"" + type +
                             "\" is not known here; set TERM to one that is, such as xterm.");
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); } // NOLINT(cert-err33-c)
};

} // namespace

struct CursesScreen::Impl {
    explicit Impl(Options options);
    ~Impl();

    void enter();
    void leave();
    void ask();
    bool isReady();
    void takeInput();
    void take(TerminalInput input);
    void noteSignals();
    void fitToTerminal();
    void drawAnew();
    void send(std::string_view bytes);
    void putRow(const Grid& grid, int row);
    void setStyle(const Style& style, attr_t& attributes, short& pair);
    short pairOf(int foreground, int background);
    int numberOf(int colour);

    Options options;
    TerminalSignals signals;
    TerminalLine line{signals};
    FramePipe pipe;
    std::unique_ptr<std::FILE, FileCloser> noInput{std::fopen("/dev/null", "re")};
    SCREEN* screen = nullptr;
    std::string greeting;
    std::string farewell;
    InputDecoder decoder;
    steady_clock::time_point heldSince;

    GridSize size;
    ScreenAbilities abilities;
    bool canAsk = false;
    /// The terminal has answered before, so it will again.
    bool isAnswering = false;
    bool isAwaitingSign = false;
    steady_clock::time_point askedAt;
    std::size_t unsigned_ = 0; // bytes sent since the last sign was asked for

    Grid shown;
    bool isShownKnown = false;
    bool isFrameOwed = false;
    std::deque<Event> events;
    struct Drawing {
        attr_t attributes = 0;
        short pair = 0;
    };
    std::unordered_map<std::uint32_t, Drawing> drawings; // by style
    std::unordered_map<std::uint64_t, short> pairs;      // by the two colours
    short lastPair = 0;
    /// For a terminal whose description counts 256 colours, and that says that it draws all of them.
    std::optional<TrueColours> trueColoursByNumber;
};

CursesScreen::Impl::Impl(Options chosen) : options(chosen) {
    abilities.isUnicode = TerminalRequests::chooseCharacters();
    abilities.isDark = options.ground != Ground::light;
    const char* typeVariable = std::getenv("TERM");
    const std::string type = typeVariable == nullptr ? "" : typeVariable;
    if (noInput == nullptr)
        throw std::runtime_error("/dev/null cannot be opened.");
    ::use_env(FALSE);
    screen = openScreen(type, pipe.stream(), noInput.get());
    if (capability("cup").empty()) {
        ::delscreen(screen);
        throw std::runtime_error("The terminal (of the type \"" + type + "\") cannot move its cursor.");
    }
    const std::string takesAll = capability("smcup");
    greeting = takesAll + capability("smkx");
    farewell = capability("sgr0") + capability("rmkx") + capability("cnorm");
    canAsk = TerminalRequests::areUnderstoodBy(type);
    if (canAsk) {
        greeting += TerminalRequests::modesOn;
        farewell = std::string(TerminalRequests::modesOff) + farewell;
        abilities.hasMouse = true;
    }
    // Where there is no second page to leave, the screen is cleared.
    farewell += takesAll.empty() ? capability("clear") : capability("op") + capability("rmcup");
    decoder = InputDecoder(ownKeys());

    ::typeahead(-1);
    // Nothing that the library sets up is sent: what the terminal is told at the beginning and the end is
    // ours, because it has to be known when a signal ends the program.
    ::wnoutrefresh(stdscr);
    ::doupdate();
    (void)pipe.collect();
    ::scrollok(stdscr, FALSE);
    ::leaveok(stdscr, FALSE);
    if (options.hasColours && ::has_colors() && ::start_color() == OK) {
        ::use_default_colors();
        abilities.colours = COLORS >= trueColours ? trueColours
                            : COLORS >= 256       ? 256
                            : COLORS >= 16        ? 16
                            : COLORS >= 8         ? 8
                                                  : 0;
        if (abilities.colours == 256 && TerminalRequests::drawsAllColours(type)) {
            trueColoursByNumber.emplace();
            abilities.colours = trueColours;
        }
    }
#if !defined(NCURSES_EXT_FUNCS) || NCURSES_VERSION_PATCH < 20180127
    if (!trueColoursByNumber)
        abilities.colours = std::min(abilities.colours, 256); // its colours are numbers of 16 bits
#endif
    enter();
    ask();
}

CursesScreen::Impl::~Impl() {
    leave();
    ::set_term(screen);
    ::endwin();
    ::delscreen(screen);
}

void CursesScreen::Impl::enter() {
    line.take(greeting, farewell);
    isAwaitingSign = false;
    fitToTerminal();
}

void CursesScreen::Impl::leave() {
    // An answer that comes after the end would stand in the shell's line.
    const auto begin = steady_clock::now();
    const bool isNew = begin - askedAt < milliseconds(1000);
    const auto mayCome = [&] { return isAwaitingSign || (canAsk && !isAnswering && isNew); };
    while (mayCome() && !line.isLost() && steady_clock::now() - begin < milliseconds(250)) {
        line.wait(milliseconds(20));
        takeInput();
    }
    if (mayCome())
        line.forgetInput();
    line.giveBack();
}

void CursesScreen::Impl::ask() {
    if (!canAsk)
        return;
    const bool asksGround = options.ground == Ground::asked && abilities.colours > 0;
    if (asksGround)
        line.send(TerminalRequests::askForGround);
    line.send(TerminalRequests::askForAttributes);
    askedAt = steady_clock::now();
    // Answers come in the order of the questions.
    const auto end = steady_clock::now() + answerPause;
    while (asksGround && !isAnswering && !line.isLost() && steady_clock::now() < end) {
        line.wait(std::chrono::duration_cast<milliseconds>(end - steady_clock::now()) + milliseconds(1));
        takeInput();
    }
    // Of the ground as it is found, nothing needs to be drawn anew.
    std::erase_if(events, [](const Event& event) { return std::holds_alternative<Resized>(event); });
}

void CursesScreen::Impl::fitToTerminal() {
    const TerminalLine::Size now = line.size();
    size = {std::clamp(now.width, 1, Grid::largestSide), std::clamp(now.height, 1, Grid::largestSide)};
    ::resizeterm(size.height, size.width);
    drawAnew();
}

void CursesScreen::Impl::drawAnew() {
    isShownKnown = false;
    std::erase_if(events, [](const Event& event) { return std::holds_alternative<Resized>(event); });
    events.emplace_back(Resized{size.width, size.height});
}

bool CursesScreen::Impl::isReady() {
    if (isAwaitingSign && steady_clock::now() - askedAt > signPause) {
        isAwaitingSign = false;
        isAnswering = false;
    }
    return !isAwaitingSign && !line.isBusy();
}

void CursesScreen::Impl::send(std::string_view bytes) {
    unsigned_ += bytes.size();
    std::string all(bytes);
    if (isAnswering && unsigned_ > bytesWithoutSign) {
        all += TerminalRequests::askForSign;
        isAwaitingSign = true;
        askedAt = steady_clock::now();
        unsigned_ = 0;
    }
    line.send(all);
}

short CursesScreen::Impl::pairOf(int foreground, int background) {
    if (foreground == Paint::none && background == Paint::none)
        return 0;
    const auto half = [](int colour) {
        return static_cast<std::uint64_t>(static_cast<std::uint32_t>(colour));
    };
    const auto [place, isNew] = pairs.try_emplace(half(foreground) << 32 | half(background), short{0});
    foreground = numberOf(foreground);
    background = numberOf(background);
    if (isNew && lastPair < std::min(COLOR_PAIRS, 32'767) - 1) {
        ++lastPair;
#if defined(NCURSES_EXT_FUNCS) && NCURSES_VERSION_PATCH >= 20180127
        ::init_extended_pair(lastPair, foreground, background);
#else
        ::init_pair(lastPair, static_cast<short>(foreground), static_cast<short>(background));
#endif
        place->second = lastPair;
    }
    return place->second;
}

int CursesScreen::Impl::numberOf(int colour) {
    return trueColoursByNumber && colour != Paint::none ? trueColoursByNumber->numberOf(colour) : colour;
}

void CursesScreen::Impl::setStyle(const Style& style, attr_t& attributes, short& pair) {
    const std::uint32_t number =
        static_cast<std::uint32_t>(style.role) | static_cast<std::uint32_t>(style.fill) << 8 |
        static_cast<std::uint32_t>(style.isSelected) << 16 |
        static_cast<std::uint32_t>(style.isMarked) << 17 | static_cast<std::uint32_t>(style.isBold) << 18;
    const auto [place, isNew] = drawings.try_emplace(number);
    if (isNew) {
        const Paint paint = Palette(abilities.colours, abilities.isDark).paint(style);
        Drawing& drawing = place->second;
        drawing.attributes = (paint.isBold ? A_BOLD : 0) | (paint.isDim ? A_DIM : 0) |
                             (paint.isReverse ? A_REVERSE : 0) | (paint.isUnderlined ? A_UNDERLINE : 0);
        drawing.pair = abilities.colours > 0 ? pairOf(paint.foreground, paint.background) : short{0};
    }
    attributes = place->second.attributes;
    pair = place->second.pair;
}

void CursesScreen::Impl::putRow(const Grid& grid, int row) {
    ::wmove(stdscr, row, 0);
    const int last = std::min(grid.size().width, size.width);
    for (int column = 0; column < last; ++column) {
        const Cell& cell = grid.at(column, row);
        if (cell.columns() == 0)
            continue;
        attr_t attributes = 0;
        short pair = 0;
        setStyle(cell.style, attributes, pair);
        std::array<wchar_t, CCHARW_MAX + 1> characters = {};
        std::string_view text = cell.text();
        bool isPlain = !abilities.isUnicode || column + cell.columns() > last;
        for (std::size_t count = 0; !text.empty() && count < CCHARW_MAX - 1; ++count)
            characters[count] = static_cast<wchar_t>(takeCharacter(text));
        // Where the system counts columns otherwise, the rest of the row would move.
        isPlain = isPlain || ::wcwidth(characters[0]) != cell.columns();
        for (std::size_t count = 1; !isPlain && characters[count] != 0; ++count)
            if (::wcwidth(characters[count]) != 0)
                characters[count] = 0;
        if (isPlain)
            characters = {static_cast<wchar_t>(plainCharacter(cell.text()))};
        cchar_t drawn;
        if (::setcchar(&drawn, characters.data(), attributes, pair, nullptr) != OK)
            continue;
        ::mvwadd_wch(stdscr, row, column, &drawn);
        if (isPlain && cell.columns() == 2 && column + 1 < last)
            ::mvwadd_wch(stdscr, row, column + 1, &drawn);
    }
    if (last < size.width) {
        ::wmove(stdscr, row, last);
        ::wclrtoeol(stdscr);
    }
}

void CursesScreen::Impl::take(TerminalInput input) {
    if (auto* answer = std::get_if<TerminalAnswer>(&input)) {
        isAnswering = true;
        if (answer->kind == TerminalAnswer::Kind::status)
            isAwaitingSign = false;
        if (answer->kind == TerminalAnswer::Kind::background && options.ground == Ground::asked) {
            const bool isDark = 299 * answer->red + 587 * answer->green + 114 * answer->blue < 128'000;
            if (std::exchange(abilities.isDark, isDark) != isDark) {
                drawings.clear();
                drawAnew();
            }
        }
    } else if (auto* key = std::get_if<KeyPress>(&input)) {
        if (key->control && key->text == "l")
            drawAnew();
        else
            events.emplace_back(std::move(*key));
    } else if (auto* mouse = std::get_if<MouseEvent>(&input)) {
        if (mouse->column < size.width && mouse->row < size.height)
            events.emplace_back(*mouse);
    } else {
        events.emplace_back(std::get<Pasted>(std::move(input)));
    }
}

void CursesScreen::Impl::takeInput() {
    if (const std::string bytes = line.receive(); !bytes.empty()) {
        decoder.feed(bytes);
        heldSince = steady_clock::now();
    } else if (decoder.isHolding() && steady_clock::now() - heldSince >= escapePause) {
        decoder.settle();
    }
    while (auto input = decoder.next())
        take(std::move(*input));
}

void CursesScreen::Impl::noteSignals() {
    signals.look();
    if (signals.takeSuspend()) {
        leave();
        TerminalSignals::stop();
        enter();
    } else if (signals.takeContinue()) {
        // Stopped without having been asked: the modes may be anyone's.
        line.take(greeting, farewell);
        fitToTerminal();
    }
    if (signals.takeResize())
        fitToTerminal();
    if (const auto signal = signals.takeQuit())
        events.emplace_front(QuitRequest{*signal});
}

CursesScreen::CursesScreen(Options options) : impl_(std::make_unique<Impl>(options)) {}

CursesScreen::~CursesScreen() = default;

GridSize CursesScreen::size() const {
    return impl_->size;
}

ScreenAbilities CursesScreen::abilities() const {
    return impl_->abilities;
}

bool CursesScreen::show(const Grid& grid, std::optional<GridPoint> cursor) {
    Impl& self = *impl_;
    if (!self.isReady()) {
        self.isFrameOwed = true;
        return false;
    }
    self.isFrameOwed = false;
    const bool isComparable = self.isShownKnown && self.shown.size() == grid.size();
    if (!self.isShownKnown) {
        ::werase(stdscr);
        ::clearok(curscr, TRUE);
    }
    for (int row = 0; row < self.size.height; ++row) {
        bool isChanged = !isComparable;
        for (int column = 0; !isChanged && column < grid.size().width; ++column)
            isChanged = grid.at(column, row) != self.shown.at(column, row);
        if (isChanged)
            self.putRow(grid, row);
    }
    self.shown = grid;
    self.isShownKnown = true;
    const bool hasCursor = cursor && cursor->column >= 0 && cursor->row >= 0 &&
                           cursor->column < self.size.width && cursor->row < self.size.height;
    ::curs_set(hasCursor ? 1 : 0);
    ::wmove(stdscr, hasCursor ? cursor->row : self.size.height - 1, hasCursor ? cursor->column : 0);
    ::wnoutrefresh(stdscr);
    ::doupdate();
    if (std::string frame = self.pipe.collect(); !frame.empty())
        self.send(self.trueColoursByNumber ? self.trueColoursByNumber->spelledOut(frame) : frame);
    return true;
}

Event CursesScreen::next(std::optional<milliseconds> timeout) {
    Impl& self = *impl_;
    const auto begin = steady_clock::now();
    for (bool isFirst = true;; isFirst = false) {
        self.noteSignals();
        self.takeInput();
        if (!self.events.empty()) {
            Event event = std::move(self.events.front());
            self.events.pop_front();
            return event;
        }
        if (self.line.isLost())
            return ScreenLost{};
        if (TerminalSignals::takeWake())
            return Woken{};
        const bool isReady = self.isFrameOwed && self.isReady();
        if (isReady) {
            self.isFrameOwed = false;
            return Drawable{};
        }
        const auto passed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
        if (timeout && passed >= *timeout && (!isFirst || *timeout <= milliseconds(0)))
            return Tick{};
        std::optional<milliseconds> pause;
        const auto atMost = [&pause](milliseconds time) { pause = pause ? std::min(*pause, time) : time; };
        if (timeout)
            atMost(std::max(*timeout - passed, milliseconds(0)));
        if (self.decoder.isHolding())
            atMost(escapePause);
        if (self.isFrameOwed)
            atMost(self.isAwaitingSign ? milliseconds(1000) : busyPause);
        self.line.wait(pause);
    }
}

void CursesScreen::wake() noexcept {
    impl_->signals.wake();
}

void CursesScreen::withTerminal(const std::function<void()>& work) {
    Impl& self = *impl_;
    self.leave();
    // Comes back whatever happens to the work.
    const std::unique_ptr<Impl, void (*)(Impl*)> back(&self, [](Impl* impl) { impl->enter(); });
    const TerminalSignals::Aside aside;
    work();
}

void CursesScreen::goOn() noexcept {
    TerminalSignals::forgetQuit();
}

bool CursesScreen::copyToClipboard(std::string_view text) {
    if (!impl_->canAsk || text.size() > TerminalRequests::longestCopy)
        return false;
    impl_->send(TerminalRequests::copy(text));
    return true;
}

} // namespace tarnwell
