#include "TarnwellCore/Scanning/NodeRuns.hpp"

#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Scanning/NodeFetch.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>

namespace tarnwell {

namespace {

using Item = NodeSorter::Item;
using Run = std::span<FileNode* const>;

/// A tournament of the first nodes of all runs: whoever is next has won, and every match remembers who lost
/// it, so that the next of the same run plays only those on its way up.
class Merging {
public:
    Merging(std::span<const Run> runs, SizeMode mode)
        : mode_(mode), ahead_(1 + 16 / runs.size()), losers_(runs.size()) {
        heads_.reserve(runs.size());
        for (const Run& run : runs)
            heads_.push_back({.item = {}, .next = run.data(), .end = run.data() + run.size()});
        for (Head& head : heads_)
            advance(head);
        const std::size_t count = heads_.size();
        std::vector<std::size_t> winners(2 * count);
        for (std::size_t place = 2 * count - 1; place >= count; --place)
            winners[place] = place - count;
        for (std::size_t place = count - 1; place > 0; --place) {
            winners[place] = winners[2 * place];
            losers_[place] = winners[2 * place + 1];
            if (precedes(losers_[place], winners[place]))
                std::swap(losers_[place], winners[place]);
        }
        winner_ = winners[1];
    }

    Item take() {
        Head& head = heads_[winner_];
        const Item item = head.item;
        advance(head);
        for (std::size_t place = (winner_ + heads_.size()) / 2; place > 0; place /= 2)
            if (precedes(losers_[place], winner_))
                std::swap(losers_[place], winner_);
        return item;
    }

private:
    struct Head {
        Item item; // its node is null at the end of the run
        FileNode* const* next;
        FileNode* const* end;
    };

    void advance(Head& head) const {
        if (head.next == head.end) {
            head.item = {.size = std::numeric_limits<std::int64_t>::min(),
                         .nameBytes = std::numeric_limits<std::uint64_t>::max(),
                         .node = nullptr};
            return;
        }
        if (static_cast<std::size_t>(head.end - head.next) > ahead_)
            fetchSoon(head.next[ahead_]);
        FileNode* node = *head.next++;
        head.item = NodeSorter::item(*node, node->sizeFor(mode_));
    }

    bool precedes(std::size_t one, std::size_t other) const {
        const Item& a = heads_[one].item;
        const Item& b = heads_[other].item;
        if (a.size != b.size)
            return a.size > b.size;
        if (a.nameBytes != b.nameBytes)
            return a.nameBytes < b.nameBytes;
        if (a.node == nullptr || b.node == nullptr)
            return a.node != nullptr;
        const int order = a.node->name().compare(b.node->name());
        return order != 0 ? order < 0 : one < other;
    }

    const SizeMode mode_;
    const std::size_t ahead_;
    std::vector<Head> heads_;
    std::vector<std::size_t> losers_; // from 1 on; the match at `place` follows those at twice that
    std::size_t winner_ = 0;
};

/// Where the runs are cut, so that all nodes of one part come before those of the next.
class Cutting {
public:
    Cutting(const std::vector<std::vector<FileNode*>>& runs, std::size_t count, SizeMode mode,
            std::size_t parts)
        : runs_(runs), mode_(mode) {
        if (parts < 2)
            return;
        // Evenly out of all runs: what lies between two of them is as large a part of all nodes, nearly.
        constexpr std::size_t samplesAPart = 256;
        const std::size_t step = std::max<std::size_t>(count / (parts * samplesAPart), 1);
        std::vector<const FileNode*> samples;
        samples.reserve(count / step + runs.size());
        std::size_t next = step / 2;
        for (const std::vector<FileNode*>& run : runs) {
            for (; next < run.size(); next += step)
                samples.push_back(run[next]);
            next -= run.size();
        }
        std::ranges::sort(samples, [&](const FileNode* a, const FileNode* b) { return precedes(a, b); });
        for (std::size_t part = 1; part < parts && !samples.empty(); ++part)
            cuts_.push_back(samples[samples.size() * part / parts]);
    }

    std::size_t parts() const { return cuts_.size() + 1; }

