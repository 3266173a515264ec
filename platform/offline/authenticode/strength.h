// What counts as strong enough in a signature: the one place to raise it.
//
// As Windows has it since its updates 2661254 and 2862966: RSA keys below 1024 bits are refused,
// and so are MD5 and what is older. SHA-1 and 1024 bits are taken.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include "platform/signatures.h"

namespace platform::posix {

// The algorithm of a digest, by OpenSSL's number of it, that a signature may be made over; null for
// one that is refused.
const EVP_MD* AcceptedDigest(int number);

// WeakKey, WeakDigest or None. The digest of a trusted root's own signature doesn't matter, since
// nothing rests on it.
signatures::Fault WeaknessOf(X509* certificate, bool isTrustedRoot);

}  // namespace platform::posix
