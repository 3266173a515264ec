// Digests of files.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "platform/byte_source.h"
#include "platform/formats/pe_image.h"
#include "platform/openssl.h"

namespace platform {

// The digests of the bytes in `ranges` and of `zeros` bytes of zero after them, one for each
// algorithm; the bytes are read once. Nothing when they can't be read.
std::optional<std::vector<Bytes>> Digest(const ByteSource& source, std::span<const Range> ranges,
                                         std::span<const EVP_MD* const> algorithms,
                                         std::size_t zeros = 0);

// The SHA-256 of all that a source holds. Nothing when it can't be read.
std::optional<Bytes> WholeDigest(const ByteSource& source);

// The digest of bytes in memory; empty when OpenSSL fails.
Bytes Digest(std::span<const std::byte> bytes, const EVP_MD* algorithm);

// The SHA-256 of bytes in memory, without the tables of all algorithms that OpenSSL makes for the
// first one that is asked for by its name: they take longer than the digest of a patch.
Bytes Sha256(std::span<const std::byte> bytes);

// The Authenticode digest of an image. One that has no signature yet counts as if it were padded to
// where a signature would begin, as Windows has it and its description doesn't.
std::optional<std::vector<Bytes>> ImageDigest(const ByteSource& source, const PeImage& image,
                                              std::span<const EVP_MD* const> algorithms);

// What a catalog lists of a file: the Authenticode digest of a PE image, else that of all its
// bytes. Nothing for a broken image, which Windows refuses too.
std::optional<std::vector<Bytes>> CatalogDigest(const ByteSource& source,
                                                std::span<const EVP_MD* const> algorithms);

}  // namespace platform
