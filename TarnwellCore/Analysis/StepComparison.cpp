#include "TarnwellCore/Analysis/StepComparison.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tarnwell {

namespace {

bool areEqual(std::span<const std::byte> one, std::span<const std::byte> other) {
    return one.size() == other.size() &&
           (one.empty() || std::memcmp(one.data(), other.data(), one.size()) == 0);
}

} // namespace

StepComparison::StepComparison(std::size_t count, Next next, Leave leave)
    : next_(std::move(next)), leave_(std::move(leave)) {
    for (std::size_t number = 0; number < count; ++number)
        streams_.push_back({number, 0, {}});
}

std::vector<std::vector<std::size_t>> StepComparison::run(std::int64_t length) {
    split(); // of nothing read yet: one kind, which may be too small
    while (length > 0 && !streams_.empty()) {
        readStep();
        split();
        if (!streams_.empty())
            length -= static_cast<std::int64_t>(streams_.front().bytes.size());
    }
    std::vector<std::vector<std::size_t>> groups(kinds_.size());
    for (const Stream& stream : streams_)
        groups[stream.kind].push_back(stream.number);
    std::erase_if(groups, [](const auto& group) { return group.empty(); });
    return groups;
}

void StepComparison::readStep() {
    std::erase_if(streams_, [&](Stream& stream) {
        const auto bytes = next_(stream.number);
        const bool isLeft = bytes && !bytes->empty();
        if (isLeft)
            stream.bytes = *bytes;
        else
            leave_(stream.number, bytes ? ESTALE : bytes.error());
        return !isLeft;
    });
}

/// Each stream against the first of each kind that it can still be of.
void StepComparison::split() {
    kinds_.clear();
    for (std::size_t place = 0; place < streams_.size(); ++place) {
        Stream& stream = streams_[place];
        auto kind = std::ranges::find_if(kinds_, [&](const Kind& known) {
            return known.before == stream.kind && areEqual(streams_[known.first].bytes, stream.bytes);
        });
        if (kind == kinds_.end())
            kind = kinds_.insert(kinds_.end(), {stream.kind, place, 0});
        ++kind->count;
        stream.kind = static_cast<std::size_t>(kind - kinds_.begin());
    }
    std::erase_if(streams_, [&](const Stream& stream) {
        const bool isAlone = kinds_[stream.kind].count == 1;
        if (isAlone)
            leave_(stream.number, 0);
        return isAlone;
    });
}

} // namespace tarnwell
