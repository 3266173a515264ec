// The ways up from a certificate: there may be several, through certificates of one name and
// different keys, or of one key and different issuers.
#pragma once

#include <openssl/x509.h>

#include <functional>
#include <span>
#include <vector>

#include "platform/offline/authenticode/certificate_store.h"
#include "platform/openssl.h"

namespace platform::posix {

// Each certificate is issued by the one behind it. The last is a root that the store trusts, or
// where the way ends without one: a self-signed certificate, one without a known issuer, or one
// that has the issuer's name but didn't sign.
struct Way {
  std::vector<X509*> certificates;
  bool endsInTrustedRoot = false;
};

// Gives `visit` the ways up through certificates of the store and `others`, one after the other and
// those into trusted roots first at each step, until it returns true. A way has 16 certificates at
// most; the search ends after 32 ways or 512 signatures, since others choose what it goes
// through.
void VisitWays(const CertificateStore& store, X509* certificate,
               std::span<const OpenSsl<X509>> others,
               const std::function<bool(const Way& way)>& visit);

// Whether the certificate is one of the store's roots, and self-signed.
bool IsTrustedRoot(const CertificateStore& store, X509* certificate);

}  // namespace platform::posix
