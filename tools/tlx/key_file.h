// RSA keys, in PEM files and on tokens.
#pragma once

#include <string>

#include "platform/openssl.h"
#include "support/string.h"

namespace tlx {

inline constexpr int kKeyBits = 2048;

// Bytes that leave no copy in memory when they go.
class SecretBytes {
 public:
  SecretBytes() = default;
  SecretBytes(const SecretBytes&) = delete;
  SecretBytes& operator=(const SecretBytes&) = delete;
  ~SecretBytes();

  std::string bytes;
};

// Where a private key is.
struct KeyPlace {
  cvn::StringView
      place;  // the path of a file in PEM form, or the "pkcs11:" URI of a key on a token
  cvn::StringView pinFile;  // for a token; empty for the one that the URI names, or a prompt
};

// The place as messages show it.
cvn::String ShownPlace(const KeyPlace& place);

enum class KeyLength { Exactly, AtLeast };

// Reads a private RSA key of kKeyBits. Null on failure, with `*problem` saying why; no message
// holds key material or a PIN.
platform::OpenSsl<EVP_PKEY> ReadPrivateKey(const KeyPlace& place, KeyLength length,
                                           cvn::String* problem);

// Reads the public half of a pair of exactly kKeyBits. Null on failure, as above.
platform::OpenSsl<RSA> ReadPublicKey(cvn::StringView path, cvn::String* problem);

// Makes a pair as PEM texts; false when the platform gives no randomness.
bool MakeKeyPair(SecretBytes* privatePem, std::string* publicPem);

}  // namespace tlx
