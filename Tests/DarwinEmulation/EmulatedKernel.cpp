#include "Tests/DarwinEmulation/EmulatedKernel.hpp"

#include "Tests/DarwinEmulation/KernelState.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <stdexcept>

namespace tarnwell::test {

namespace {

ItemKey keyOf(const std::filesystem::path& path) {
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0)
        throw std::invalid_argument(path.string());
    return {status.st_dev, status.st_ino};
}

} // namespace

KernelState& KernelState::current() {
    static auto* const state = new KernelState;
    return *state;
}

EmulatedKernel::EmulatedKernel(const EmulatedBehaviour& behaviour) {
    KernelState& state = KernelState::current();
    const std::lock_guard guard(state.mutex);
    state.behaviour = behaviour;
}

EmulatedKernel::~EmulatedKernel() {
    KernelState& state = KernelState::current();
    const std::lock_guard guard(state.mutex);
    state.behaviour = {};
    state.entries.clear();
    state.touched.clear();
    state.fetches = 0;
}

void EmulatedKernel::describe(const std::filesystem::path& path, const EmulatedEntry& entry) {
    KernelState& state = KernelState::current();
    const std::lock_guard guard(state.mutex);
    state.entries[keyOf(path)] = entry;
}

bool EmulatedKernel::wasTouched(const std::filesystem::path& path) const {
    KernelState& state = KernelState::current();
    const std::lock_guard guard(state.mutex);
    return state.touched.contains(keyOf(path));
}

int EmulatedKernel::fetches() const {
    KernelState& state = KernelState::current();
    const std::lock_guard guard(state.mutex);
    return state.fetches;
}

} // namespace tarnwell::test
