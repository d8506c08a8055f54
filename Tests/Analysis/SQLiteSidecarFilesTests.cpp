#include "TarnwellCore/Analysis/SQLiteSidecarFiles.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarnwell {
namespace {

using namespace SQLiteSidecarFiles;
using test::TemporaryFolder;
using testing::IsEmpty;
namespace fs = std::filesystem;

TEST(SQLiteSidecarFiles, NamesAreRecognised) {
    const struct {
        const char* name;
        bool isSidecar;
        bool isDatabase;
    } cases[] = {
        {"a.db", false, true},      {"a.SQLite3", false, true}, {"a.sqlite", false, true},
        {"a.db-wal", true, false},  {"a-shm", true, false},     {"a.sqlite-journal", true, false},
        {"a.db-WAL", false, false}, {"db", false, false},       {".db", false, true},
        {"a.wal", false, false},    {"a-wal.db", false, true},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(isSidecarFile(each.name), each.isSidecar) << each.name;
        EXPECT_EQ(isDatabaseFile(each.name), each.isDatabase) << each.name;
    }
    EXPECT_EQ(databaseURL("/x/a.db-shm"), fs::path("/x/a.db"));
    EXPECT_EQ(databaseURL("/x/a.db"), std::nullopt);
}

TEST(SQLiteSidecarFiles, IncompleteFamiliesAreReported) {
    const TemporaryFolder folder;
    for (const char* name : {"full.db", "full.db-wal", "full.db-shm", "lone.db", "lone-wal", "orphan-wal",
                             "orphan-shm", "a.sqlite", "a.sqlite-journal", "plain.txt", "-wal"})
        folder.makeFile(name);
    const auto paths = [&](const std::vector<std::string>& names) {
        std::vector<fs::path> found;
        for (const std::string& name : names)
            found.push_back(folder / name);
        return found;
    };

    EXPECT_EQ(existingSidecars(folder / "full.db"), paths({"full.db-wal", "full.db-shm"}));

    const struct {
        std::vector<std::string> requested;
        std::vector<std::string> reported;
    } cases[] = {
        {{"full.db"}, {"full.db"}},
        {{"full.db-wal"}, {"full.db-wal"}},
        {{"full.db-shm", "plain.txt", "full.db"}, {"full.db-shm", "full.db"}},
        {{"full.db", "full.db-wal", "full.db-shm"}, {}},
        {{"lone.db"}, {}},
        {{"lone-wal"}, {}},               // its database would be called "lone"
        {{"orphan-wal"}, {"orphan-wal"}}, // two journals whose database is gone
        {{"orphan-wal", "orphan-shm"}, {}},
        {{"a.sqlite-journal", "full.db"}, {"a.sqlite-journal", "full.db"}},
        {{"missing.db", "missing.db-wal"}, {}},
        {{"-wal", "plain.txt"}, {}},
        {{"x/../full.db", "./full.db"}, {"x/../full.db"}},
        {{"x/../full.db", "./full.db-wal", "full.db-shm"}, {}},
        {{}, {}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(incompleteFamilyPaths(paths(each.requested)), paths(each.reported))
            << testing::PrintToString(each.requested);
    }
    EXPECT_THAT(incompleteFamilyPaths({folder / "full.db"}, [](const fs::path&) { return false; }),
                IsEmpty());
}

} // namespace
} // namespace tarnwell
