#pragma once

// Runs a program whose system calls are watched, and one or more of which are made to fail, by a preloaded
// library (Shim/FaultyCalls.cpp).

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell::test {

/// With which a program ends that a sanitizer finds fault with.
inline constexpr int sanitizerCode = 66;

struct Program {
    /// The first is the program's path. "WORLD" at the start of one stands for the world.
    std::vector<std::string> arguments;
    /// The folder that is the program's home, with its data and settings below; none when empty.
    std::filesystem::path world = {};
    /// How many descriptors it may have open; 0 for as many as this process.
    std::size_t descriptorLimit = 0;
    /// Bytes of stack of each of its threads; 0 for as many as this process.
    std::size_t stackLimit = 0;
    /// Whether calls are counted, and made to fail; some sanitizers do not bear it.
    bool isWatched = true;
};

struct Fault {
    /// A name from the library's table.
    std::string kind;
    /// The first call of that kind to fail, from 1 on, and how many do; 0 for all from there on.
    long call = 1;
    long count = 1;
    /// 0: it moves as few bytes as it may.
    int error = 0;

    std::string text() const;
};

struct FaultyOutcome {
    /// 128 and the signal for a program that a signal ended, SIGKILL for one that had to be stopped;
    /// `sanitizerCode` for one that a sanitizer found fault with.
    int exitCode = -1;
    std::string output;
    std::string error;
    /// What the library reports: calls by kind; "failed", "descriptors" and "devices".
    std::map<std::string, long> report;

    long count(const std::string& name) const;
};

/// Why programs cannot be run this way here; empty when they can.
const std::string& whyNotFaulty();

/// Tests that are skipped then.
class ProgramFaults : public testing::Test {
protected:
    void SetUp() override {
        if (!whyNotFaulty().empty())
            GTEST_SKIP() << whyNotFaulty();
    }
};

/// Runs the program to its end. Safe from any thread.
FaultyOutcome runWithFault(const Program& program, const std::optional<Fault>& fault = std::nullopt);

/// Whether the long form of tests was asked for, by TARNWELL_THOROUGH=1 in the environment.
bool isThorough();

/// Whether programs are built with a sanitizer, which takes memory and time.
bool isSanitized();

/// A file with this text, in a folder that is made when it is not there.
void writeFile(const std::filesystem::path& file, std::string_view text);

/// A file of that many bytes, none of which is written; none where its folder has just gone.
void makeSparse(const std::filesystem::path& file, std::int64_t size);

/// A run that ended with 0 or 1, whatever failed.
struct FaultyRun {
    const std::filesystem::path& world;
    const FaultyOutcome& outcome;
    const FaultyOutcome& undisturbed;
    const Fault& fault;
};

/// A program and what must hold whatever fails in it.
struct FaultScenario {
    /// Makes all that the program needs in an empty folder.
    std::function<void(const std::filesystem::path& world)> prepare = [](const std::filesystem::path&) {};
    /// Each run gives it a world.
    Program program;
    /// What of an output does not change from run to run.
    std::function<std::string(std::string)> essence = [](std::string output) { return output; };
    /// What is wrong with the world or the outcome after a run; empty when nothing is.
    std::function<std::string(const FaultyRun& run)> complaint;
    /// Where the worlds are made; in memory, as far as there is a place for that, when empty.
    std::filesystem::path place = {};
    /// Whether each run needs a world of its own.
    bool changesWorld = true;
    /// Whether a library below may end the process when it gets no memory.
    bool mayEndWithoutMemory = false;
    /// Whether a library below may give up a call that was interrupted.
    bool mayGiveUpInterrupted = false;
    /// Whether nothing may stand on standard output when the exit code is 1.
    bool failsSilently = true;
};

/// Runs the program undisturbed, then with each of its calls failing, one after the other, with several
/// errors each (with each error in the thorough form), then with all calls of each kind failing. Expects of
/// every run: exit code 0 or 1, never a signal; no descriptor left open, no device opened; a call that is
/// interrupted or that moves few bytes changes nothing; and what the scenario expects.
void expectToSurviveFaults(const FaultScenario& scenario);

} // namespace tarnwell::test
