#include "Tests/Support/Unprivileged.hpp"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>

namespace tarnwell::test {

namespace {

std::string textOf(const std::function<std::string()>& body) {
    try {
        return body();
    } catch (const std::exception& error) {
        return std::string("exception: ") + error.what();
    }
}

/// In a child process; `prepare` makes it another one, and ends it when it cannot.
std::string runInChild(const std::function<void()>& prepare, const std::function<std::string()>& body) {
    int ends[2];
    if (::pipe(ends) != 0) {
        ADD_FAILURE() << "no pipe";
        return {};
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        prepare();
        const std::string text = textOf(body);
        const bool isWritten =
            ::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ::_exit(isWritten ? 0 : 3);
    }
    ::close(ends[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t count = 0; (count = ::read(ends[0], buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(count));
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child ended with status " << status;
    return text;
}

} // namespace

std::string runUnprivileged(const std::function<std::string()>& body) {
    if (::geteuid() != 0)
        return textOf(body);
    return runInChild(
        [] {
            constexpr unsigned nobody = 65534;
            if (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0)
                ::_exit(2);
        },
        body);
}

std::string runBelow(const std::string& root, const std::function<std::string()>& body) {
    return runInChild(
        [&] {
            if (::chroot(root.c_str()) != 0 || ::chdir("/") != 0)
                ::_exit(2);
        },
        body);
}

} // namespace tarnwell::test
