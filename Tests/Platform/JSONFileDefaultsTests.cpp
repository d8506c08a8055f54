#include "TarnwellCore/Platform/JSONFileDefaults.hpp"

#include "Tests/Support/FaultyFileCalls.hpp"
#include "Tests/Support/TemporaryFolder.hpp"
#include "Tests/Support/Unprivileged.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <fstream>
#include <future>
#include <limits>
#include <string_view>
#include <thread>

namespace tarnwell {

namespace {

namespace fs = std::filesystem;
using test::FaultyFileCalls;
using test::readFile;
using test::TemporaryFolder;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

std::size_t entryCount(const fs::path& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), {}));
}

TEST(JSONFileDefaults, KeepsValuesOfEveryKind) {
    const TemporaryFolder folder;
    const fs::path file = folder / "a/b/settings.json";
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += static_cast<char>(byte);
    const UserDefaults::Values values = {
        {"yes", true},
        {"most", largest},
        {"least", smallest},
        {"whole", 5.0},
        {"exact", 0.1},
        {"tiny", 5e-324},
        {"huge", -1.7976931348623157e308},
        {"text", std::string("a \"quoted\" \\ line\n\x01 \xC3\xA4")},
        {"zero", std::string("a\0b", 3)},
        {"empty", std::string()},
        {"texts", std::vector<std::string>{"/a", "", "/\xC3\xA4"}},
        {"none", std::vector<std::string>()},
        {"data", DataValue{everyByte}},
        {"one", DataValue{"\xFF"}},
        {"two", DataValue{"ab"}},
        {"nothing", DataValue{}},
        {"date", dateFromReferenceSeconds(774'000'000.123456)},
        {"a \"key\" \n", std::int64_t{1}},
    };
    {
        JSONFileDefaults defaults(file, FaultyFileCalls::halting());
        UserDefaults::Changes changes(values.begin(), values.end());
        defaults.apply(changes);
        defaults.set("bytes", everyByte);
        defaults.set("paths", std::vector<std::string>{"/plain", "/\xFF", everyByte});
    }
    const JSONFileDefaults again(file, FaultyFileCalls::halting());
    for (const auto& [key, value] : values)
        EXPECT_EQ(again.object(key), value) << key;
    // A text that is no UTF-8 comes back as the same text all the same.
    EXPECT_EQ(again.string("bytes"), everyByte);
    EXPECT_EQ(again.stringArray("paths"), (std::vector<std::string>{"/plain", "/\xFF", everyByte}));
}

