#include "TarnwellCore/Analysis/RuleEvaluator.hpp"
#include "TarnwellCore/Platform/NameForms.hpp"
#include "TarnwellCore/Scanning/ScanEngine.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tarnwell {
namespace {

const std::string composed = "\xC3\xA9\xE1\xBA\xAD \xEA\xB0\x81"; // e acute, a circumflex dot, a syllable
const std::string decomposed = "e\xCC\x81"
                               "a\xCC\xA3\xCC\x82"
                               " \xE1\x84\x80\xE1\x85\xA1\xE1\x86\xA8";

TEST(NameForms, AreOneNameWhereTheSystemTakesThemForOne) {
    const bool areOne = mayHaveOtherForms(composed);
    EXPECT_EQ(isSameName(composed, decomposed), areOne);
    EXPECT_FALSE(isSameName(composed, "ea"));
    EXPECT_FALSE(isSameName("\xFF", "\xFE"));
    EXPECT_EQ(commonForm("\xFF" + composed), "\xFF" + composed);

    for (const auto& [onDisk, asked] : {std::pair(composed, decomposed), std::pair(decomposed, composed)}) {
        const test::TemporaryFolder folder;
        folder.makeFile(onDisk + "/" + onDisk + "/file", 10);
        folder.makeFile(onDisk + "/plain/file", 20);
        const std::string path = (folder / asked / asked).string();

        const ScanResult whole = ScanEngine((folder / onDisk).string(), {}).run();
        EXPECT_EQ(whole.root->node(path) != nullptr, areOne);
        EXPECT_EQ(whole.root->node(asked) != nullptr, areOne);
        EXPECT_EQ(whole.root->node(onDisk + "/file")->size, 10);

        ScanOptions byPath;
        byPath.excludedPaths = {path};
        EXPECT_EQ(ScanEngine((folder / onDisk).string(), byPath).run().root->size, areOne ? 20 : 30);
        ScanOptions byName;
        byName.excludedNames = {asked};
        EXPECT_EQ(ScanEngine((folder / onDisk).string(), byName).run().root->size, areOne ? 20 : 30);

        // From a root above, on the way, and from within.
        CleanupRule rule;
        rule.locationPrefix = path;
        rule.isEnabled = true;
        const ScanResult above = ScanEngine(folder.path().string(), {}).run();
        const FileNode* const roots[] = {above.root.get(), whole.root.get(), whole.root->node(onDisk)};
        for (const FileNode* root : roots) {
            const auto matches = RuleEvaluator::evaluate({rule}, *root, currentDate(), "/home");
            EXPECT_EQ(matches.size(), areOne ? 1u : 0u) << root->path();
        }
    }
}

} // namespace
} // namespace tarnwell
