// How a worker reads a folder together with others.

#include "TarnwellCore/Platform/WorkerThreads.hpp"
#include "TarnwellCore/Scanning/ScanWorker.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <iterator>
#include <memory>
#include <utility>

namespace tarnwell {

namespace {

/// A record takes no more bytes.
constexpr std::size_t longestRecord = 280;

/// Bytes of records after which it is known that a thread does not wait for their entries. So often it waits
/// though all of them are in the kernel's caches, and once more in each further turn: for another's turn to
/// end. With those of a disk it waits ten times and more.
constexpr std::size_t tellingBytes = SharedFolder::wholeTurn * 3 / 4;
constexpr std::int64_t fewWaits = 3;

} // namespace

void ScanWorker::beginTurns() {
    turnCount_ = 0;
    turnBytes_ = 0;
    goesOn_ = isWaitingKnown_ = mostlyWaited_ = false;
}

/// The source of records for the reader. What it gave last has been dealt with.
long ScanWorker::nextRecords(std::span<std::byte> buffer) {
    if (isLeavingEarly())
        return 0;
    const bool isFirst = turnCount_ == 0 && context_.queue.isHungry();
    buffer =
        buffer.first(std::min(buffer.size(), isFirst ? SharedFolder::firstTurn : SharedFolder::wholeTurn));
    const long filled = shared_ != nullptr
                            ? shared_->read(context_.calls, buffer)
                            : context_.calls.readPacked(descriptor_, buffer.data(), buffer.size());
    if (filled <= 0)
        return filled;
    if (++turnCount_ > 1)
        noteTurn();
    goesOn_ = buffer.size() - static_cast<std::size_t>(filled) < longestRecord;
    turnBytes_ += static_cast<std::size_t>(filled);
    return filled;
}

/// The folder goes on: it is worth other workers when there are any, or when it has to be waited for.
void ScanWorker::noteTurn() {
    const std::int64_t waits = waitsOfThisThread();
    const bool isMeasured = turnCount_ > 2;
    const bool hasWaited = isMeasured && waits - judgedWaits_ >= fewWaits + (turnCount_ - judgedTurn_);
    if (!isMeasured || hasWaited || turnBytes_ - judgedBytes_ >= tellingBytes) {
        isWaitingKnown_ = isMeasured;
        mostlyWaited_ = hasWaited;
        judgedWaits_ = waits;
        judgedTurn_ = turnCount_;
        judgedBytes_ = turnBytes_;
    }
    const bool isHungry = context_.queue.isHungry();
    // One of which nothing was handed on may still turn out to be read one by one.
    if (shared_ == nullptr && (isHungry || mostlyWaited_) && reader_.hasHandedOn())
        share();
    if (shared_ != nullptr && mostlyWaited_ && !isHungry)
        (*addWorker_)();
}

void ScanWorker::share() {
    shared_ = std::make_shared<SharedFolder>(*item_, descriptor_, collapseTarget_, turnBytes_);
    context_.queue.offer(shared_);
}

/// As `workOnBatch`: one that was added leaves between two turns, too.
bool ScanWorker::isLeavingEarly() const {
    return isHelping_ && isAdded_ && isWaitingKnown_ && !mostlyWaited_;
}

bool ScanWorker::workOnShared() {
    struct Helping {
        SharedFolder& folder;
        int exceptions = std::uncaught_exceptions();
        ~Helping() {
            if (std::uncaught_exceptions() > exceptions) // out of memory: the scan ends
                folder.end(ENOMEM);
            folder.leave();
        }
    };
    {
        const Helping helping{*shared_};
        item_ = &shared_->item;
        descriptor_ = shared_->descriptor;
        collapseTarget_ = shared_->collapseTarget;
        delta_ = {.node = collapseTarget_};
        beginTurns();
        isHelping_ = true;
        const bool isRead = reader_.helpToRead(descriptor_, item_->deviceID, consumer_, records_);
        // At its end for one, or called off, is at its end for all.
        if (!isRead || !isLeavingEarly())
            endShared(isRead);
        shared_->handIn(takeShare());
    }
    const bool isLeaving = isLeavingEarly();
    isHelping_ = false;
    shared_ = nullptr;
    context_.queue.finish(pending_, tally_);
    return !isLeaving;
}

void ScanWorker::endShared(bool isRead) {
    shared_->end(isRead ? 0 : errno);
    context_.queue.withdraw(*shared_);
}

/// What this worker made of its records, but for the folders that are still to be read.
FolderShare ScanWorker::takeShare() {
    FolderShare share;
    putFilesAside();
    share.files = std::exchange(fileRuns_, {});
    share.folders = std::exchange(folders_, {});
    share.closedFolders = std::exchange(closedFolders_, {});
    share.sums = std::exchange(sums_, {});
    share.delta = delta_;
    if (isHelping_) { // its owner has others besides
        share.subfolders = std::exchange(pending_, {});
        share.links = std::exchange(live_.links, {});
    }
    return share;
}

/// Makes the folder what it would be if its owner had read it alone. False when one of those who read it
/// could not, with the reason in errno.
bool ScanWorker::completeShared(bool isRead) {
    endShared(isRead);
    FolderShare share = takeShare();
    shared_->collect(share);
    fileRuns_ = std::move(share.files);
    folders_ = std::move(share.folders);
    closedFolders_ = std::move(share.closedFolders);
    sums_ = share.sums;
    delta_ = share.delta;
    std::ranges::move(share.subfolders, std::back_inserter(pending_));
    std::ranges::move(share.links, std::back_inserter(live_.links));
    const int error = shared_->error();
    shared_ = nullptr;
    errno = error;
    return error == 0;
}

} // namespace tarnwell