TEST(JSONFileDefaults, ConvertsWhatHasAMeaningAndNothingElse) {
    const TemporaryFolder folder;
    JSONFileDefaults defaults(folder.writeFile("s.json", R"({
        "true": true, "fraction": -2.9, "zero": 0.0, "beyond": 18446744073709551615, "far": 1e300,
        "digits": "12", "decimal": "0.25", "YES": "YES", "no": "no", "words": "twelve",
        "list": ["a"], "mixed": ["a", 1], "nested": {"a": {"b": [1, {"base64": "AA=="}]}},
        "date": {"secondsSince1970": 978307200}, "data": {"base64": "aGk="}, "bad data": {"base64": "a*=="},
        "bad date": {"secondsSince1970": "x"}, "far date": {"secondsSince1970": 1.7976931348623159e308},
        "odd data": {"base64": "aGk"}, "more": {"base64": "", "x": 1}})"));
    const struct {
        const char* key;
        std::optional<bool> boolean;
        std::optional<std::int64_t> integer;
        std::optional<double> number;
        std::optional<std::string> string;
    } cases[] = {
        {"true", true, 1, 1.0, {}},        {"fraction", true, -2, -2.9, {}},
        {"zero", false, 0, 0.0, {}},       {"beyond", true, largest, 18446744073709551615.0, {}},
        {"far", true, largest, 1e300, {}}, {"digits", {}, 12, 12.0, "12"},
        {"decimal", {}, 0, 0.25, "0.25"},  {"YES", true, {}, {}, "YES"},
        {"no", false, {}, {}, "no"},       {"words", {}, {}, {}, "twelve"},
        {"list", {}, {}, {}, {}},          {"date", {}, {}, {}, {}},
        {"data", {}, {}, {}, "hi"},        {"absent", {}, {}, {}, {}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(defaults.boolean(each.key), each.boolean) << each.key;
        EXPECT_EQ(defaults.integer(each.key), each.integer) << each.key;
        EXPECT_EQ(defaults.number(each.key), each.number) << each.key;
        EXPECT_EQ(defaults.string(each.key), each.string) << each.key;
    }
    EXPECT_EQ(defaults.stringArray("list"), std::vector<std::string>{"a"});
    EXPECT_EQ(defaults.stringArray("mixed"), std::nullopt);
    EXPECT_EQ(defaults.date("date"), dateFromReferenceSeconds(0));
    EXPECT_EQ(defaults.data("data"), "hi");
    for (const char* key :
         {"bad data", "bad date", "far date", "odd data", "more", "text", "mixed", "nested"})
        EXPECT_EQ(defaults.object(key), std::nullopt) << key;

    // What does not convert leaves the registered default in view.
    defaults.registerDefaults({{"words", std::int64_t{7}}, {"absent", true}, {"list", 0.5}});
    EXPECT_EQ(defaults.integer("words"), 7);
    EXPECT_EQ(defaults.boolean("absent"), true);
    EXPECT_EQ(defaults.number("list"), 0.5);
    EXPECT_EQ(defaults.string("words"), "twelve");
}

TEST(JSONFileDefaults, LeavesAloneWhatItDoesNotKnow) {
    const TemporaryFolder folder;
    const std::string known = "\"theme\": \"dark\"";
    const std::string strange =
        "\"later version\": {\n    \"a\": [1.10, 1e0, 123456789012345678901234567890],\n"
        "    \"b\": \"\\u00e4\"\n  }";
    const fs::path file = folder.writeFile("s.json", "{\n  " + strange + ",\n  " + known + "\n}\n");
    JSONFileDefaults defaults(file);
    defaults.set("depth", std::int64_t{3});
    EXPECT_EQ(readFile(file), "{\n  " + strange + ",\n  " + known + ",\n  \"depth\": 3\n}\n");
    defaults.remove("theme");
    defaults.remove("never there");
    EXPECT_EQ(readFile(file), "{\n  " + strange + ",\n  \"depth\": 3\n}\n");
    defaults.set("later version", std::string("taken over"));
    defaults.remove("depth");
    EXPECT_EQ(readFile(file), "{\n  \"later version\": \"taken over\"\n}\n");
    defaults.remove("later version");
    EXPECT_EQ(readFile(file), "{}\n");
    EXPECT_EQ(entryCount(folder.path()), 2u) << "the file and its lock";
}

TEST(JSONFileDefaults, ANumberThatIsNotFiniteRemovesTheKey) {
    const TemporaryFolder folder;
    JSONFileDefaults defaults(folder / "s.json");
    defaults.registerDefaults({{"n", 1.5}});
    for (const double odd : {std::nan(""), std::numeric_limits<double>::infinity()}) {
        defaults.set("n", 2.0);
        EXPECT_EQ(defaults.number("n"), 2.0);
        defaults.set("n", odd);
        EXPECT_EQ(defaults.number("n"), 1.5);
        defaults.set("d", Date(Date::duration(odd)));
        EXPECT_EQ(defaults.date("d"), std::nullopt);
    }
}

TEST(JSONFileDefaults, AKeyThatIsNoTextDamagesNothing) {
    const TemporaryFolder folder;
    const fs::path file = folder.writeFile("s.json", "{\n  \"a\": 1\n}\n");
    JSONFileDefaults defaults(file);
    for (const char* key : {"\xFF", "cut \xC3", "\xED\xA0\x80"}) {
        defaults.set(key, true);
        EXPECT_EQ(defaults.boolean(key), std::nullopt);
        defaults.remove(key);
    }
    defaults.set("\xC3\xA4", std::int64_t{2});
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(readFile(file), "{\n  \"a\": 1,\n  \"\xC3\xA4\": 2\n}\n");
}

TEST(JSONFileDefaults, KeepsADamagedFileAside) {
    const std::string deep(100'000, '[');
    const std::string damages[] = {
        "",
        "{",
        "[]",
        "5",
        "{\"a\": 1}}",
        "{\"a\": 1,}",
        "{\"a\": \"\xFF\"}",
        "{\"a\": \"\xED\xA0\x80\"}",
        std::string("{\"a\": 1}\0\0", 10),
        deep,
        "{\"a\": " + deep,
    };
    for (const std::string& damage : damages) {
        const TemporaryFolder folder;
        const fs::path file = folder.writeFile("s.json", damage);
        JSONFileDefaults defaults(file);
        EXPECT_EQ(defaults.object("a"), std::nullopt);
        defaults.remove("a");
        EXPECT_EQ(readFile(file), damage) << "nothing to write, nothing to touch";
        EXPECT_EQ(entryCount(folder.path()), 2u);

        defaults.set("b", true);
        EXPECT_EQ(readFile(file), "{\n  \"b\": true\n}\n");
        EXPECT_EQ(readFile(folder / "s.json.damaged"), damage);

        folder.writeFile("s.json", "again");
        defaults.set("c", true);
        EXPECT_EQ(defaults.boolean("b"), std::nullopt);
        EXPECT_EQ(readFile(folder / "s.json.damaged"), damage);
        EXPECT_EQ(readFile(folder / "s.json.damaged-2"), "again");
        EXPECT_EQ(entryCount(folder.path()), 4u);
    }
    // Deep, but whole: kept like anything that is not known.
    const TemporaryFolder folder;
    const std::string whole = "{\n  \"deep\": " + deep + std::string(deep.size(), ']') + "\n}\n";
    JSONFileDefaults defaults(folder.writeFile("s.json", whole));
    defaults.set("a", true);
    defaults.remove("a");
    EXPECT_EQ(readFile(folder / "s.json"), whole);
}

TEST(JSONFileDefaults, AnOddValueSpoilsItselfAlone) {
    const TemporaryFolder folder;
    const std::string odd = R"({
  "huge": 1e999,
  "zero": 0e999,
  "long": )" + std::string(400, '7') +
                            R"(.5,
  "half": "\ud800, \udc00",
  "whole": "\ud83d\ude00",
  "\udc00": [1e999, {"\ud800": "1e999"}],
  "b": true
)";
    const fs::path file = folder.writeFile("s.json", odd + "}\n");
    JSONFileDefaults defaults(file);
    defaults.set("c", std::int64_t{1});
    EXPECT_EQ(readFile(file), odd.substr(0, odd.size() - 1) + ",\n  \"c\": 1\n}\n");
    EXPECT_EQ(defaults.boolean("b"), true);
    EXPECT_EQ(defaults.number("zero"), 0.0);
    EXPECT_EQ(defaults.string("half"), "\uFFFD, \uFFFD");
    EXPECT_EQ(defaults.string("whole"), "\U0001F600");
    for (const char* key : {"huge", "long"})
        EXPECT_EQ(defaults.object(key), std::nullopt) << key;
    for (const char* broken : {"{\"a\": 1e}", "{\"a\": 01e5}", "{\"a\": \"\\ud80\"}"})
        EXPECT_EQ(JSONFileDefaults(folder.writeFile("broken.json", broken)).object("a"), std::nullopt);
}

TEST(JSONFileDefaults, WhatCannotBeKeptAsideIsNotReplaced) {
    const TemporaryFolder folder;
    const fs::path file = folder.writeFile("s.json", "damage");
    for (int number = 1; number < 1000; ++number)
        folder.writeFile("s.json.damaged" + (number == 1 ? "" : "-" + std::to_string(number)), "older");
    JSONFileDefaults defaults(file);
    defaults.set("a", true);
    EXPECT_EQ(readFile(file), "damage");
    EXPECT_EQ(defaults.storingFailure(),
              "Could not keep aside the damaged file " + file.string() + ": File exists");
    fs::remove(folder / "s.json.damaged-7");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(readFile(folder / "s.json.damaged-7"), "damage");
    EXPECT_EQ(defaults.storingFailure(), std::nullopt);
}

TEST(JSONFileDefaults, AFileThatMayNotBeReadIsKeptAsideToo) {
    const TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms::all);
    const std::string report = test::runUnprivileged([&] {
        folder.writeFile("s.json", "{\"secret\": 1}");
        fs::permissions(folder / "s.json", fs::perms::none);
        JSONFileDefaults defaults(folder / "s.json");
        defaults.set("a", true);
        fs::permissions(folder / "s.json.damaged", fs::perms::owner_all);
        return readFile(folder / "s.json") + readFile(folder / "s.json.damaged");
    });
    EXPECT_EQ(report, "{\n  \"a\": true\n}\n{\"secret\": 1}");

    // No right to write in the folder: the settings last as long as the program.
    fs::permissions(folder.path(), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read |
                                       fs::perms::others_exec);
    EXPECT_EQ(test::runUnprivileged([&] {
                  JSONFileDefaults defaults(folder / "other.json");
                  defaults.set("a", std::string("kept"));
                  return defaults.synchronize() ? "stored" : defaults.string("a").value_or("lost");
              }),
              "kept");
}

