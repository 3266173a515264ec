#include "platform/offline/authenticode/strength.h"

#include <openssl/objects.h>

#include <algorithm>
#include <iterator>

namespace platform::posix {
namespace {

using signatures::Fault;

struct Digest {
  int number;
  const EVP_MD* (*algorithm)();
};
constexpr Digest kDigests[] = {
    {NID_sha1, &EVP_sha1},
    {NID_sha256, &EVP_sha256},
    {NID_sha384, &EVP_sha384},
    {NID_sha512, &EVP_sha512},
};

struct Key {
  int kind;
  int leastBits;
};
// Kinds that aren't here are none that Windows signs with.
constexpr Key kKeys[] = {
    {EVP_PKEY_RSA, 1024},
    {EVP_PKEY_RSA_PSS, 1024},
    {EVP_PKEY_DSA, 1024},
    {EVP_PKEY_EC, 160},
};

bool IsStrong(const EVP_PKEY* key) {
  const auto* const rule = std::ranges::find(
      kKeys, key == nullptr ? EVP_PKEY_NONE : EVP_PKEY_get_base_id(key), &Key::kind);
  return rule != std::end(kKeys) && EVP_PKEY_get_bits(key) >= rule->leastBits;
}

}  // namespace

const EVP_MD* AcceptedDigest(int number) {
  const auto* const rule = std::ranges::find(kDigests, number, &Digest::number);
  return rule == std::end(kDigests) ? nullptr : rule->algorithm();
}

Fault WeaknessOf(X509* certificate, bool isTrustedRoot) {
  if (!IsStrong(X509_get0_pubkey(certificate))) {
    return Fault::WeakKey;
  }
  int digest = NID_undef;
  const bool isStrong = isTrustedRoot || (X509_get_signature_info(certificate, &digest, nullptr,
                                                                  nullptr, nullptr) == 1 &&
                                          AcceptedDigest(digest) != nullptr);
  return isStrong ? Fault::None : Fault::WeakDigest;
}

}  // namespace platform::posix
