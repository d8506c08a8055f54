#include "TarnwellCLIKit/CLIRunner.hpp"
#include "TarnwellCLIKit/CLIUsage.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <stdexcept>

namespace tarnwell {
namespace {

using Words = std::vector<std::string>;

/// Services that scan nothing: they remember the folder and answer with a small tree, or with an error.
struct Substitute {
    std::vector<std::string> scanned;
    std::exception_ptr error;
    CLIServices services;

    Substitute() {
        services.scan = [this](const std::filesystem::path& url) {
            scanned.push_back(url);
            std::promise<ScanResult> promise;
            if (error)
                promise.set_exception(error);
            else
                promise.set_value(smallResult(url));
            return promise.get_future();
        };
    }

    static ScanResult smallResult(const std::filesystem::path& url) {
        FileTreeBuilder builder(url.native());
        FileNode& folder = builder.addFolder(builder.root(), "photos");
        builder.addFile(folder, "a.jpg", {.size = 300, .allocatedSize = 4'096});
        builder.addFile(folder, "b.jpg", {.size = 600, .allocatedSize = 0});
        builder.addFile(builder.root(), "notes", {.size = 100, .allocatedSize = 4'096});
        ScanResult result;
        result.root = builder.finish();
        return result;
    }

    CLIResult run(const Words& arguments) const { return CLIRunner::run(arguments, services); }
};

TEST(CLIRunner, ScansAndLists) {
    Substitute substitute;
    EXPECT_EQ(substitute.run({"scan", "/data"}),
              (CLIResult{0, "4 KB  50.0%  notes\n4 KB  50.0%  photos\n8 KB  total\n", ""}));
    EXPECT_EQ(substitute.run({"scan", "/data", "--depth", "2", "--top", "1", "--size-mode", "apparent"}),
              (CLIResult{0, "900 bytes  90.0%  photos\n600 bytes  66.7%    b.jpg\n1 KB  total\n", ""}));
    EXPECT_EQ(substitute.run({"scan", "x/../y", "--csv", "--top", "1"}).standardOutput,
              "name,path,isDirectory,size,allocatedSize,reclaimableSize,share\n"
              "notes,x/../y/notes,false,100,4096,4096,0.5\n");
    EXPECT_TRUE(
        substitute.run({"scan", "/data", "--json"}).standardOutput.starts_with("{\n  \"children\": ["));
    (void)substitute.run({"scan", "~/x"});
    EXPECT_EQ(substitute.scanned, (Words{"/data", "/data", "x/../y", "/data", homeDirectory() / "x"}));
}

TEST(CLIRunner, ListingsGoWhereTheyAreWanted) {
    const Substitute substitute;
    for (const std::string format : {"--human", "--json", "--csv"}) {
        Words arguments = {"scan", "/data", "--depth", "9"};
        if (format != "--human")
            arguments.push_back(format);
        std::string output;
        const TextSink sink = [&](std::string_view piece) { output += piece; };
        EXPECT_EQ(CLIRunner::run(arguments, substitute.services, sink), (CLIResult{0, "", ""}));
        EXPECT_EQ(output, substitute.run(arguments).standardOutput);
    }
    const TextSink refusing = [](std::string_view) { throw std::runtime_error("No room."); };
    EXPECT_EQ(CLIRunner::run(Words{"scan", "/data"}, substitute.services, refusing),
              (CLIResult{1, "", "No room.\n"}));
    // Short texts stay in the result.
    EXPECT_NE(CLIRunner::run(Words{"--help"}, substitute.services, refusing).standardOutput, "");
}

TEST(CLIRunner, UsageErrorsAndHelpTouchNothing) {
    Substitute substitute;
    EXPECT_EQ(substitute.run({}),
              (CLIResult{2, "", "tarnwell: no command given\nSee `tarnwell --help` for usage.\n"}));
    EXPECT_EQ(substitute.run({"help"}), (CLIResult{0, std::string(CLIUsage::text()), ""}));
    EXPECT_EQ(CLIUsage::text(), test::readFile(TARNWELL_TESTS "/CLIKit/data/usage.txt"));
    EXPECT_TRUE(substitute.scanned.empty());
}

TEST(CLIRunner, WhateverIsThrownBecomesAResult) {
    const struct {
        std::exception_ptr error;
        std::string message;
    } cases[] = {
        {std::make_exception_ptr(ScanError::rootNotFound("/gone")), "/gone does not exist.\n"},
        {std::make_exception_ptr(std::runtime_error("two\nlines\n")), "two\nlines\n"},
        {std::make_exception_ptr(std::runtime_error("")), "\n"},
        {std::make_exception_ptr(std::bad_alloc()), "There is not enough memory.\n"},
        {std::make_exception_ptr(42), "An unknown error occurred.\n"},
    };
    for (const auto& each : cases) {
        Substitute substitute;
        substitute.error = each.error;
        EXPECT_EQ(substitute.run({"scan", "/x"}), (CLIResult{1, "", each.message}));
        substitute.services.scan = [&](const std::filesystem::path&) -> std::future<ScanResult> {
            std::rethrow_exception(each.error);
        };
        EXPECT_EQ(substitute.run({"scan", "/x", "--json"}), (CLIResult{1, "", each.message}));
    }
    EXPECT_EQ(CLIRunner::run(Words{"scan", "/x"}, CLIServices{}).exitCode, 1);
}

} // namespace
} // namespace tarnwell
