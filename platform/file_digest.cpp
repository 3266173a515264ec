// The functions of one algorithm are deprecated, but need no tables of all of them.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "platform/file_digest.h"

#include <openssl/sha.h>

#include <algorithm>
#include <utility>

namespace platform {
namespace {

constexpr std::uint64_t kPiece = 1 << 20;

using Contexts = std::vector<OpenSsl<EVP_MD_CTX>>;

bool Start(std::span<const EVP_MD* const> algorithms, Contexts* contexts) {
  for (const EVP_MD* algorithm : algorithms) {
    contexts->emplace_back(EVP_MD_CTX_new());
    if (EVP_DigestInit_ex(contexts->back().get(), algorithm, nullptr) != 1) {
      return false;
    }
  }
  return true;
}

bool Update(std::span<const std::byte> bytes, const Contexts& contexts) {
  return std::ranges::all_of(contexts, [bytes](const auto& context) {
    return EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()) == 1;
  });
}

std::optional<std::vector<Bytes>> Finish(const Contexts& contexts) {
  std::vector<Bytes> digests;
  for (const auto& context : contexts) {
    Bytes& digest =
        digests.emplace_back(static_cast<std::size_t>(EVP_MD_CTX_get_size(context.get())));
    if (EVP_DigestFinal_ex(context.get(), AsUnsigned(digest), nullptr) != 1) {
      return std::nullopt;
    }
  }
  return digests;
}

}  // namespace

std::optional<std::vector<Bytes>> Digest(const ByteSource& source, std::span<const Range> ranges,
                                         std::span<const EVP_MD* const> algorithms,
                                         std::size_t zeros) {
  Contexts contexts;
  if (!Start(algorithms, &contexts)) {
    return std::nullopt;
  }
  Bytes buffer(std::min(source.Size(), kPiece));
  for (Range range : ranges) {
    while (range.size > 0) {
      const auto piece = std::span(buffer).first(std::min<std::uint64_t>(range.size, kPiece));
      if (!source.Read(range.offset, piece) || !Update(piece, contexts)) {
        return std::nullopt;
      }
      range.offset += piece.size();
      range.size -= piece.size();
    }
  }
  return Update(Bytes(zeros), contexts) ? Finish(contexts) : std::nullopt;
}

std::optional<Bytes> WholeDigest(const ByteSource& source) {
  const Range everything{0, source.Size()};
  const EVP_MD* const algorithm = EVP_sha256();
  auto digests = Digest(source, std::span(&everything, 1), std::span(&algorithm, 1));
  return digests ? std::optional(std::move(digests->front())) : std::nullopt;
}

Bytes Digest(std::span<const std::byte> bytes, const EVP_MD* algorithm) {
  Bytes digest(static_cast<std::size_t>(EVP_MD_get_size(algorithm)));
  if (EVP_Digest(bytes.data(), bytes.size(), AsUnsigned(digest), nullptr, algorithm, nullptr) !=
      1) {
    digest.clear();
  }
  return digest;
}

Bytes Sha256(std::span<const std::byte> bytes) {
  // These give no other answer than success.
  Bytes digest(SHA256_DIGEST_LENGTH);
  SHA256_CTX context;
  SHA256_Init(&context);
  SHA256_Update(&context, bytes.data(), bytes.size());
  SHA256_Final(AsUnsigned(digest), &context);
  return digest;
}

std::optional<std::vector<Bytes>> ImageDigest(const ByteSource& source, const PeImage& image,
                                              std::span<const EVP_MD* const> algorithms) {
  constexpr std::uint64_t kAlignment = 8;  // of a certificate table
  const std::uint64_t excess = image.certificates.size == 0 ? source.Size() % kAlignment : 0;
  return Digest(source, DigestedRanges(image, source.Size()), algorithms,
                excess == 0 ? 0 : kAlignment - excess);
}

std::optional<std::vector<Bytes>> CatalogDigest(const ByteSource& source,
                                                std::span<const EVP_MD* const> algorithms) {
  const std::optional<PeImage> image = ReadPeImage(source);
  if (!image && IsBrokenPeImage(source)) {
    return std::nullopt;
  }
  const Range everything{0, source.Size()};
  return image ? ImageDigest(source, *image, algorithms)
               : Digest(source, std::span(&everything, 1), algorithms);
}

}  // namespace platform
