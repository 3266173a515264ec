// Counter-signatures that vouch for the time of a signature, in both of their forms: the token of
// RFC 3161, and the counter-signature of PKCS #9 with its time of signing.
#pragma once

#include <ctime>
#include <span>

#include "platform/offline/authenticode/certificate_chain.h"
#include "platform/offline/authenticode/signed_data.h"
#include "platform/signatures.h"

namespace platform::posix {

struct TimestampFound {
  signatures::Timestamp kind = signatures::Timestamp::None;
  // Whether it is one of this very signature, and its signer's certificate was good for it at the
  // time that it tells. That the certificate has expired since does not matter.
  bool isGood = false;
  std::time_t time = 0;
  ChainVerdict chain =
      {};  // of who made it, when that much of it was good; else it has no certificates
};

// The first good one among the signer's counter-signatures, else the first of timestamp kind.
TimestampFound FindTimestamp(const CertificateStore& store, const SignerInfo& signer,
                             std::span<const OpenSsl<X509>> certificates, Revocation revocation);

}  // namespace platform::posix
