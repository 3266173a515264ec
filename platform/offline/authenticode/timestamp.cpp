#include "platform/offline/authenticode/timestamp.h"

#include <utility>

#include "platform/file_digest.h"

namespace platform::posix {
namespace {

using signatures::kTrusted;
using signatures::Timestamp;

constexpr ObjectId kToken(1, 3, 6, 1, 4, 1, 311, 3, 3, 1);         // szOID_RFC3161_counterSign
constexpr ObjectId kTokenInfo(1, 2, 840, 113549, 1, 9, 16, 1, 4);  // RFC 3161, 2.4.2: TSTInfo
constexpr ObjectId kCounterSignature(1, 2, 840, 113549, 1, 9, 6);  // RFC 5652, 11.4
constexpr ObjectId kSigningTime(1, 2, 840, 113549, 1, 9, 5);       // RFC 5652, 11.3

// Who made a timestamp, and with what.
struct Maker {
  const SignerInfo* signer;
  std::span<const OpenSsl<X509>> certificates;
  std::span<const OpenSsl<X509_CRL>> lists;
};

// Judges who made it; what is left to say of a timestamp whose content is good.
void JudgeMaker(const CertificateStore& store, const Maker& maker, Revocation revocation,
                TimestampFound* found) {
  X509* certificate = FindSigner(maker.certificates, *maker.signer);
  if (certificate == nullptr || CheckSignature(*maker.signer, certificate) != kTrusted) {
    return;
  }
  found->chain = VerifyChain(store, {.certificate = certificate,
                                     .others = maker.certificates,
                                     .lists = maker.lists,
                                     .purpose = Purpose::Timestamping,
                                     .revocation = revocation,
                                     .at = found->time});
  found->isGood = found->chain.status == kTrusted;
}

// Reads when, and whether it is a stamp on `signature`.
bool ReadTokenInfo(const SignedData& token, Der signature, std::optional<std::time_t>* time) {
  if (!(kTokenInfo == token.contentType) || token.content.tag != DerTag::OctetString) {
    return false;
  }
  DerReader outer(token.content.value);
  DerReader reader(outer.Take(DerTag::Sequence).value);
  reader.Take(DerTag::Integer);   // version
  reader.Take(DerTag::ObjectId);  // policy
  DerReader imprint(reader.Take(DerTag::Sequence).value);
  const EVP_MD* algorithm = DigestNamed(imprint.Take(DerTag::Sequence).whole);
  const Der digest = imprint.Take(DerTag::OctetString).value;
  reader.Take(DerTag::Integer);  // serial number
  *time = TimeOf(reader.Take(DerTag::GeneralizedTime));
  return outer.IsDone() && reader.IsGood() && imprint.IsDone() && algorithm != nullptr &&
         AreEqual(digest, Digest(signature, algorithm));
}

TimestampFound JudgeToken(const CertificateStore& store, Der bytes, Der signature,
                          Revocation revocation) {
  TimestampFound found{.kind = Timestamp::Found};
  const std::optional<SignedData> token = ParseSignedData(bytes);
  std::optional<std::time_t> time;
  if (!token || !token->signer) {
    return found;
  }
  const bool fits = ReadTokenInfo(*token, signature, &time);
  found.time = time.value_or(0);
  if (fits && time &&
      CheckMessageDigest(*token->signer, token->contentType, token->content.value) == kTrusted) {
    const auto certificates = ReadCertificates(*token);
    const auto lists = ReadRevocationLists(*token);
    JudgeMaker(store, {&*token->signer, certificates, lists}, revocation, &found);
  }
  return found;
}

// A counter-signature is a timestamp when its signer is there for that, and it tells the time.
TimestampFound JudgeCounterSignature(const CertificateStore& store, Der bytes, Der signature,
                                     std::span<const OpenSsl<X509>> certificates,
                                     Revocation revocation) {
  TimestampFound found{.kind = Timestamp::OtherCounterSigner};
  const std::optional<SignerInfo> signer = ParseSignerInfo(bytes);
  X509* certificate = signer ? FindSigner(certificates, *signer) : nullptr;
  if (certificate == nullptr || !IsForTimestamps(certificate)) {
    return found;
  }
  DerReader times(FindAttribute(signer->signedAttributes.value, kSigningTime));
  const std::optional<std::time_t> time = TimeOf(times.Take());
  if (time && times.IsDone()) {
    found.kind = Timestamp::Found;
    found.time = *time;
    if (CheckMessageDigest(*signer, std::nullopt, signature) == kTrusted) {
      JudgeMaker(store, {&*signer, certificates, {}}, revocation, &found);
    }
  }
  return found;
}

// Keeps what is better: a good one, or the first of timestamp kind.
void Keep(TimestampFound candidate, TimestampFound* best) {
  if (!best->isGood &&
      (candidate.isGood || (best->kind != Timestamp::Found && candidate.kind != Timestamp::None))) {
    *best = std::move(candidate);
  }
}

}  // namespace

TimestampFound FindTimestamp(const CertificateStore& store, const SignerInfo& signer,
                             std::span<const OpenSsl<X509>> certificates, Revocation revocation) {
  constexpr int kMost = 8;
  TimestampFound best;
  DerReader tokens(FindAttribute(signer.unsignedAttributes, kToken));
  for (int i = 0; i < kMost && !tokens.AtEnd() && !best.isGood; ++i) {
    Keep(JudgeToken(store, tokens.Take().whole, signer.signature, revocation), &best);
  }
  DerReader counters(FindAttribute(signer.unsignedAttributes, kCounterSignature));
  for (int i = 0; i < kMost && !counters.AtEnd() && !best.isGood; ++i) {
    Keep(JudgeCounterSignature(store, counters.Take().whole, signer.signature, certificates,
                               revocation),
         &best);
  }
  return best;
}

}  // namespace platform::posix
