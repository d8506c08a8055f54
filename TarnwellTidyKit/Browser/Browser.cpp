#include "TarnwellTidyKit/Browser/Browser.hpp"

#include "TarnwellCore/Settings/AppSettings.hpp"
#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Browser/BrowserViews.hpp"
#include "TarnwellTidyKit/Browser/JobRunner.hpp"
#include "TarnwellTidyKit/Browser/UserShell.hpp"

#include <chrono>
#include <csignal>
#include <utility>
#include <variant>

namespace tarnwell {

namespace {

class Browser {
public:
    Browser(Screen& screen, const BrowserSetup& setup)
        : screen_(screen),
          setup_(setup),
          queue_(JobRunner(*setup.services, *setup.surroundings, setup.isReadOnly, setup.scan, setup.choices),
                 [&screen] { screen.wake(); }) {
        const BrowserMemory memory = BrowserMemory::load(AppSettings(setup.services->settings()));
        state_.view = memory.view == BrowserView::found || memory.view == BrowserView::outcomes
                          ? BrowserView::list
                          : memory.view;
        state_.choice.sort = memory.sort;
        state_.choice.mode = setup.choices.sizeMode.value_or(memory.mode);
        state_.rememberedMode = memory.mode;
        state_.chosenMode = setup.choices.sizeMode;
        state_.choice.showsHidden = memory.showsHidden;
        state_.columns = memory.columns;
        state_.lastFolder = memory.folder;
        state_.asksBeforeTrash = memory.asksBeforeTrash;
        state_.isReadOnly = setup.isReadOnly;
        state_.home = setup.services->home().native();
        state_.homeFolder = std::make_shared<const HomeFolder>(state_.home);
        state_.now = setup.services->now;
        size_ = screen.size();
        isUnicode_ = screen.abilities().isUnicode;
    }

    int run() {
        fitTo(state_, size_);
        begin(state_, setup_.folder);
        hand();
        draw();
        while (!state_.isDone) {
            if (setup_.isPatient)
                finishJobs();
            take(screen_.next());
            // All that has come meanwhile, and one frame for it.
            while (!state_.isDone && !setup_.isPatient) {
                Event event = screen_.next(std::chrono::milliseconds(0));
                if (std::holds_alternative<Tick>(event))
                    break;
                take(std::move(event));
                if (isLost_)
                    break;
            }
            drain();
            hand();
            draw();
        }
        end();
        return status_;
    }

private:
    /// The step at hand is brought to its end and what was to be remembered is stored; whatever else was to
    /// be changed is left as it is.
    void end() {
        hand();
        const bool isActing = queue_.drop(BrowserLane::act, [](const BrowserJob& job) {
            return std::holds_alternative<BrowserJobs::Remember>(job) ||
                   std::holds_alternative<BrowserJobs::ChangeRules>(job);
        });
        if (isActing) {
            setup_.surroundings->interruption->interrupt();
            if (!isLost_) {
                state_.question.reset();
                state_.prompt.reset();
                state_.message = "Ending: what was begun is brought to its end …";
                state_.messageIsFailure = false;
                screen_.show(drawn(state_, size_, isUnicode_).grid);
            }
        }
        queue_.waitFor(BrowserLane::act);
    }

    void take(Event event) {
        std::visit([this](auto& each) { take(each); }, event);
        fitTo(state_, size_);
        hand();
    }
    void take(KeyPress& press) { update(state_, press); }
    void take(Pasted& pasted) { update(state_, pasted); }
    void take(Tick&) {}
    void take(Woken&) { drain(); }
    void take(Drawable&) {}
    void take(Resized& resized) { size_ = {resized.width, resized.height}; }
    void take(ScreenLost&) {
        isLost_ = true;
        quit(state_);
    }
    void take(QuitRequest& request) {
        // Ctrl-C leaves a line that is typed, or a question, or the way to one, before it leaves the program.
        if (request.signal == SIGINT && (state_.prompt || state_.question || state_.waysOutAwaited != 0)) {
            screen_.goOn();
            update(state_, KeyPress{.key = Key::escape});
            return;
        }
        status_ = 128 + request.signal;
        quit(state_);
    }
    void take(MouseEvent& event) {
        constexpr std::ptrdiff_t step = 3;
        if (event.kind == MouseEvent::Kind::wheelUp || event.kind == MouseEvent::Kind::wheelDown)
            scroll(state_, event.kind == MouseEvent::Kind::wheelUp ? -step : step);
        else if (event.kind == MouseEvent::Kind::press && event.button == MouseEvent::Button::left)
            if (const auto click = whatIsAt(state_, size_, {event.column, event.row}))
                update(state_, *click);
    }

    void finishJobs() {
        while (!queue_.isIdle()) {
            for (const BrowserLane lane : {BrowserLane::quick, BrowserLane::look, BrowserLane::act,
                                           BrowserLane::upkeep, BrowserLane::wayOut})
                queue_.waitFor(lane);
            drain();
            hand();
        }
        draw();
    }

    void drain() {
        for (BrowserEvent& event : queue_.takeEvents())
            update(state_, std::move(event));
    }

    /// Hands on what the model wants.
    void hand() {
        for (BrowserRequest& request : std::exchange(state_.requests, {}))
            queue_.add(std::move(request));
        // After them: what was asked and called off in one turn is among them.
        for (const std::uint64_t id : std::exchange(state_.cancellations, {}))
            queue_.cancel(id);
        for (const ScreenWish& wish : std::exchange(state_.wishes, {}))
            grant(wish);
    }

    void grant(const ScreenWish& wish) {
        if (isLost_)
            return;
        if (wish.kind == ScreenWish::Kind::copy) {
            const bool isSent = screen_.copyToClipboard(wish.text);
            state_.message = isSent ? "The path was given to the terminal to copy."
                                    : "The terminal takes nothing to copy, or not so long a path.";
            state_.messageIsFailure = !isSent;
            return;
        }
        std::string failure;
        screen_.withTerminal(
            [&] { failure = setup_.shell ? setup_.shell(wish.text) : runUserShell(wish.text); });
        if (failure.empty())
            return;
        state_.outcomes.push_back({failure, true});
        state_.message = std::move(failure);
        state_.messageIsFailure = true;
    }

    void draw() {
        if (isLost_ || state_.isDone)
            return;
        fitTo(state_, size_);
        hand();
        const BrowserPicture picture = drawn(state_, size_, isUnicode_);
        screen_.show(picture.grid, picture.cursor); // dropped where the line is busy; `Drawable` comes
    }

    Screen& screen_;
    const BrowserSetup& setup_;
    BrowserState state_;
    GridSize size_;
    bool isUnicode_ = true;
    bool isLost_ = false;
    int status_ = 0;
    WorkQueue queue_; // last: its threads end before anything else goes
};

} // namespace

int runBrowser(Screen& screen, const BrowserSetup& setup) {
    return Browser(screen, setup).run();
}

} // namespace tarnwell
