#pragma once

// Running a piece of a test without root's rights, where permissions mean something.

#include <functional>
#include <string>

namespace tarnwell::test {

/// Runs `body` as a user who may not do what root may, and returns the text it returns, or what it throws.
/// For root that is done in a child process; a child that dies fails the test. For anybody else it is done
/// here: not every system lets a child that was only forked use its frameworks.
std::string runUnprivileged(const std::function<std::string()>& body);

} // namespace tarnwell::test
