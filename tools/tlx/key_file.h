// RSA keys in PEM files.
#pragma once

#include <openssl/types.h>

#include <memory>
#include <string>

#include "support/string.h"

namespace tlx {

inline constexpr int kKeyBits = 2048;

struct RsaDeleter {
  void operator()(RSA* key) const;
};
using RsaKey = std::unique_ptr<RSA, RsaDeleter>;

struct PkeyDeleter {
  void operator()(EVP_PKEY* key) const;
};
using PkeyOwner = std::unique_ptr<EVP_PKEY, PkeyDeleter>;

enum class KeyHalf { Private, Public };

// Bytes that leave no copy in memory when they go.
class SecretBytes {
 public:
  SecretBytes() = default;
  SecretBytes(const SecretBytes&) = delete;
  SecretBytes& operator=(const SecretBytes&) = delete;
  ~SecretBytes();

  std::string bytes;
};

// Reads one half of a pair. Null on failure, with `*problem` saying why; no message holds key
// material.
RsaKey ReadKeyFile(cvn::StringView path, KeyHalf half, cvn::String* problem);

// Reads a private RSA key of kKeyBits or more. Null on failure, as above.
PkeyOwner ReadSigningKey(cvn::StringView path, cvn::String* problem);

// Makes a pair as PEM texts; false when the platform gives no randomness.
bool MakeKeyPair(SecretBytes* privatePem, std::string* publicPem);

}  // namespace tlx
