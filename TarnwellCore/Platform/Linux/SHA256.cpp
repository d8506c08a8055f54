#include "TarnwellCore/Platform/SHA256.hpp"

#include <openssl/evp.h>

#include <stdexcept>

namespace tarnwell {

namespace {

void require(bool isDone) {
    if (!isDone)
        throw std::runtime_error("libcrypto gives no SHA-256");
}

} // namespace

struct SHA256::Context {
    struct Deleter {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };
    std::unique_ptr<EVP_MD_CTX, Deleter> hash{EVP_MD_CTX_new()};
};

SHA256::SHA256() : context_(new Context) {
    require(context_->hash != nullptr && EVP_DigestInit_ex(context_->hash.get(), EVP_sha256(), nullptr) == 1);
}

SHA256::~SHA256() = default;

void SHA256::update(std::span<const std::byte> bytes) {
    require(EVP_DigestUpdate(context_->hash.get(), bytes.data(), bytes.size()) == 1);
}

SHA256Digest SHA256::finish() {
    SHA256Digest digest;
    EVP_MD_CTX* const hash = context_->hash.get();
    require(EVP_DigestFinal_ex(hash, reinterpret_cast<unsigned char*>(digest.data()), nullptr) == 1);
    // Without naming the function again, which the library would look up again.
    require(EVP_DigestInit_ex(hash, nullptr, nullptr) == 1);
    return digest;
}

} // namespace tarnwell
