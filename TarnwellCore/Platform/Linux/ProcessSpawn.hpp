#pragma once

// Starts a program, with nothing of this process but its environment and its working folder.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tarnwell {

/// Starts the program at `executable`; its standard input is the null device, its standard output and error
/// are the two descriptors, and no other descriptor of this process is open in it, not even one that was
/// opened elsewhere without a thought of programs. No signal is blocked or ignored in it. Both descriptors
/// must be 3 or above; they stay open here. Nothing when it cannot be started. Safe from any thread.
std::optional<pid_t> spawnProcess(const std::string& executable, const std::vector<std::string>& arguments,
                                  int standardOutput, int standardError);

} // namespace tarnwell
