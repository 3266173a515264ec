// Chains of certificates, from a signer's to one of the machine's roots.
#pragma once

#include <ctime>
#include <optional>
#include <span>
#include <vector>

#include "platform/offline/authenticode/certificate_store.h"
#include "platform/openssl.h"
#include "platform/signatures.h"

namespace platform::posix {

enum class Purpose { CodeSigning, Timestamping };

// Whether revocation lists are asked. Those count that the machine's store and the signature itself
// hold. A certificate whose issuer has no list on hand is not revoked, as on a Windows that may
// only use what is cached, and an old list still says what it says: a machine that has never
// fetched a list takes what is correctly signed.
enum class Revocation { NotAsked, OnHand };

struct ChainRequest {
  X509* certificate = nullptr;
  std::span<const OpenSsl<X509>> others;  // which came along
  std::span<const OpenSsl<X509_CRL>> lists;
  Purpose purpose = Purpose::CodeSigning;
  Revocation revocation = Revocation::OnHand;
  std::time_t at = 0;  // when all of the chain has to be valid, and not yet revoked
};

struct ChainVerdict {
  signatures::TrustStatus status = signatures::kBrokenChain;
  signatures::Fault fault = signatures::Fault::IssuerMissing;
  std::size_t faulty = 0;                   // the certificate with that fault
  std::vector<OpenSsl<X509>> certificates;  // of the way that was judged, the request's first
};

// Seeks a good one among all ways up. Without one the verdict is that on the way with the mildest
// fault; of a way's faults the gravest counts (signatures::Fault).
ChainVerdict VerifyChain(const CertificateStore& store, const ChainRequest& request);

// Whether the certificate says of itself that it is for timestamps.
bool IsForTimestamps(X509* certificate);

// Whether what the certificate signs is only good as long as the certificate, whatever a timestamp
// says (the lifetime signing usage).
bool EndsWithCertificate(X509* certificate);

}  // namespace platform::posix
