// keys-run: what keys cost the browser's model in one folder, away from any terminal: each key, and each
// answer that it leads to, as the loop that takes keys has to wait for them.

#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellTidyKit/Browser/BrowserUpdate.hpp"
#include "TarnwellTidyKit/Browser/BrowserViews.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Benchmarks/Arguments.hpp"

namespace tarnwell::benchmarks {
namespace {

constexpr std::string_view usage =
    "usage: keys-run [--rounds N] FOLDER\n"
    "Prints, for keys that act on all rows of the folder, the worst milliseconds of the key, of an answer to "
    "it,\n"
    "and of a frame, in N rounds (5).\n";

class Measured {
public:
    explicit Measured(const std::string& folder) {
        state_.now = currentDate;
        state_.home = "/nowhere";
        state_.homeFolder = std::make_shared<const HomeFolder>(state_.home);
        begin(state_, folder);
        setRoom(state_, 20, 80, 40);
        answer();
    }

    void type(const std::vector<KeyPress>& keys, std::string_view title) {
        key_ = answer_ = frame_ = 0;
        for (const KeyPress& key : keys) {
            key_ = std::max(key_, milliseconds([&] { update(state_, key); }));
            answer();
        }
        frame_ = milliseconds([&] { (void)drawn(state_, {80, 24}, true); });
        note(title);
    }

    void print() const {
        for (const Row& row : rows_)
            std::printf("%s\t%.1f\t%.1f\t%.1f\n", row.title.c_str(), row.key, row.answer, row.frame);
    }

private:
    struct Row {
        std::string title;
        double key = 0;
        double answer = 0;
        double frame = 0;
    };

    template <class Work>
    static double milliseconds(const Work& work) {
        const auto begin = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
    }

    std::shared_ptr<const BrowserTree> treeOf(const std::string& folder) const {
        return std::make_shared<const BrowserTree>(DiskScanner().scan(folder).get(), state_.home);
    }

    /// As if the items were in the Trash.
    BrowserEvent trashed(std::uint64_t id, const BrowserJobs::TreeItems& items) {
        const auto gone = std::make_shared<FoundChanges>();
        const auto back = std::make_shared<FoundChanges>();
        for (const FileNode* node : items.nodes)
            gone->items.gone.push_back(node->path());
        back->items.back = gone->items.gone;
        gone->nodes = ChangedNodes::of(gone->items, items.tree);
        back->nodes = ChangedNodes::of(back->items, items.tree);
        undone_ = back;
        return BrowserEvents::Acted{.id = id, .title = "To the Trash", .changes = gone};
    }

    /// What a lane would do.
    std::optional<BrowserEvent> done(const BrowserRequest& request) {
        if (const auto* order = std::get_if<BrowserJobs::Order>(&request.job))
            return BrowserEvents::Ordered{request.id, std::make_shared<const Ordering>(ordered(
                                                          *order->entries, order->choice, order->place))};
        if (std::holds_alternative<BrowserJobs::Freed>(request.job))
            return BrowserEvents::Freed{request.id, {}};
        if (const auto* scan = std::get_if<BrowserJobs::Scan>(&request.job))
            return BrowserEvents::ScanEnded{request.id, treeOf(scan->folder)};
        if (const auto* rescan = std::get_if<BrowserJobs::Rescan>(&request.job)) {
            const auto tree = treeOf(rescan->folder->path());
            return BrowserEvents::ScanEnded{request.id, tree, std::nullopt, tree->carried(rescan->marks)};
        }
        if (const auto* carry = std::get_if<BrowserJobs::Carry>(&request.job))
            return BrowserEvents::ScanEnded{
                request.id,
                carry->tree,
                carry->part,
                carry->marks,
                carried(carry->tree, carry->notes, carry->part, carry->changes, carry->marks),
                carry->changes.count()};
        if (const auto* follow = std::get_if<BrowserJobs::Follow>(&request.job))
            return BrowserEvents::Followed{
                request.id, follow->tree,
                followed(follow->tree, follow->notes, follow->changes, follow->folder),
                follow->changes.size()};
        if (const auto* trash = std::get_if<BrowserJobs::Trash>(&request.job))
            return trashed(request.id, trash->items);
        if (std::holds_alternative<BrowserJobs::Undo>(request.job))
            return BrowserEvents::Acted{
                .id = request.id, .title = "Undo", .changes = std::exchange(undone_, {})};
        return std::nullopt;
    }

    /// As long as something is asked for. Elsewhere, as lanes do it: freeing a million things here would make
    /// the next allocation wait.
    void answer() {
        while (!state_.requests.empty())
            for (BrowserRequest& request : std::exchange(state_.requests, {})) {
                auto event = std::async(std::launch::async, [this, own = std::move(request)] {
                                 return done(own);
                             }).get();
                if (event)
                    answer_ = std::max(answer_, milliseconds([&] { update(state_, std::move(*event)); }));
            }
    }

    void note(std::string_view title) {
        auto row = std::ranges::find(rows_, title, &Row::title);
        if (row == rows_.end())
            row = rows_.insert(row, {.title = std::string(title)});
        row->key = std::max(row->key, key_);
        row->answer = std::max(row->answer, answer_);
        row->frame = std::max(row->frame, frame_);
    }

    BrowserState state_;
    std::shared_ptr<const FoundChanges> undone_;
    std::vector<Row> rows_;
    double key_ = 0;
    double answer_ = 0;
    double frame_ = 0;
};

int run(const std::string& folder, std::uint64_t rounds) {
    const auto character = [](const char* text) { return KeyPress{.key = Key::character, .text = text}; };
    const KeyPress end{.key = Key::end};
    Measured browser(folder);
    for (std::uint64_t round = 0; round < rounds; ++round) {
        browser.type({character("n")}, "by name");
        browser.type({end, character("s")}, "by size, at the last row");
        browser.type({character("A")}, "mark all");
        browser.type({character("s")}, "by size, all marked");
        browser.type({character("U")}, "unmark");
        browser.type({KeyPress{.key = Key::home}, character("v"), end, character(" ")},
                     "mark a range of all");
        browser.type({character("U")}, "unmark");
        browser.type({character("/"), character("e"), KeyPress{.key = Key::enter}}, "filter");
        browser.type({character("A")}, "mark what a filter leaves");
        browser.type({KeyPress{.key = Key::escape}}, "no filter");
        browser.type({character("A")}, "mark the others");
        if (round == 0)
            browser.type({character("r")}, "read again, all marked");
        browser.type({character("U")}, "unmark");
        browser.type({character("A")}, "mark all");
        browser.type({character("d")}, "ask whether all go");
        browser.type({character("y")}, "all are gone");
        browser.type({character("u")}, "all are back");
        browser.type({KeyPress{.key = Key::home}, character(" ")}, "mark one");
        browser.type({character("d"), character("y")}, "one is gone");
        browser.type({character("u")}, "one is back");
    }
    std::printf("| %s | key, ms | answer | frame |\n", folder.c_str());
    browser.print();
    return 0;
}

} // namespace
} // namespace tarnwell::benchmarks

int main(int count, char** values) {
    using namespace tarnwell::benchmarks;
    std::uint64_t rounds = 5;
    const std::string folder = parseArguments(count, values, {{"--rounds", &rounds}}, usage);
    return run(folder, rounds);
}
