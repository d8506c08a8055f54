#include "TarnwellCore/Platform/SHA256.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace tarnwell {
namespace {

std::string hex(const SHA256Digest& digest) {
    std::string text;
    for (const std::byte byte : digest) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", std::to_integer<unsigned>(byte));
        text += pair;
    }
    return text;
}

TEST(SHA256, DigestsOneStreamAfterAnother) {
    SHA256 hash;
    const auto digest = [&](const std::string& bytes, std::size_t piece) {
        for (std::size_t start = 0; start < bytes.size(); start += piece)
            hash.update(
                std::as_bytes(std::span(bytes).subspan(start, std::min(piece, bytes.size() - start))));
        return hex(hash.finish());
    };
    // The examples of FIPS 180-4.
    EXPECT_EQ(digest("abc", 2), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digest("", 1), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digest(std::string(1'000'000, 'a'), 65'537),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

} // namespace
} // namespace tarnwell
