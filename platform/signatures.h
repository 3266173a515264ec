// Authenticode signatures of files: programs and libraries (PE), and catalogs.
//
// On Linux they are verified with the machine's own trusted roots, certificates and revocation
// lists, as its registry holds them. Nothing is fetched: a verification that may use the network
// does no more there than one that may not. An authority without a revocation list on hand
// revokes nothing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/error.h"
#include "platform/files.h"
#include "support/string.h"

namespace platform::signatures {

// What WinVerifyTrust returns: 0, or one of the codes that winerror.h defines.
using TrustStatus = std::int32_t;
inline constexpr TrustStatus kTrusted = 0;
inline constexpr TrustStatus kBadImage = static_cast<TrustStatus>(0x800700C1);
inline constexpr TrustStatus kSubjectFormUnknown = static_cast<TrustStatus>(0x800B0003);
inline constexpr TrustStatus kNoSignature = static_cast<TrustStatus>(0x800B0100);
inline constexpr TrustStatus kExpired = static_cast<TrustStatus>(0x800B0101);
inline constexpr TrustStatus kUntrustedRoot = static_cast<TrustStatus>(0x800B0109);
inline constexpr TrustStatus kBrokenChain = static_cast<TrustStatus>(0x800B010A);
inline constexpr TrustStatus kRevoked = static_cast<TrustStatus>(0x800B010C);
inline constexpr TrustStatus kDistrusted = static_cast<TrustStatus>(0x800B0111);
inline constexpr TrustStatus kBasicConstraints = static_cast<TrustStatus>(0x80096019);
inline constexpr TrustStatus kWrongUsage = static_cast<TrustStatus>(0x800B0110);
inline constexpr TrustStatus kBadDigest = static_cast<TrustStatus>(0x80096010);
inline constexpr TrustStatus kNoSignerCertificate = static_cast<TrustStatus>(0x80096002);
inline constexpr TrustStatus kBadTimestamp = static_cast<TrustStatus>(0x80096005);
inline constexpr TrustStatus kBadCertificateSignature = static_cast<TrustStatus>(0x80096004);

// What is wrong with a certificate, or with the way up from it, the gravest first: in the order in
// which CERT_CHAIN_POLICY_STATUS documents the errors of the base policy. What that has no error
// for (a distrusted certificate) stands beside the refused signatures.
enum class Fault {
  BadSignature,  // its issuer didn't sign it as it is
  WeakKey,       // below what is accepted
  WeakDigest,    // its signature is over one that is no longer accepted
  Distrusted,    // the machine holds it for distrusted
  Revoked,
  UntrustedRoot,  // it is self-signed, and no root that the machine trusts
  IssuerMissing,  // none of those at hand issued it
  Other,
  WrongPurpose,
  NotYetValid,
  Expired,
  NoAuthority,  // it may not issue certificates, and did
  None,
};

// What a caller wants to know of a certificate.
struct Certificate {
  cvn::String issuer;   // as CertNameToStrW with CERT_X500_NAME_STR: "C=RO, O=Example, CN=Example"
  cvn::String subject;  // likewise
  std::vector<std::byte> serial;  // the number's bytes, the least significant first
  // From when until when it is valid, in seconds since 1970 UTC.
  std::int64_t validFrom = 0;
  std::int64_t validUntil = 0;
};

// A way up, from a signer's certificate to a root, or as far as it is known.
struct Chain {
  std::vector<Certificate> certificates;
  Fault fault = Fault::None;  // the gravest
  std::size_t faulty = 0;     // the certificate that has it
  // Until when a way without faults stays so as far as its certificates tell, in seconds since 1970
  // UTC; nothing for one that a timestamp keeps good.
  std::optional<std::int64_t> goodUntil = {};
};

// When the first of a way's certificates ends; of one at least.
inline std::int64_t FirstEndOf(const Chain& chain) {
  return std::ranges::min_element(chain.certificates, {}, &Certificate::validUntil)->validUntil;
}

enum class Timestamp { None, OtherCounterSigner, Found };

// The signatures of one file, looked at one after the other. What a verification found stays to be
// asked for until the next, or Close.
class Verifier {
 public:
  // `file` is `path` opened for reading, and outlives this.
  Verifier(cvn::StringView path, const files::File& file);
  Verifier(const Verifier&) = delete;
  Verifier& operator=(const Verifier&) = delete;
  ~Verifier();

  // As WinVerifyTrust with WTD_STATEACTION_VERIFY, WTD_REVOKE_WHOLECHAIN, WSS_VERIFY_SPECIFIC and
  // the generic action: verifies the signature at `index`, 0 being the first. Offline it makes do
  // with what is cached (WTD_CACHE_ONLY_URL_RETRIEVAL).
  TrustStatus Verify(std::uint32_t index, bool online);
  // Forgets what Verify found (WTD_STATEACTION_CLOSE).
  void Close();

  // How many signatures stand behind the first (WSS_GET_SECONDARY_SIG_COUNT). Known after the first
  // Verify.
  std::uint32_t SecondaryCount() const;
  // Whether the last Verify left provider data, and in it a signer. The following two need both.
  bool HasProviderData() const;
  bool HasSigner() const;
  // The signer's own certificate; false when there is none.
  bool SignerCertificate(Certificate* certificate) const;
  // The way up from the signer's certificate. Of several the first good one, else the one whose
  // fault is the least. Empty when the signature was refused before anybody looked at it.
  Chain SignerChain() const;
  // The same of who made the timestamp, as far as a timestamp was looked at.
  Chain StamperChain() const;
  // The time that a counter-signature of timestamp kind vouches for, in 100-nanosecond ticks since
  // 1601 UTC.
  Timestamp SigningTime(std::uint64_t* time) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// As WinVerifyTrust with WTD_REVOKE_NONE, no state and WTD_HASH_ONLY_FLAG: whether the file's
// content is what its own signature says, no matter who made that.
TrustStatus VerifyDigestOnly(cvn::StringView path);

// The simple display name (CERT_NAME_SIMPLE_DISPLAY_TYPE) of the one who signed the file itself,
// found in its embedded signature without verifying it, or in the catalog that it is. Empty when
// there is none.
cvn::String SignerName(cvn::StringView path);

// Takes a distinguished name apart, as DsGetRdnW of Ntdsapi.dll.
class RdnReader {
 public:
  RdnReader();
  RdnReader(const RdnReader&) = delete;
  RdnReader& operator=(const RdnReader&) = delete;
  ~RdnReader();  // NOLINT(performance-trivially-destructible): on Windows it frees the library

  // False where the platform has no such operation.
  bool IsAvailable() const;
  // Takes the first key and value off `*name`: from "CN=a, O=b" it takes "CN" and "a". A value
  // keeps its surrounding quotes.
  Code Next(cvn::StringView* name, cvn::String* key, cvn::String* value) const;

 private:
  [[maybe_unused]] void* library_ = nullptr;  // Ntdsapi.dll, on Windows
};

}  // namespace platform::signatures
