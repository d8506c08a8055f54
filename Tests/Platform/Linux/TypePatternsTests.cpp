#include "TarnwellCore/Platform/Linux/TypePatterns.hpp"

#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace tarnwell {
namespace {

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
    for (const char* known :
         {"plain", "PLAIN", "upper", "Upper", "any~", "~", "anim3", "ANIMJ", "txt", "letter", "a:b", "c:d",
          "_range", "[range", "Zrange", "Acapital", "last", "own"})
        EXPECT_TRUE(patterns.mayKnow(known)) << known;
    for (const char* unknown :
         {"", "plai", "plainer", "comment", "anim", "anim0", "so", "readme", "something", "3f2a9c", "brange",
          "acapital", "a:bc", "\xFF\xFE", "*", "plain\n"})
        EXPECT_FALSE(patterns.mayKnow(unknown)) << unknown;
}

TEST(TypePatterns, NothingIsRuledOutWhereTheListMayLackSome) {
    const test::TemporaryFolder world;
    world.writeFile("good/globs2", "50:text/x-plain:*.plain\n");
    world.writeFile("cacheOnly/mime.cache", "?");
    world.writeFile("oldList/globs", "text/x-plain:*.plain\n");
    world.makeFolder("unreadable/globs2"); // a folder opens, and cannot be read
    world.writeFile("umlaut/globs2", "50:text/x-plain:*.\xC3\x84\n");
    for (const char* doubtful : {"cacheOnly", "oldList", "unreadable", "umlaut"}) {
        EXPECT_TRUE(read(world, {"good", doubtful}).mayKnow("zzqx")) << doubtful;
        EXPECT_TRUE(read(world, {doubtful, "good"}).mayKnow("zzqx")) << doubtful;
    }
    world.makeFolder("empty");
    EXPECT_FALSE(read(world, {"good", "empty"}).mayKnow("zzqx"));
}

} // namespace
} // namespace tarnwell
