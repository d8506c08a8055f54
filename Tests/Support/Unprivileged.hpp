#pragma once

// Running a piece of a test without root's rights, where permissions mean something.

#include <functional>
#include <string>

namespace tarnwell::test {

/// Runs `body` in a child process whose user may not do what root may, and returns the text it returns. A
/// child that dies fails the test. When the test does not run as root, the body's own user is good enough.
std::string runUnprivileged(const std::function<std::string()>& body);

} // namespace tarnwell::test
