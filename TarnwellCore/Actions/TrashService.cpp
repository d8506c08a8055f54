#include "TarnwellCore/Actions/TrashService.hpp"

#include "TarnwellCore/Analysis/Shell.hpp"
#include "TarnwellCore/Analysis/TrashFolders.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Platform/Trash.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Text/Trim.hpp"

#include <exception>
#include <new>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

constexpr std::string_view emptyingTool = "/usr/bin/osascript";
constexpr std::string_view emptyingScript = "tell application \"Finder\" to empty trash";
constexpr double emptyingGracePeriod = 2.0;

std::optional<fs::path> moveToPlatformTrash(const fs::path& url) {
    // With a "/" at its end a link would lead to its target.
    const fs::path item(PathUtil::withoutTrailingSlashes(url.native()));
    if (item.empty())
        throw std::runtime_error(std::generic_category().message(ENOENT));
    if (item.native().find('\0') != std::string::npos) // the platform would see another, shorter path
        throw std::runtime_error(std::generic_category().message(EINVAL));
    auto landed = moveItemToTrash(item);
    if (!landed)
        throw std::runtime_error(landed.error());
    return *std::move(landed);
}

/// Moves the item and completes its outcome.
void moveOne(const TrashService& service, const fs::path& item, TrashOutcome& outcome) noexcept {
    // Short enough to need no memory, as there may be none.
    constexpr const char* outOfMemory = "Out of memory.";
    try {
        if (outcome.source.empty())
            outcome.source = item; // an earlier call gave it away
        outcome.trashedTo = service.trashItem(item);
    } catch (const std::bad_alloc&) {
        outcome.failure = outOfMemory;
    } catch (const std::exception& error) {
        try {
            outcome.failure = error.what();
        } catch (const std::bad_alloc&) {
            outcome.failure = outOfMemory;
        }
    } catch (...) {
        outcome.failure = "The item could not be moved to the Trash.";
    }
}

EmptyTrashOutcome outcomeOf(const std::optional<CommandResult>& result) {
    if (!result)
        return EmptyTrashFailed{"Could not run " + std::string(emptyingTool) + "."};
    if (result->succeeded())
        return EmptyTrashEmptied{};
    if (result->exitCode == Shell::timedOutExitCode)
        return EmptyTrashTimedOut{};
    if (const std::string_view message = trimmed(result->standardError); !message.empty())
        return EmptyTrashFailed{std::string(message)};
    return EmptyTrashFailed{"osascript exited with code " + std::to_string(result->exitCode) + "."};
}

} // namespace

TrashService::TrashService(fs::path home)
    : home_(std::move(home)),
      volumeTrashURLsProvider(TrashFolders::onVolumes),
      trashItem(moveToPlatformTrash),
      runTool(Shell::runAsync) {}

/// All that takes memory comes before the first move: what was moved is never lost sight of.
struct TrashMoves::State {
    State(const TrashService& theService, std::vector<fs::path> theItems)
        : service(theService), items(std::move(theItems)) {
        outcomes.reserve(items.size());
        for (const fs::path& item : items)
            outcomes.push_back({item, std::nullopt, std::nullopt});
    }

    /// Before the first move.
    void plan() noexcept { set.emplace(service.journal.plan(items)); }
    void move(std::size_t number) noexcept {
        TrashOutcome& outcome = outcomes[number];
        outcome.trashedTo.reset(); // of an item that was moved before
        outcome.failure.reset();
        moveOne(service, items[number], outcome);
        if (outcome.trashedTo)
            set->noteMoved(number, *outcome.trashedTo);
    }

    const TrashService service;
    const std::vector<fs::path> items;
    std::vector<TrashOutcome> outcomes;
    std::optional<TrashJournal::Set> set = {}; // refers to the journal of `service`
};

TrashMoves::TrashMoves(std::unique_ptr<State> state) : state_(std::move(state)) {}
TrashMoves::TrashMoves(TrashMoves&&) noexcept = default;
TrashMoves& TrashMoves::operator=(TrashMoves&&) noexcept = default;
TrashMoves::~TrashMoves() = default;

TrashOutcome TrashMoves::move(std::size_t number) {
    state_->move(number);
    return std::move(state_->outcomes[number]);
}

TrashMoves TrashService::planMoves(std::vector<fs::path> urls) const {
    auto state = std::make_unique<TrashMoves::State>(*this, std::move(urls));
    state->plan();
    return TrashMoves(std::move(state));
}

std::future<std::vector<TrashOutcome>> TrashService::moveToTrash(std::vector<fs::path> urls,
                                                                 CancellationToken token) const {
    auto state = std::make_shared<TrashMoves::State>(*this, std::move(urls));
    return runInBackground([state = std::move(state), token = std::move(token)] {
        state->plan();
        for (std::size_t number = 0; number < state->outcomes.size(); ++number)
            if (token.isCancelled())
                state->outcomes[number].failure = TrashOutcome::calledOff;
            else
                state->move(number);
        state->set.reset();
        return std::move(state->outcomes);
    });
}

std::future<TrashOutcome> TrashService::moveToTrash(fs::path url) const {
    auto state = std::make_shared<TrashMoves::State>(*this, std::vector{std::move(url)});
    return runInBackground([state = std::move(state)] {
        state->plan();
        state->move(0);
        state->set.reset();
        return std::move(state->outcomes.front());
    });
}

std::future<EmptyTrashOutcome> TrashService::emptyTrash(double timeout) const {
    return runInBackground([runTool = runTool, timeout] {
        std::optional<CommandResult> result;
        try {
            result = runTool(std::string(emptyingTool), {"-e", std::string(emptyingScript)}, timeout,
                             emptyingGracePeriod)
                         .get();
        } catch (...) {
            result.reset(); // A runner that breaks did not run the tool.
        }
        return outcomeOf(result);
    });
}

std::optional<std::int64_t> TrashService::itemCount() const {
    return TrashFolders::itemCount(TrashFolders::ofHome(home_));
}

std::future<TrashSummary> TrashService::summary(DiskScanner scanner) const {
    return runInBackground([service = *this, scanner] {
        std::vector<fs::path> candidates{TrashFolders::ofHome(service.home())};
        const std::vector<fs::path> others = service.volumeTrashURLs();
        candidates.insert(candidates.end(), others.begin(), others.end());

        TrashSummary summary;
        for (const fs::path& location : candidates) {
            TrashFolders::Contents contents;
            try {
                contents = TrashFolders::contents(location, scanner);
            } catch (const std::exception&) {
                continue; // Nothing can be said about it.
            }
            if (contents.state == TrashFolders::Contents::State::unanswered)
                summary.unanswered.push_back(location);
            if (contents.state != TrashFolders::Contents::State::measured)
                continue;
            summary.locations.push_back(location);
            addChecked(summary.itemCount, contents.itemCount);
            addChecked(summary.size, contents.measurement.logicalSize);
            addChecked(summary.allocatedSize, contents.measurement.allocatedSize);
            addChecked(summary.reclaimableSize, contents.measurement.reclaimableSize);
        }
        return summary;
    });
}

} // namespace tarnwell
