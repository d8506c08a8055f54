#pragma once

// SHA-256 (FIPS 180-4), by the system's own library: libcrypto on Linux, CommonCrypto on macOS.

#include <array>
#include <cstddef>
#include <memory>
#include <span>

namespace tarnwell {

using SHA256Digest = std::array<std::byte, 32>;

/// Digests of one stream of bytes after another. Confined to one thread. Throws std::runtime_error when the
/// library refuses its service.
class SHA256 {
public:
    SHA256();
    ~SHA256();
    SHA256(const SHA256&) = delete;
    SHA256& operator=(const SHA256&) = delete;

    void update(std::span<const std::byte> bytes);
    /// The digest of all bytes since the last one; what follows starts anew.
    SHA256Digest finish();

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

} // namespace tarnwell
