#include "TarnwellCore/Platform/ProcessSpawn.hpp"

#include "TarnwellCore/Platform/ProcessPrimitives.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

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

bool holdsNUL(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

} // namespace

bool isExecutableFile(const std::string& path) {
    struct stat attributes = {};
    return !holdsNUL(path) && ::stat(path.c_str(), &attributes) == 0 && S_ISREG(attributes.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

std::optional<pid_t> spawnProcess(const std::string& executable, const std::vector<std::string>& arguments,
                                  int standardOutput, int standardError) {
    if (holdsNUL(executable) || std::ranges::any_of(arguments, holdsNUL))
        return std::nullopt;

    FileActions actions;
    Attributes attributes;
    if (!actions.isValid || !attributes.isValid)
        return std::nullopt;
    // What a host blocks or ignores (SIGPIPE, often) is its own affair: a program expects the defaults.
    short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    const bool isConfigured =
        ::posix_spawn_file_actions_addopen(&actions.value, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
        ::posix_spawn_file_actions_adddup2(&actions.value, standardOutput, STDOUT_FILENO) == 0 &&
        ::posix_spawn_file_actions_adddup2(&actions.value, standardError, STDERR_FILENO) == 0 &&
        withholdDescriptors(actions.value, flags) &&
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
                      processEnvironment()) != 0)
        return std::nullopt;
    return process;
}

} // namespace tarnwell
