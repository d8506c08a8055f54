#pragma once

// What the emulated calls and those who steer them share.

#include "Tests/DarwinEmulation/EmulatedKernel.hpp"

#include <sys/types.h>

#include <map>
#include <mutex>
#include <set>
#include <utility>

namespace tarnwell::test {

using ItemKey = std::pair<dev_t, ino_t>;

struct KernelState {
    static KernelState& current();

    std::mutex mutex;
    EmulatedBehaviour behaviour; // guarded by mutex, as is all below
    std::map<ItemKey, EmulatedEntry> entries;
    std::set<ItemKey> touched; // that were described
    int fetches = 0;

    /// What is known of an item; nothing in particular as a rule.
    EmulatedEntry entry(const ItemKey& key) {
        const auto found = entries.find(key);
        return found == entries.end() ? EmulatedEntry() : found->second;
    }
};

} // namespace tarnwell::test