TEST(JSONFileDefaults, WhatIsNoFileIsNotReplaced) {
    const TemporaryFolder folder;
    folder.makeFolder("folder.json");
    ASSERT_EQ(::mkfifo((folder / "pipe.json").c_str(), 0600), 0);
    fs::create_symlink("loop.json", folder / "loop.json");
    for (const char* name : {"folder.json", "pipe.json", "loop.json", "folder.json/s.json/s.json"}) {
        folder.writeFile("folder.json/s.json", "in the way");
        JSONFileDefaults defaults(folder / name);
        defaults.set("a", true);
        EXPECT_FALSE(defaults.synchronize()) << name;
        EXPECT_EQ(defaults.boolean("a"), true);
    }
    EXPECT_TRUE(fs::is_directory(folder / "folder.json"));
    EXPECT_TRUE(fs::is_fifo(folder / "pipe.json"));
}

TEST(JSONFileDefaults, FollowsLinksAndIsNobodyElsesToRead) {
    const TemporaryFolder folder;
    folder.makeFolder("dotfiles");
    fs::create_symlink("dotfiles/second.json", folder / "s.json");
    fs::create_symlink("real.json", folder / "dotfiles/second.json");
    JSONFileDefaults defaults(folder / "s.json");
    defaults.set("a", true); // where the link ends there is nothing yet
    EXPECT_EQ(fs::status(folder / "dotfiles/real.json").permissions(), fs::perms(0600));
    fs::permissions(folder / "dotfiles/real.json", fs::perms(0664));
    defaults.set("b", true);
    EXPECT_TRUE(fs::is_symlink(folder / "s.json"));
    EXPECT_TRUE(fs::is_symlink(folder / "dotfiles/second.json"));
    EXPECT_EQ(readFile(folder / "dotfiles/real.json"), "{\n  \"a\": true,\n  \"b\": true\n}\n");
    EXPECT_EQ(fs::status(folder / "dotfiles/real.json").permissions(), fs::perms(0600));
    EXPECT_EQ(entryCount(folder.path()), 2u);
    // Also what is kept aside.
    fs::permissions(folder.writeFile("dotfiles/real.json", "damage"), fs::perms(0644));
    defaults.set("c", true);
    EXPECT_EQ(fs::status(folder / "dotfiles/real.json.damaged").permissions(), fs::perms(0600));
}