    /// What the runs have for a part, and how many nodes are before it.
    std::vector<Run> part(std::size_t index, std::size_t& before) const {
        std::vector<Run> cut;
        cut.reserve(runs_.size());
        before = 0;
        for (const std::vector<FileNode*>& run : runs_) {
            const std::size_t begin = index == 0 ? 0 : find(run, cuts_[index - 1]);
            const std::size_t end = index == cuts_.size() ? run.size() : find(run, cuts_[index]);
            cut.push_back(Run(run).subspan(begin, end - begin));
            before += begin;
        }
        return cut;
    }

private:
    bool precedes(const FileNode* a, const FileNode* b) const {
        const std::int64_t size = a->sizeFor(mode_);
        const std::int64_t other = b->sizeFor(mode_);
        return size != other ? size > other : a->name() < b->name();
    }

    /// Equal nodes stay together, in whichever runs they are.
    std::size_t find(const std::vector<FileNode*>& run, const FileNode* cut) const {
        const auto place = std::ranges::lower_bound(
            run, cut, [&](const FileNode* a, const FileNode* b) { return precedes(a, b); });
        return static_cast<std::size_t>(place - run.begin());
    }

    const std::vector<std::vector<FileNode*>>& runs_;
    const SizeMode mode_;
    std::vector<const FileNode*> cuts_;
};

} // namespace

void NodeRuns::add(std::vector<FileNode*> run) {
    if (run.empty())
        return;
    const std::size_t count = run.size();
    runs_.push_back(std::move(run));
    count_ += count;
}

void NodeRuns::add(NodeRuns&& other) {
    runs_.reserve(runs_.size() + other.runs_.size());
    std::ranges::move(other.runs_, std::back_inserter(runs_));
    other.runs_.clear();
    count_ += std::exchange(other.count_, 0);
}

void NodeRuns::sort(std::span<FileNode* const> nodes, int threads) {
    constexpr std::size_t length = NodeSorter::largestKept;
    std::vector<std::vector<FileNode*>> runs((nodes.size() + length - 1) / length);
    std::atomic<std::size_t> next = 0;
    WorkerThreads([&](WorkerThreads::Place) {
        NodeSorter sorter;
        for (std::size_t index = next++; index < runs.size(); index = next++) {
            const auto part = nodes.subspan(index * length, std::min(length, nodes.size() - index * length));
            for (std::size_t place = 0; place < part.size(); ++place) {
                if (place + nodesAhead < part.size())
                    fetchSoon(part[place + nodesAhead]);
                sorter.add(*part[place], part[place]->sizeFor(mode_));
            }
            runs[index].resize(part.size());
            sorter.takeInto(runs[index]);
        }
    }).run(static_cast<int>(std::min(runs.size(), static_cast<std::size_t>(std::max(threads, 1)))));
    runs_.reserve(runs_.size() + runs.size());
    for (std::vector<FileNode*>& run : runs)
        add(std::move(run));
}

void NodeRuns::take(const Taker& take, int threads) {
    if (count_ == 0)
        return;
    constexpr std::size_t fewest = 32'768; // for a thread: some milliseconds' work
    const std::size_t most = std::min(count_ / fewest, static_cast<std::size_t>(std::max(threads, 1)));
    // Several for each: they are never quite as large as one another.
    constexpr std::size_t partsAThread = 4;
    const Cutting cutting(runs_, count_, mode_, most < 2 ? 1 : most * partsAThread);
    std::atomic<std::size_t> next = 0;
    WorkerThreads([&](WorkerThreads::Place) {
        std::array<Item, 256> piece;
        for (std::size_t index = next++; index < cutting.parts(); index = next++) {
            std::size_t first = 0;
            const std::vector<Run> part = cutting.part(index, first);
            Merging merging(part, mode_);
            std::size_t left = 0;
            for (const Run& run : part)
                left += run.size();
            while (left > 0) {
                const std::size_t count = std::min(left, piece.size());
                for (Item& item : std::span(piece).first(count))
                    item = merging.take();
                take(first, std::span(piece).first(count));
                first += count;
                left -= count;
            }
        }
    }).run(static_cast<int>(most));
    count_ = 0;
    runs_ = std::vector<std::vector<FileNode*>>(); // `{}` would keep the memory
}

std::span<FileNode*> NodeRuns::takeInto(std::span<FileNode*> places, int threads) {
    const std::size_t count = count_;
    take(
        [places](std::size_t first, std::span<const Item> items) {
            std::ranges::transform(items, places.begin() + static_cast<std::ptrdiff_t>(first), &Item::node);
        },
        threads);
    return places.subspan(count);
}

} // namespace tarnwell
