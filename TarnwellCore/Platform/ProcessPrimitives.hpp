#pragma once

// The few things about starting a program and noticing its end that the systems do differently.

#include <spawn.h>
#include <sys/types.h>

#include <optional>
#include <utility>

namespace tarnwell {

/// A pipe's reading and writing end, neither of which a started program gets; nothing when the system has
/// none to give.
std::optional<std::pair<int, int>> openPipe();

/// A descriptor that polls readable once waiting for this child takes no time to speak of; -1 where the
/// system has none to give. The caller closes it.
int openExitDescriptor(pid_t process);

/// Completes what a program is started with, so that it gets no descriptor of this process but those that
/// `actions` already put at 0 to 2. Adds to `flags` what the attributes will need. False when that fails.
bool withholdDescriptors(posix_spawn_file_actions_t& actions, short& flags);

/// The environment that started programs get.
char** processEnvironment();

} // namespace tarnwell
