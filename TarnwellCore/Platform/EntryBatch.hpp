#pragma once

// A folder's entries on their way from the platform's reader to whoever makes something of them. They come
// some at a time: an entry is used while the processor's caches hold it, and a folder of a million needs no
// more memory than one of fifty.

#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <span>

namespace tarnwell {

/// Takes the next entries of a folder. They and their names last until it returns. False: it wants no more.
using EntryConsumer = std::function<bool(std::span<const RawDirectoryEntry>)>;

/// Used again for every folder. Confined to one thread.
class EntryBatch {
public:
    /// Begins a folder, with nothing in the batch. `consumer` must last until its end.
    void begin(const EntryConsumer& consumer) {
        consumer_ = &consumer;
        count_ = 0;
        hasHandedOn_ = false;
    }

    /// How many entries a batch takes.
    static constexpr std::size_t capacity = 48;

    bool isFull() const { return count_ == entries_.size(); }
    std::size_t count() const { return count_; }
    std::span<RawDirectoryEntry> entries() { return std::span(entries_).first(count_); }

    /// An entry without anything in it, to be filled in place. Not for a full batch.
    RawDirectoryEntry& add() { return entries_[count_++] = RawDirectoryEntry(); }
    void removeLast() { --count_; }
    void removeAll() { count_ = 0; }

    /// Hands on what is there. False when the consumer wants no more: then the rest of the folder may stay
    /// unread.
    bool handOn() {
        if (count_ == 0)
            return true;
        const std::size_t count = count_;
        count_ = 0;
        hasHandedOn_ = true;
        return (*consumer_)(std::span(entries_).first(count));
    }
    /// Whether the consumer has seen anything of this folder.
    bool hasHandedOn() const { return hasHandedOn_; }

private:
    // Together they fit in a first-level cache, with the nodes that are made of them.
    std::array<RawDirectoryEntry, capacity> entries_;
    std::size_t count_ = 0;
    bool hasHandedOn_ = false;
    const EntryConsumer* consumer_ = nullptr;
};

} // namespace tarnwell
