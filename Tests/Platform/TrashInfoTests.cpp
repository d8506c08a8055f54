#include "TarnwellCore/Platform/TrashInfo.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace tarnwell {
namespace {

TEST(TrashInfo, TellsThePathOrNothing) {
    const std::string head = "[Trash Info]\n";
    const struct {
        std::string text;
        std::optional<std::string> path;
    } cases[] = {
        {head + "Path=/home/u/a%20b\nDeletionDate=2024-05-06T07:08:09\n", "/home/u/a b"},
        {head + "DeletionDate=nonsense\r\nPath=%FFname\r\n", "\xFFname"},
        {head + "Path=first\nPath=second", "first"},
        {head + "Path=../../etc/x", "../../etc/x"}, // where it may lead is for others to judge
        {"Path=/a\n", std::nullopt},
        {"[Other]\nPath=/a\n[Trash Info]\n", std::nullopt},
        {head + "Path=\n", std::nullopt},
        {head + "Path=/a%00b\n", std::nullopt},
        {head + "Path=/a%2\n", std::nullopt},
        {head + "Path=/a%\n", std::nullopt},
        {head + "Path=/a%zz\n", std::nullopt},
        {"", std::nullopt},
        {std::string(100'000, '['), std::nullopt},
    };
    for (const auto& each : cases) {
        const auto info = parseTrashInfo(each.text);
        EXPECT_EQ(info ? std::optional(info->path) : std::nullopt, each.path) << each.text.substr(0, 99);
    }
    const auto early = parseTrashInfo(head + "Path=a\nDeletionDate=2024-05-06T07:08:09\n");
    const auto late = parseTrashInfo(head + "Path=a\nDeletionDate=2024-05-06T07:08:11\n");
    EXPECT_DOUBLE_EQ((late->deletionDate.value() - early->deletionDate.value()).count(), 2);

    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += static_cast<char>(byte);
    EXPECT_EQ(percentDecoded(percentEscaped(everyByte)), everyByte);
    EXPECT_EQ(percentEscaped("/a b\n\xFF"), "/a%20b%0A%FF");
}

} // namespace
} // namespace tarnwell