TEST(JSONFileDefaults, SeesWhatOthersWrite) {
    const TemporaryFolder folder;
    const fs::path file = folder / "s.json";
    JSONFileDefaults first(file);
    JSONFileDefaults second(file);
    for (std::int64_t round = 0; round < 25; ++round) {
        first.set("first", round);
        EXPECT_EQ(second.integer("first"), round);
        second.set("second", round);
        EXPECT_EQ(first.integer("second"), round);
        EXPECT_EQ(first.integer("first"), round);
    }
    // Edited in place, as some editors do.
    std::ofstream(file, std::ios::trunc) << "{\"first\": 1000}";
    EXPECT_EQ(first.integer("first"), 1000);
    EXPECT_EQ(first.integer("second"), std::nullopt);
    fs::remove(file);
    EXPECT_EQ(first.integer("first"), std::nullopt);
}

TEST(JSONFileDefaults, SeesARewritingOfTheSameLengthInTheSameMoment) {
    const TemporaryFolder folder;
    const fs::path file = folder.writeFile("s.json", "{\"a\": 1}");
    JSONFileDefaults defaults(file);
    const auto rewrite = [&](std::int64_t value) {
        std::ofstream(file, std::ios::in) << "{\"a\": " << value << "}";
    };
    for (std::int64_t round = 0; round < 100; ++round) {
        rewrite(round % 10);
        EXPECT_EQ(defaults.integer("a"), round % 10) << round;
    }
    // Long after, by a program that sets the time of its file back.
    std::this_thread::sleep_for(std::chrono::milliseconds(3100 + 1000));
    const fs::file_time_type time = fs::last_write_time(file);
    EXPECT_EQ(defaults.integer("a"), 9);
    rewrite(5);
    fs::last_write_time(file, time);
    EXPECT_EQ(defaults.integer("a"), 5);
}

