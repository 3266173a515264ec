// Digests of files.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "platform/byte_source.h"
#include "platform/openssl.h"

namespace platform {

// The digests of the bytes in `ranges`, one for each algorithm; the bytes are read once. Nothing
// when they can't be read.
std::optional<std::vector<Bytes>> Digest(const ByteSource& source, std::span<const Range> ranges,
                                         std::span<const EVP_MD* const> algorithms);

// The digest of bytes in memory; empty when OpenSSL fails.
Bytes Digest(std::span<const std::byte> bytes, const EVP_MD* algorithm);

// What a catalog lists of a file: the Authenticode digest of a PE image, else that of all its
// bytes. A file that begins as an image does, but whose headers do not hold together, is any other
// file.
std::optional<std::vector<Bytes>> CatalogDigest(const ByteSource& source,
                                                std::span<const EVP_MD* const> algorithms);

}  // namespace platform
