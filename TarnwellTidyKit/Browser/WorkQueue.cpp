#include "TarnwellTidyKit/Browser/WorkQueue.hpp"

#include "TarnwellCore/Scanning/ScanError.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"

#include <algorithm>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

namespace tarnwell {

WorkQueue::WorkQueue(Work work, std::function<void()> wake)
    : work_(std::move(work)), wake_(std::move(wake)) {}

WorkQueue::~WorkQueue() {
    {
        const std::lock_guard guard(mutex_);
        isEnding_ = true;
        for (std::size_t number = 0; number < browserLaneCount; ++number) {
            Lane& lane = lanes_[number];
            // What was to be changed and has not begun is left as it is; what has is brought to its end.
            lane.waiting.clear();
            if (lane.isBusy && number != static_cast<std::size_t>(BrowserLane::act))
                lane.token.cancel();
        }
    }
    changed_.notify_all();
    for (Lane& lane : lanes_)
        if (lane.thread.joinable())
            lane.thread.join();
}

void WorkQueue::add(BrowserRequest request) {
    const auto number = static_cast<std::size_t>(laneOf(request.job));
    const std::uint64_t id = request.id;
    bool hasThread = true;
    {
        const std::lock_guard guard(mutex_);
        Lane& lane = lanes_[number];
        if (!lane.thread.joinable()) {
            try {
                lane.thread = std::thread([this, number] { run(number); });
            } catch (const std::system_error&) {
                hasThread = false;
            }
        }
        if (hasThread)
            lane.waiting.push_back({std::move(request), {}});
    }
    if (!hasThread)
        post(BrowserEvents::Failed{id, "The system has no thread to give; try again later."});
    changed_.notify_all();
}

void WorkQueue::cancel(std::uint64_t id) {
    CancellationToken token;
    bool isFound = false;
    {
        const std::lock_guard guard(mutex_);
        for (std::size_t number = 0; number < browserLaneCount; ++number) {
            Lane& lane = lanes_[number];
            std::erase_if(lane.waiting, [id](const Waiting& each) { return each.request.id == id; });
            if (lane.current != nullptr && lane.current->id == id &&
                number != static_cast<std::size_t>(BrowserLane::act)) {
                token = lane.token;
                isFound = true;
            }
        }
    }
    if (isFound)
        token.cancel();
}

bool WorkQueue::drop(BrowserLane lane, const std::function<bool(const BrowserJob&)>& isKept) {
    const std::lock_guard guard(mutex_);
    Lane& each = lanes_[static_cast<std::size_t>(lane)];
    std::erase_if(each.waiting, [&](const Waiting& waiting) { return !isKept(waiting.request.job); });
    return each.current != nullptr && !isKept(each.current->job);
}

std::vector<BrowserEvent> WorkQueue::takeEvents() {
    const std::lock_guard guard(mutex_);
    return std::exchange(events_, {});
}

bool WorkQueue::isIdle() const {
    const std::lock_guard guard(mutex_);
    return events_.empty() &&
           std::ranges::all_of(lanes_, [](const Lane& lane) { return !lane.isBusy && lane.waiting.empty(); });
}

void WorkQueue::waitFor(BrowserLane lane) {
    const auto number = static_cast<std::size_t>(lane);
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [&] { return !lanes_[number].isBusy && lanes_[number].waiting.empty(); });
}

void WorkQueue::post(BrowserEvent event) {
    {
        const std::lock_guard guard(mutex_);
        events_.push_back(std::move(event));
    }
    wake_();
}

void WorkQueue::run(std::size_t number) {
    Lane& lane = lanes_[number];
    for (;;) {
        Waiting next;
        {
            std::unique_lock guard(mutex_);
            lane.isBusy = false;
            changed_.notify_all();
            changed_.wait(guard, [&] { return isEnding_ || !lane.waiting.empty(); });
            if (lane.waiting.empty())
                return;
            next = std::move(lane.waiting.front());
            lane.waiting.pop_front();
            lane.isBusy = true;
            lane.current = &next.request;
            lane.token = next.token;
        }
        // Before the request itself goes, which takes its time with a large tree in it.
        const struct Ended {
            std::mutex& mutex;
            Lane& lane;
            ~Ended() {
                const std::lock_guard guard(mutex);
                lane.current = nullptr;
            }
        } ended{mutex_, lane};
        std::string reason;
        try {
            work_(next.request, next.token, [this](BrowserEvent event) { post(std::move(event)); });
            continue;
        } catch (const std::bad_alloc&) {
            reason = "There is not enough memory.";
        } catch (const std::exception& error) {
            reason = next.token.isCancelled() ? std::string() : error.what();
        } catch (...) {
            reason = "An unknown error occurred.";
        }
        post(BrowserEvents::Failed{next.request.id, std::move(reason)});
    }
}

} // namespace tarnwell
