#include "TarnwellCore/Platform/UUID.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace tarnwell {
namespace {

TEST(UUID, TextIsUpperCaseAndReadInEitherCase) {
    const std::string text = "0123ABCD-EF45-6789-ABCD-00FF10EE20DD";
    for (const std::string& given : {text, std::string("0123aBcd-ef45-6789-AbcD-00fF10eE20dD")}) {
        const std::optional<UUID> id = UUID::parse(given);
        ASSERT_TRUE(id) << given;
        EXPECT_EQ(id->text(), text);
        EXPECT_EQ(id->bytes[1], 0x23);
    }
    for (const std::string other :
         {"", "0123ABCDEF456789ABCD00FF10EE20DD", "0123ABCD-EF45-6789-ABCD-00FF10EE20D",
          "0123ABCD-EF45-6789-ABCD-00FF10EE20DDD", "0123ABCD-EF45-6789-ABCD-00FF10EE20DG",
          "0123ABC-DEF45-6789-ABCD-00FF10EE20DD", "0123ABCD-EF45-6789-ABCD-00FF10EE20-D"})
        EXPECT_EQ(UUID::parse(other), std::nullopt) << other;
}

TEST(UUID, RandomOnesDifferAndSortAsTheirTexts) {
    std::set<UUID> ids;
    std::set<std::string> texts;
    for (int index = 0; index < 1000; ++index) {
        const UUID id = UUID::random();
        ids.insert(id);
        texts.insert(id.text());
        EXPECT_EQ(id.text()[14], '4');
    }
    ASSERT_EQ(ids.size(), 1000u);
    auto text = texts.begin();
    for (const UUID& id : ids)
        EXPECT_EQ(id.text(), *text++);
}

} // namespace
} // namespace tarnwell