// --- Failing calls ----------------------------------------------------------------------------------------

TEST(JSONFileDefaults, SurvivesTheFailureOfAnyCall) {
    const std::string before = "{\n  \"a\": 1\n}\n";
    const std::string after = "{\n  \"a\": 1,\n  \"b\": 2\n}\n";
    for (const int error : {EIO, ENOMEM, ESTALE, ENOSPC, EMFILE, EROFS})
        for (int call = 0;; ++call) {
            const TemporaryFolder folder;
            const fs::path file = folder.writeFile("s.json", before);
            FaultyFileCalls faults;
            JSONFileDefaults defaults(file, faults.failing(call, error));
            defaults.set("b", std::int64_t{2});
            if (!faults.hasFailed())
                break;
            EXPECT_EQ(defaults.integer("b"), 2);
            const std::string text = readFile(file);
            EXPECT_TRUE(text == before || text == after) << text;
            EXPECT_TRUE(defaults.synchronize()) << "the next attempt succeeds";
            EXPECT_EQ(readFile(file), after);
            EXPECT_EQ(entryCount(folder.path()), 2u) << "nothing else is left behind";
        }
}

TEST(JSONFileDefaults, ADamagedFileIsNotLostWhenItsSuccessorFails) {
    for (int call = 0;; ++call) {
        const TemporaryFolder folder;
        const fs::path file = folder.writeFile("s.json", "damage");
        FaultyFileCalls faults;
        JSONFileDefaults defaults(file, faults.failing(call, ENOSPC));
        defaults.set("b", std::int64_t{2});
        if (!faults.hasFailed())
            break;
        const bool isStored = readFile(file) != "damage";
        EXPECT_EQ(isStored, fs::exists(folder / "s.json.damaged"));
        EXPECT_TRUE(defaults.synchronize());
        EXPECT_EQ(readFile(file), "{\n  \"b\": 2\n}\n");
        EXPECT_EQ(readFile(folder / "s.json.damaged"), "damage");
        EXPECT_EQ(entryCount(folder.path()), 3u);
    }
}

// --- Several writers --------------------------------------------------------------------------------------

