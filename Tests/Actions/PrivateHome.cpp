#include "Tests/Actions/PrivateHome.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

namespace tarnwell::test {

namespace {

/// The platform's library reads these variables once, at its first use: they are set before any test runs.
class PrivateHomeEnvironment : public testing::Environment {
public:
    void SetUp() override {
        folder.emplace();
        ::setenv("HOME", folder->path().c_str(), 1);
        ::setenv("XDG_DATA_HOME", (folder->path() / "data").c_str(), 1);
    }
    void TearDown() override { folder.reset(); }

    std::optional<TemporaryFolder> folder;
};

PrivateHomeEnvironment* const environment = [] {
    auto* made = new PrivateHomeEnvironment; // The test framework deletes it.
    testing::AddGlobalTestEnvironment(made);
    return made;
}();

} // namespace

const std::filesystem::path& privateHome() {
    return environment->folder->path();
}

std::filesystem::path privateTrashFiles() {
    return privateHome() / "data" / "Trash" / "files";
}

} // namespace tarnwell::test
