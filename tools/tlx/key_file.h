// RSA keys in PEM files.
#pragma once

#include <string>

#include "platform/openssl.h"
#include "support/string.h"

namespace tlx {

inline constexpr int kKeyBits = 2048;

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
platform::OpenSsl<RSA> ReadKeyFile(cvn::StringView path, KeyHalf half, cvn::String* problem);

// Reads a private RSA key of kKeyBits or more. Null on failure, as above.
platform::OpenSsl<EVP_PKEY> ReadSigningKey(cvn::StringView path, cvn::String* problem);

// Makes a pair as PEM texts; false when the platform gives no randomness.
bool MakeKeyPair(SecretBytes* privatePem, std::string* publicPem);

}  // namespace tlx
