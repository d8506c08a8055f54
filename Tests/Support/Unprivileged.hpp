#pragma once

// Running a piece of a test as somebody else, or elsewhere: without root's rights, where permissions mean
// something, or with another folder as the root of all paths.

#include <functional>
#include <string>

namespace tarnwell::test {

/// Runs `body` as a user who may not do what root may, and returns the text it returns, or what it throws.
/// For root that is done in a child process; a child that dies fails the test. For anybody else it is done
/// here: not every system lets a child that was only forked use its frameworks.
std::string runUnprivileged(const std::function<std::string()>& body);

/// Runs `body` in a child process to which the folder is "/", and returns the text it returns, or what it
/// throws. For root only.
std::string runBelow(const std::string& root, const std::function<std::string()>& body);

} // namespace tarnwell::test
