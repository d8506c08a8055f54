#include "TarnwellCore/Analysis/SpaceSaverCatalogue.hpp"
#include "TarnwellCore/Analysis/SpaceSaverFinding.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarnwell {
namespace {

std::string actionText(const SpaceSaverAction& action) {
    if (const auto* command = std::get_if<SpaceSaverActions::RunCommand>(&action))
        return "runCommand \"" + command->commandLine + "\"";
    if (std::holds_alternative<SpaceSaverActions::Trash>(action))
        return "trash";
    return std::holds_alternative<SpaceSaverActions::OpenLocation>(action) ? "openLocation" : "?";
}

/// The listing holds every entry, a line a field, a line a path, an empty line behind each.
TEST(SpaceSaverCatalogue, IsTheAgreedListing) {
    std::string text;
    for (const auto& rule : SpaceSaverCatalogue::directoryRules()) {
        text += std::string(rawValue(rule.kind)) + '\n' + rule.title + '\n' + rule.subtitle + '\n' +
                rule.explanation + '\n';
        for (const std::string& path : rule.relativePaths)
            text += path + '\n';
        text += std::string(rawValue(rule.safety)) + '\n' + actionText(rule.action) + '\n' +
                std::string(displayName(rule.category)) + "\n\n";
    }
    text.pop_back();
    EXPECT_EQ(text, test::readFile(TARNWELL_TESTS "/Analysis/data/catalogue.txt"));
}

TEST(SpaceSaverKind, NamesReadBack) {
    for (std::size_t index = 0; index < spaceSaverKindCount; ++index) {
        const auto kind = static_cast<SpaceSaverKind>(index);
        EXPECT_NE(rawValue(kind), "") << index;
        EXPECT_EQ(spaceSaverKindFromRawValue(rawValue(kind)), kind);
    }
    EXPECT_EQ(rawValue(SpaceSaverKind::timeMachineSnapshots), "timeMachineSnapshots");
    EXPECT_EQ(spaceSaverKindFromRawValue("NodeModules"), std::nullopt);
    EXPECT_EQ(cleanupSafetyFromRawValue("caution"), CleanupSafety::caution);
}

TEST(SpaceSaverFinding, WhatFreesMostComesFirst) {
    const auto make = [](std::string id, std::int64_t reclaimable, std::int64_t size, bool isKnown = true) {
        SpaceSaverFinding finding;
        finding.id = std::move(id);
        finding.reclaimableSize = reclaimable;
        finding.size = size;
        finding.sizeIsKnown = isKnown;
        return finding;
    };
    std::vector<std::string> ids;
    for (const auto& finding :
         sorted({make("unknown", 100, 100, false), make("b", 5, 10), make("clone", 0, 50), make("a", 5, 10),
                 make("large", 5, 11), make("most", 6, 6)}))
        ids.push_back(finding.id);
    EXPECT_THAT(ids, testing::ElementsAre("most", "large", "a", "b", "clone", "unknown"));
}

} // namespace
} // namespace tarnwell
