#include "TarnwellCore/Scanning/SharedFolder.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace tarnwell {

namespace {

template <class Element>
void append(std::vector<Element>& elements, std::vector<Element>&& others) {
    if (elements.empty())
        elements = std::move(others);
    else
        std::ranges::move(others, std::back_inserter(elements));
}

} // namespace

void FolderShare::add(FolderShare&& other) {
    files.add(std::move(other.files));
    append(folders, std::move(other.folders));
    append(closedFolders, std::move(other.closedFolders));
    append(subfolders, std::move(other.subfolders));
    append(links, std::move(other.links));
    sums += other.sums;
    delta += other.delta;
}

long SharedFolder::read(const DirectoryCalls& calls, std::span<std::byte> buffer) {
    const std::lock_guard guard(turns_);
    if (isAtEnd_)
        return 0;
    buffer = buffer.first(std::min(buffer.size(), std::max(taken_ / 16, firstTurn)));
    const long filled = calls.readPacked(descriptor, buffer.data(), buffer.size());
    taken_ += filled > 0 ? static_cast<std::size_t>(filled) : 0;
    // What lies behind a failure nobody else would read, either; an interrupted call is made again.
    isAtEnd_ = filled == 0 || (filled < 0 && errno != EINTR);
    return filled;
}

void SharedFolder::end(int error) {
    const std::lock_guard guard(turns_);
    isAtEnd_ = true;
    if (error_ == 0)
        error_ = error;
}

int SharedFolder::error() const {
    const std::lock_guard guard(turns_);
    return error_;
}

void SharedFolder::join() {
    const std::lock_guard guard(mutex_);
    ++helperCount_;
}

void SharedFolder::leave() noexcept {
    const std::lock_guard guard(mutex_);
    --helperCount_;
    changed_.notify_all();
}

bool SharedFolder::takeShare(FolderShare& share) {
    if (!share_)
        return false;
    share = *std::exchange(share_, std::nullopt);
    return true;
}

void SharedFolder::handIn(FolderShare share) {
    for (FolderShare met;; share.add(std::move(met))) {
        const std::lock_guard guard(mutex_);
        if (takeShare(met))
            continue;
        share_ = std::move(share);
        changed_.notify_all();
        return;
    }
}

void SharedFolder::collect(FolderShare& share) {
    for (FolderShare met;; share.add(std::move(met))) {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [this] { return helperCount_ == 0 || share_; });
        if (!takeShare(met))
            return;
    }
}

void SharedFolder::waitForHelpers() noexcept {
    end(0);
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return helperCount_ == 0; });
}

} // namespace tarnwell
