#include "Tests/TidyKit/Scene.hpp"

#include "TarnwellCore/Actions/TrashService.hpp"
#include "TarnwellCore/Platform/JSONFileDefaults.hpp"
#include "TarnwellTidyKit/Commands/TidyRunner.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell::test {

namespace {

TrashOutcome moveAside(const fs::path& item, const fs::path& trash) {
    TrashOutcome outcome{item, std::nullopt, std::nullopt};
    std::error_code error;
    fs::create_directories(trash, error);
    const fs::path target = trash / item.filename();
    if (fs::exists(target, error))
        outcome.failure = "There is one of that name already.";
    else if (fs::rename(item, target, error); error)
        outcome.failure = error.message();
    else
        outcome.trashedTo = target;
    return outcome;
}

void expectKeysInOrder(const JSONValue& value) {
    if (value.IsArray())
        for (const JSONValue& element : value.GetArray())
            expectKeysInOrder(element);
    if (!value.IsObject())
        return;
    std::string last;
    for (const auto& [key, member] : value.GetObject()) {
        EXPECT_LT(last, key);
        last = key;
        expectKeysInOrder(member);
    }
}

} // namespace

Scene::Scene() : services(TidyServices::live()) {
    const fs::path folder = home.path();
    services.home = [folder] { return folder; };
    services.settings = [folder] { return std::make_shared<JSONFileDefaults>(folder / ".settings.json"); };
    services.snapshotStore = [folder] { return std::make_unique<SnapshotStore>(folder / "snapshots"); };
    services.history = [file = kept / "history.json"] { return ScanHistory(file); };
    services.open = [](const fs::path&) { return false; };
    services.schedulePlan = [folder](const Words& arguments) {
        return SystemdUser::plan(snapshotScheduleJob("/opt/tarnwell-tidy", arguments), folder / ".config");
    };
    services.scheduleInstaller.run = [](const ScheduledJobPlan::Command&) { return std::nullopt; };
    moveToTrash = [folder](const fs::path& item) { return moveAside(item, folder / ".trash"); };
    const auto restorer = [this, folder] {
        TrashRestorer made(folder, TrashJournal(folder / ".journal"));
        made.trashFolders = trashFolders; // as the test may have replaced it
        return made;
    };
    const auto trashService = [this, folder] {
        TrashService service(folder);
        service.journal = TrashJournal(folder / ".journal");
        service.trashItem = [this](const fs::path& item) { // as the test may have replaced it
            const TrashOutcome outcome = moveToTrash(item);
            return outcome.failure ? throw std::runtime_error(*outcome.failure) : outcome.trashedTo;
        };
        return service;
    };
    services.planTrash = [trashService](std::vector<fs::path> items) {
        return trashService().planMoves(std::move(items));
    };
    services.uninstaller = [trashService, folder](const fs::path& place) {
        Uninstaller made(place);
        made.machineRoot = folder / "machine";
        made.programsRunningFrom = [](const fs::path&) { return std::vector<RunningProgram>(); };
        made.trash = trashService();
        return made;
    };
    services.listTrash = [restorer] { return restorer().list().get(); };
    services.restore = [restorer](const std::vector<fs::path>& places, const CancellationToken& token) {
        return restorer().restore(places, token).get();
    };
    services.restoreSet = [restorer](const UUID& set) { return restorer().restoreSet(set).get(); };
    trashFolders = [folder](const fs::path&) { return std::vector<fs::path>{folder / ".trash"}; };
}

void Scene::setAge(std::string_view relative, double days) const {
    const auto seconds = currentDate().time_since_epoch().count() - days * 86'400;
    const timespec time{.tv_sec = static_cast<std::time_t>(seconds), .tv_nsec = 0};
    const timespec times[2] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, path(relative).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

TidyResult Scene::run(const Words& words) const {
    return TidyRunner::run(words, services, surroundings);
}

std::string Scene::text(const Words& words) const {
    const TidyResult result = run(words);
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    return result.standardOutput;
}

JSONValue Scene::json(Words words, std::int32_t exitCode) const {
    words.emplace_back("--json");
    const TidyResult result = run(words);
    EXPECT_EQ(result.exitCode, exitCode) << result.standardError;
    return readDocument(result.standardOutput);
}

JSONValue readDocument(const std::string& text) {
    std::optional<JSONValue> document = JSONValue::read(text);
    if (!document || !document->IsObject() || !document->HasMember("version")) {
        ADD_FAILURE() << "no document: " << text;
        return {};
    }
    EXPECT_EQ((*document)["version"].GetInt64(), 1);
    expectKeysInOrder(*document);
    return std::move(*document);
}

Words column(const JSONValue& array, const char* key) {
    Words words;
    for (const auto& element : array.GetArray())
        words.emplace_back(element[key].GetString(), element[key].GetStringLength());
    return words;
}

ProgramRun runProgram(const fs::path& home, const Words& words, const std::function<void()>& prepare) {
    const TemporaryFolder folder;
    const fs::path output = folder.makeFile("output");
    const fs::path error = folder.makeFile("error");
    std::vector<char*> values{const_cast<char*>(TARNWELL_TIDY)};
    for (const std::string& word : words)
        values.push_back(const_cast<char*>(word.c_str()));
    values.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::signal(SIGPIPE, SIG_DFL);
        ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
        ::dup2(::open(output.c_str(), O_WRONLY), STDOUT_FILENO);
        ::dup2(::open(error.c_str(), O_WRONLY), STDERR_FILENO);
        ::setenv("HOME", home.c_str(), 1);
        ::setenv("CFFIXED_USER_HOME", home.c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
        ::unsetenv("NO_COLOR");
        prepare();
        ::execv(TARNWELL_TIDY, values.data());
        ::_exit(126);
    }
    ProgramRun run;
    int status = 0;
    ::waitpid(child, &status, 0);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    run.output = readFile(output);
    run.error = readFile(error);
    return run;
}

} // namespace tarnwell::test
