#include "TarnwellCore/Platform/Linux/SharedMimeInfo.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TypePatterns read(const test::TemporaryFolder& world, std::initializer_list<const char*> folders) {
    std::vector<std::filesystem::path> paths;
    for (const char* folder : folders)
        paths.push_back(world / folder);
    return TypePatterns::read(paths);
}

TEST(TypePatterns, RuleOutOnlyWhatNoPatternMatches) {
    const test::TemporaryFolder world;
    world.writeFile("system/globs2", "# comment:of:*.comment\n"
                                     "50:text/x-plain:*.plain\n"
                                     "50:text/x-upper:*.UPPER:cs\n"
                                     "50:application/x-tarball:*.tar.ball\n"
                                     "10:application/x-trash:*~\n"
                                     "60:video/x-recording:[0-9].rec\n"
                                     "50:application/x-library:*.so.[0-9]*\n"
                                     "50:application/x-flash:*.anim[1-9j]\n"
                                     "50:text/x-readme:README*\n"
                                     "50:text/x-build:build.txt\n"
                                     "50:text/x-umlaut:*.\xC3\xA4\n"
                                     "50:text/x-one-letter:?.letter\n"
                                     "50:text/x-colon:*.a:b\n"
                                     "50:text/x-colons:*.c:d:cs\n"
                                     "50:text/x-range:*.[Z-a]range:cs\n"
                                     "50:text/x-capital:*.[[:upper:]]capital\n"
                                     "a line of something else\n"
                                     "\n"
                                     "50:text/x-last:*.last");
    world.writeFile("user/globs2", "50:text/x-own:*.own\n");
    const TypePatterns patterns = read(world, {"user", "missing", "system"});
    for (const char* known : {"plain", "PLAIN", "UPPER", "any~", "~", "anim3", "ANIMJ", "letter", "a:b",
                              "c:d", "\xC3\x84", "_range", "[range", "Zrange", "Acapital", "last", "own"})
        EXPECT_TRUE(patterns.mayKnow(known)) << known;
    for (const char* unknown :
         {"", "plai", "plainer", "comment", "anim", "anim0", "so", "readme", "txt", "something", "3f2a9c",
          "brange", "acapital", "a:bc", "\xFF\xFE", "*", "plain\n"})
        EXPECT_FALSE(patterns.mayKnow(unknown)) << unknown;
}

TEST(TypePatterns, WeightThenLengthThenFolder) {
    const test::TemporaryFolder world;
    world.writeFile("user/globs2", "50:a/own:*.both\n"
                                   "40:a/light:*.heavy\n"
                                   "0:a/replaced:__NOGLOBS__\n"
                                   "50:a/replaced:*.new\n");
    world.writeFile("system/globs2", "50:a/system:*.both\n"
                                     "60:a/heavy:*.heavy\n"
                                     "50:a/replaced:*.old\n"
                                     "50:a/one:*.twice\n50:a/two:*.twice\n50:a/one:*.twice\n"
                                     "50:a/gzip:*.gz\n50:a/tarball:*.tar.gz\n"
                                     "50:a/upper:*.C:cs\n50:a/lower:*.c\n"
                                     "50:a/stars:*s*t*a*r*s*x\n");
    const TypePatterns patterns = read(world, {"user", "system"});
    EXPECT_THAT(patterns.types("both"), ElementsAre("a/own"));
    EXPECT_THAT(patterns.types("heavy"), ElementsAre("a/heavy"));
    EXPECT_THAT(patterns.types("old"), IsEmpty());
    EXPECT_THAT(patterns.types("new"), ElementsAre("a/replaced"));
    EXPECT_THAT(patterns.types("twice"), ElementsAre("a/one", "a/two"));
    EXPECT_THAT(patterns.types("tar.gz"), ElementsAre("a/tarball"));
    EXPECT_THAT(patterns.types("c"), ElementsAre("a/lower"));
    EXPECT_THAT(patterns.types("C"), ElementsAre("a/upper", "a/lower"));
    EXPECT_FALSE(patterns.mayKnow("stars.x")); // could take for ever to match
}

TEST(TypeRelations, AliasesParentsAndIcons) {
    const test::TemporaryFolder world;
    world.writeFile("user/aliases", "a/old a/new\nnonsense\n");
    world.writeFile("system/aliases", "a/old a/other\nb/child text/x-child\n");
    world.writeFile("system/subclasses", "a/new b/parent\nb/parent b/child\ntext/x-child a/old\n");
    world.writeFile("system/generic-icons", "a/new:package-x-generic\n");
    const std::filesystem::path folders[] = {world / "user", world / "system"};
    const TypeRelations relations = TypeRelations::read(folders);
    EXPECT_EQ(relations.canonical("a/old"), "a/new");
    // A circle.
    EXPECT_THAT(relations.withAncestors("a/old"),
                UnorderedElementsAre("a/new", "b/parent", "text/x-child", "text/plain"));
    EXPECT_EQ(relations.genericIcon("a/new"), "package-x-generic");
    EXPECT_EQ(relations.genericIcon("image/x"), "image-x-generic");
}

TEST(TypePatterns, WhatIsNoListHoldsNobodyUp) {
    const test::TemporaryFolder world;
    world.writeFile("good/globs2", "50:text/x-plain:*.plain\n");
    world.makeFolder("folder/globs2");
    world.makeFolder("pipe");
    ASSERT_EQ(::mkfifo((world / "pipe/globs2").c_str(), 0600), 0);
    world.makeFolder("device");
    std::filesystem::create_symlink("/dev/zero", world / "device/globs2");
    world.writeFile("huge/globs2", std::string(5 << 20, '\n') + "50:text/x-huge:*.huge\n");
    const TypePatterns patterns = read(world, {"folder", "pipe", "device", "huge", "missing", "good"});
    EXPECT_TRUE(patterns.mayKnow("plain"));
    EXPECT_FALSE(patterns.mayKnow("huge"));
}

} // namespace
} // namespace tarnwell
