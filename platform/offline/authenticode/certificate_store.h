// The machine's certificates, as its registry keeps them below SystemCertificates: roots,
// intermediate authorities, revocation lists, and certificates that nothing may rest on.
#pragma once

#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "platform/openssl.h"

namespace platform::posix {

// A property list: what a store keeps of one certificate or revocation list, the encoding itself
// among it. Views lie in the list.
std::optional<std::span<const std::byte>> FindProperty(std::span<const std::byte> list,
                                                       std::uint32_t id);

struct TrustedRoot {
  OpenSsl<X509> certificate;
  Bytes usages;  // the only purposes it is trusted for, as a SEQUENCE OF identifiers; empty for all
};

struct CertificateStore {
  std::vector<TrustedRoot> roots;
  std::vector<OpenSsl<X509>> authorities;
  std::vector<OpenSsl<X509_CRL>> revocationLists;
  std::set<Bytes> disallowed;  // SHA-1 digests
};

CertificateStore ReadMachineStore();

// The SHA-1 digest that a store knows a certificate by.
Bytes ThumbprintOf(const X509* certificate);

// Another owner of the same certificate; null for none.
inline OpenSsl<X509> Shared(X509* certificate) {
  return OpenSsl<X509>(certificate != nullptr && X509_up_ref(certificate) == 1 ? certificate
                                                                               : nullptr);
}

}  // namespace platform::posix
