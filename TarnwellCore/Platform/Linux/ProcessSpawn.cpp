#include "TarnwellCore/Platform/Linux/ProcessSpawn.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

namespace tarnwell {

namespace {

struct FileActions {
    posix_spawn_file_actions_t value;
    bool isValid = ::posix_spawn_file_actions_init(&value) == 0;

    FileActions() = default;
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() {
        if (isValid)
            ::posix_spawn_file_actions_destroy(&value);
    }
};

struct Attributes {
    posix_spawnattr_t value;
    bool isValid = ::posix_spawnattr_init(&value) == 0;

    Attributes() = default;
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() {
        if (isValid)
            ::posix_spawnattr_destroy(&value);
    }
};

} // namespace

std::optional<pid_t> spawnProcess(const std::string& executable, const std::vector<std::string>& arguments,
                                  int standardOutput, int standardError) {
    FileActions actions;
    Attributes attributes;
    if (!actions.isValid || !attributes.isValid)
        return std::nullopt;
    // What a host blocks or ignores (SIGPIPE, often) is its own affair: a program expects the defaults.
    constexpr short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    const bool isConfigured =
        ::posix_spawn_file_actions_addopen(&actions.value, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
        ::posix_spawn_file_actions_adddup2(&actions.value, standardOutput, STDOUT_FILENO) == 0 &&
        ::posix_spawn_file_actions_adddup2(&actions.value, standardError, STDERR_FILENO) == 0 &&
        ::posix_spawn_file_actions_addclosefrom_np(&actions.value, STDERR_FILENO + 1) == 0 &&
        ::posix_spawnattr_setsigdefault(&attributes.value, &all) == 0 &&
        ::posix_spawnattr_setsigmask(&attributes.value, &none) == 0 &&
        ::posix_spawnattr_setflags(&attributes.value, flags) == 0;
    if (!isConfigured)
        return std::nullopt;

    // posix_spawn takes pointers to non-constant text for the sake of old programs; it changes none.
    std::vector<char*> texts{const_cast<char*>(executable.c_str())};
    for (const std::string& argument : arguments)
        texts.push_back(const_cast<char*>(argument.c_str()));
    texts.push_back(nullptr);
    pid_t process = 0;
    if (::posix_spawn(&process, executable.c_str(), &actions.value, &attributes.value, texts.data(),
                      environ) != 0)
        return std::nullopt;
    return process;
}

} // namespace tarnwell
