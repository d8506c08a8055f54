#include "TarnwellCore/Scanning/NodeRuns.hpp"

#include "TarnwellCore/Scanning/NodeFetch.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace tarnwell {

namespace {

/// A tournament of the first nodes of all runs: whoever is next has won, and every match remembers who lost
/// it, so that the next of the same run plays only those on its way up.
class Merging {
public:
    explicit Merging(const std::vector<std::vector<FileNode*>>& runs)
        : ahead_(1 + 16 / runs.size()), losers_(runs.size()) {
        heads_.reserve(runs.size());
        for (const std::vector<FileNode*>& run : runs)
            heads_.push_back(
                {.size = 0, .node = nullptr, .next = run.data(), .end = run.data() + run.size()});
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

    FileNode* take() {
        Head& head = heads_[winner_];
        FileNode* node = head.node;
        advance(head);
        for (std::size_t place = (winner_ + heads_.size()) / 2; place > 0; place /= 2)
            if (precedes(losers_[place], winner_))
                std::swap(losers_[place], winner_);
        return node;
    }

private:
    struct Head {
        std::int64_t size; // of the node
        FileNode* node;    // null at the end of the run
        FileNode* const* next;
        FileNode* const* end;
    };

    void advance(Head& head) const {
        if (head.next == head.end) {
            head.node = nullptr;
            return;
        }
        if (static_cast<std::size_t>(head.end - head.next) > ahead_)
            fetchSoon(head.next[ahead_]);
        head.node = *head.next++;
        head.size = head.node->size;
    }

    bool precedes(std::size_t one, std::size_t other) const {
        const Head& a = heads_[one];
        const Head& b = heads_[other];
        if (a.node == nullptr || b.node == nullptr)
            return a.node != nullptr;
        return a.size != b.size ? a.size > b.size : a.node->name() < b.node->name();
    }

    const std::size_t ahead_;
    std::vector<Head> heads_;
    std::vector<std::size_t> losers_; // from 1 on; the match at `place` follows those at twice that
    std::size_t winner_ = 0;
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

std::span<FileNode*> NodeRuns::takeInto(std::span<FileNode*> places) {
    if (count_ == 0)
        return places;
    Merging merging(runs_);
    const std::size_t count = std::exchange(count_, 0);
    for (FileNode*& place : places.first(count))
        place = merging.take();
    runs_ = std::vector<std::vector<FileNode*>>(); // `{}` would keep the memory
    return places.subspan(count);
}

} // namespace tarnwell
