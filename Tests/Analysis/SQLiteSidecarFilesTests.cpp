#include "TarnwellCore/Analysis/SQLiteSidecarFiles.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarnwell {
namespace {

using namespace SQLiteSidecarFiles;
using test::TemporaryFolder;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

TEST(SQLiteSidecarFiles, NamesAreRecognised) {
    const struct {
        const char* name;
        bool isSidecar;
        bool isDatabase;
    } cases[] = {
        {"a.db", false, true},
        {"a.SQLite3", false, true},
        {"a.sqlite", false, true},
        {"a.db-wal", true, false},
        {"a-shm", true, false},
        {"a.sqlite-journal", true, false},
        {"a.db-WAL", false, false},
        {"a.dbx", false, false},
        {"db", false, false},
        {".db", false, true},
        {"a.wal", false, false},
        {"a-wal.db", false, true},
        {"a.db-journal-x", false, false},
        {"", false, false},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(isSidecarFile(each.name), each.isSidecar) << each.name;
        EXPECT_EQ(isDatabaseFile(each.name), each.isDatabase) << each.name;
    }
    EXPECT_THAT(sidecarURLs("/x/a.db"), ElementsAre("/x/a.db-wal", "/x/a.db-shm", "/x/a.db-journal"));
    EXPECT_EQ(databaseURL("/x/a.db-shm"), fs::path("/x/a.db"));
    EXPECT_EQ(databaseURL("/x/a.db"), std::nullopt);
}

TEST(SQLiteSidecarFiles, IncompleteFamiliesAreReported) {
    const TemporaryFolder folder;
    for (const char* name : {"full.db", "full.db-wal", "full.db-shm", "lone.db", "lone-wal", "orphan-wal",
                             "orphan-shm", "a.sqlite", "a.sqlite-journal", "plain.txt", "-wal"})
        folder.makeFile(name);
    const auto path = [&](std::string_view name) { return folder / name; };

    EXPECT_THAT(existingSidecars(path("full.db")), ElementsAre(path("full.db-wal"), path("full.db-shm")));

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
        std::vector<fs::path> requested;
        for (const std::string& name : each.requested)
            requested.push_back(path(name));
        std::vector<fs::path> reported;
        for (const std::string& name : each.reported)
            reported.push_back(path(name));
        EXPECT_EQ(incompleteFamilyPaths(requested), reported) << testing::PrintToString(each.requested);
    }
    EXPECT_THAT(incompleteFamilyPaths({path("full.db")}, [](const fs::path&) { return false; }), IsEmpty());
}

} // namespace
} // namespace tarnwell
