#include "TarnwellCore/Platform/SHA256.hpp"

#include <CommonCrypto/CommonDigest.h>

#include <algorithm>
#include <limits>

namespace tarnwell {

struct SHA256::Context {
    Context() { CC_SHA256_Init(&hash); }
    CC_SHA256_CTX hash;
};

SHA256::SHA256() : context_(new Context) {}
SHA256::~SHA256() = default;

void SHA256::update(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const auto length = std::min<std::size_t>(bytes.size(), std::numeric_limits<CC_LONG>::max());
        CC_SHA256_Update(&context_->hash, bytes.data(), static_cast<CC_LONG>(length));
        bytes = bytes.subspan(length);
    }
}

SHA256Digest SHA256::finish() {
    SHA256Digest digest;
    CC_SHA256_Final(reinterpret_cast<unsigned char*>(digest.data()), &context_->hash);
    CC_SHA256_Init(&context_->hash);
    return digest;
}

} // namespace tarnwell
