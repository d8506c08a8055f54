#pragma once

// File calls of which a chosen one fails, so that every failure of an operation can be made to happen.

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <memory>

namespace tarnwell::test {

class FaultyFileCalls {
public:
    static constexpr int never = -1;

    /// The calls from then on: the one numbered `failingCall` (the first is 0) does nothing, or closes the
    /// descriptor if it is `close`, and fails with this error. Removing a file never fails, it is the way
    /// back.
    FileCalls failing(int failingCall, int error);

    /// The process is killed at the call numbered `lastCall` (the first is 0), before it does anything; a
    /// write has put the first half of its bytes down by then.
    static FileCalls dying(int lastCall);

    /// Real calls of which `write` takes at most a few bytes, and all are interrupted every other time.
    static FileCalls halting();

    /// Whether the chosen call was reached.
    bool hasFailed() const { return state_->count > state_->failingCall && state_->failingCall != never; }

private:
    struct State {
        int count = 0;
        int failingCall = never;
        int error = 0;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

} // namespace tarnwell::test