TEST(JSONFileDefaults, WaitsForOtherWritersButNotForEver) {
    const TemporaryFolder folder;
    const fs::path lock = folder / ".s.json.lock";
    using std::chrono::milliseconds;
    JSONFileDefaults defaults(folder / "s.json", FileCalls::live(), milliseconds(1'500));
    int held = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    const auto timeOf = [](const auto& operation) {
        const auto start = std::chrono::steady_clock::now();
        operation();
        return std::chrono::steady_clock::now() - start;
    };
    EXPECT_GE(timeOf([&] { defaults.set("a", true); }), milliseconds(1'500));
    EXPECT_LT(timeOf([&] { defaults.set("b", true); }), milliseconds(1'000)) << "once is enough";
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_EQ(defaults.storingFailure(), "Could not lock " + lock.string() + ": Device or resource busy");
    EXPECT_EQ(defaults.boolean("a"), true);
    EXPECT_FALSE(fs::exists(folder / "s.json"));
    auto report = std::async(std::launch::async, [&] { return defaults.synchronize(); });
    ::close(held);
    EXPECT_TRUE(report.get());
    EXPECT_EQ(readFile(folder / "s.json"), "{\n  \"a\": true,\n  \"b\": true\n}\n");
    EXPECT_EQ(fs::status(lock).permissions(), fs::perms(0600)) << "found open to others";
    // Nobody else can open it, whatever the mask of new files.
    fs::remove(lock);
    const mode_t mask = ::umask(0);
    defaults.set("c", true);
    ::umask(mask);
    EXPECT_EQ(fs::status(lock).permissions(), fs::perms(0600));
}

TEST(JSONFileDefaults, ALockThatIsAnothersOrNoFileIsNotTaken) {
    const TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms::all);
    const fs::path lock = folder / ".s.json.lock";
    const auto attempt = [&] {
        return test::runUnprivileged([&]() -> std::string {
            JSONFileDefaults defaults(folder / "s.json", FileCalls::live(), std::chrono::milliseconds(0));
            defaults.set("a", true);
            return defaults.storingFailure().value_or("stored");
        });
    };
    ASSERT_EQ(::mkfifo(lock.c_str(), 0666), 0);
    fs::permissions(lock, fs::perms(0666));
    EXPECT_EQ(attempt(), "Could not lock " + lock.string() + ": Operation not permitted");
    fs::remove(lock);
    fs::create_symlink("elsewhere", lock);
    EXPECT_NE(attempt(), "stored");
    EXPECT_FALSE(fs::exists(folder / "elsewhere"));
    fs::remove(lock);
    EXPECT_EQ(attempt(), "stored");
}

TEST(JSONFileDefaults, ALockThatIsASecondNameOfAFileLeavesThatFileAsItIs) {
    const TemporaryFolder folder;
    const fs::path file = folder / "elsewhere";
    folder.makeFile("elsewhere", 10);
    fs::permissions(file, fs::perms(0644));
    fs::create_directory(folder / "theirs");
    // Without being root the owner of the folder is this user in any case.
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown((folder / "theirs").c_str(), 65534, 65534), 0);
    }
    fs::create_hard_link(file, folder / "theirs/.s.json.lock");
    JSONFileDefaults defaults(folder / "theirs/s.json");
    defaults.set("a", true);
    EXPECT_EQ(defaults.storingFailure(), std::nullopt);
    struct stat status = {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644u);
    EXPECT_EQ(status.st_uid, ::geteuid());
}

TEST(JSONFileDefaults, RootFollowsNobodyElsesLink) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs to be root";
    const TemporaryFolder folder;
    const fs::path file = folder.writeFile("elsewhere", "precious");
    const fs::path link = folder / "s.json";
    fs::create_symlink(file, link);
    ASSERT_EQ(::lchown(link.c_str(), 65534, 65534), 0);
    JSONFileDefaults defaults(link);
    defaults.set("a", true);
    EXPECT_EQ(defaults.storingFailure(), "Could not follow " + link.string() + ": Operation not permitted");
    EXPECT_EQ(readFile(file), "precious");
    ASSERT_EQ(::lchown(link.c_str(), 0, 0), 0);
    EXPECT_TRUE(defaults.synchronize());
}

TEST(JSONFileDefaults, ProcessesThatWriteAtOnceLoseNothing) {
    const TemporaryFolder folder;
    const fs::path file = folder / "s.json";
    constexpr int writerCount = 4;
    constexpr std::int64_t rounds = 20;
    std::vector<pid_t> children;
    const auto key = [](int writer, std::int64_t round) {
        return "writer " + std::to_string(writer) + " round " + std::to_string(round);
    };
    for (int writer = 0; writer < writerCount; ++writer) {
        children.push_back(::fork());
        if (children.back() != 0)
            continue;
        JSONFileDefaults defaults(file);
        for (std::int64_t round = 1; round <= rounds; ++round)
            defaults.set(key(writer, round), round);
        for (std::int64_t round = 1; round <= rounds; ++round)
            defaults.change("sum", [](const std::optional<UserDefaultsValue>& value) {
                return std::optional<UserDefaultsValue>(value ? std::get<std::int64_t>(*value) + 1
                                                              : std::int64_t{1});
            });
        ::_exit(0);
    }
    for (const pid_t child : children) {
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    const JSONFileDefaults defaults(file);
    for (int writer = 0; writer < writerCount; ++writer)
        for (std::int64_t round = 1; round <= rounds; ++round)
            ASSERT_EQ(defaults.integer(key(writer, round)), round);
    EXPECT_EQ(defaults.integer("sum"), writerCount * rounds);
}

TEST(JSONFileDefaults, AChangeIsMadeFromWhatIsThereAlsoWhereItCannotBeStored) {
    const TemporaryFolder folder;
    JSONFileDefaults defaults(folder / "in/s.json", FileCalls::live(), std::chrono::milliseconds(1));
    const auto append = [](const std::optional<UserDefaultsValue>& value) {
        return std::optional<UserDefaultsValue>(value ? std::get<std::string>(*value) + "+" : "+");
    };
    folder.makeFile("in"); // where a folder is to be
    defaults.change("key", append);
    EXPECT_TRUE(defaults.storingFailure());
    defaults.change("key", append);
    EXPECT_EQ(defaults.string("key"), "++");
    fs::remove(folder / "in");
    defaults.change("key", append);
    EXPECT_EQ(JSONFileDefaults(folder / "in/s.json").string("key"), "+++");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_ANY_THROW(defaults.change(
        "key", [](const auto&) -> std::optional<UserDefaultsValue> { throw std::runtime_error("no"); }));
    defaults.change("key", [](const auto&) { return std::optional<UserDefaultsValue>(1.0 / 0.0); });
    EXPECT_EQ(JSONFileDefaults(folder / "in/s.json").string("key"), std::nullopt);
}

TEST(JSONFileDefaults, ThreadsShareAStore) {
    const TemporaryFolder folder;
    JSONFileDefaults defaults(folder / "s.json");
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index)
        threads.emplace_back([&, index] {
            const std::string key = "thread " + std::to_string(index);
            for (std::int64_t round = 0; round < 25; ++round) {
                defaults.set(key, round);
                EXPECT_EQ(defaults.integer(key), round);
                defaults.registerDefaults({{"shared", round}});
                EXPECT_NE(defaults.integer("shared"), std::nullopt);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(defaults.synchronize());
    const JSONFileDefaults again(folder / "s.json");
    for (int index = 0; index < 4; ++index)
        EXPECT_EQ(again.integer("thread " + std::to_string(index)), 24);
}

#ifndef __APPLE__
TEST(UserDefaults, LivesInTheConfigurationFolder) {
    const TemporaryFolder folder;
    const std::string report = test::runUnprivileged([&]() -> std::string {
        const TemporaryFolder home;
        ::setenv("HOME", home.path().c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
        UserDefaults::standard()->set("a", true);
        UserDefaults::suite("com.example.tests")->set("a", true);
        ::setenv("XDG_CONFIG_HOME", "relative", 1);
        UserDefaults::suite("com.example.tests")->set("a", true);
        std::string found;
        for (const char* path :
             {"config/com.tarnwell.json", "config/com.example.tests.json", ".config/com.example.tests.json"})
            found += fs::exists(home / path) ? '+' : '-';
        return found;
    });
    EXPECT_EQ(report, "+++");
}
#endif

} // namespace

} // namespace tarnwell
