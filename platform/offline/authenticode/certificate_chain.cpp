#include "platform/offline/authenticode/certificate_chain.h"

#include <openssl/objects.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <iterator>

#include "platform/formats/der.h"
#include "platform/offline/authenticode/certificate_ways.h"
#include "platform/offline/authenticode/strength.h"

namespace platform::posix {
namespace {

using namespace signatures;  // NOLINT(google-build-using-namespace): its statuses

// Extended key usages: of RFC 5280, 4.2.1.12, and Microsoft's szOID_KP_LIFETIME_SIGNING.
constexpr ObjectId kCodeSigning(1, 3, 6, 1, 5, 5, 7, 3, 3);
constexpr ObjectId kTimestamping(1, 3, 6, 1, 5, 5, 7, 3, 8);
constexpr ObjectId kAnyUsage(2, 5, 29, 37, 0);
constexpr ObjectId kLifetimeSigning(1, 3, 6, 1, 4, 1, 311, 10, 3, 13);

// The faults of one way; the gravest is kept.
struct Faults {
  Fault worst = Fault::None;
  std::size_t at = 0;

  void Add(Fault fault, std::size_t place) {
    if (fault < worst) {
      worst = fault;
      at = place;
    }
  }
};

TrustStatus StatusOf(Fault fault) {
  switch (fault) {
    case Fault::BadSignature:
    case Fault::WeakKey:
    case Fault::WeakDigest:
      return kBadCertificateSignature;
    case Fault::Distrusted:
      return kDistrusted;
    case Fault::Revoked:
      return kRevoked;
    case Fault::UntrustedRoot:
      return kUntrustedRoot;
    case Fault::IssuerMissing:
    case Fault::Other:
      return kBrokenChain;
    case Fault::WrongPurpose:
      return kWrongUsage;
    case Fault::NotYetValid:
    case Fault::Expired:
      return kExpired;
    case Fault::NoAuthority:
      return kBasicConstraints;
    case Fault::None:
      return kTrusted;
  }
  return kBrokenChain;
}

Fault FaultOf(int error) {
  switch (error) {
    case X509_V_OK:
      return Fault::None;
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
    case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
      return Fault::BadSignature;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_UNTRUSTED:
      return Fault::UntrustedRoot;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return Fault::IssuerMissing;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return Fault::NotYetValid;
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return Fault::Expired;
    case X509_V_ERR_INVALID_CA:
    case X509_V_ERR_INVALID_NON_CA:
    case X509_V_ERR_PATH_LENGTH_EXCEEDED:
    case X509_V_ERR_KEYUSAGE_NO_CERTSIGN:
      return Fault::NoAuthority;
    default:
      return Fault::Other;
  }
}

// OpenSSL stops at the first error unless it is told to go on; all of them are wanted.
int NoteError(int ok, X509_STORE_CTX* context) {
  if (ok == 0) {
    static_cast<Faults*>(X509_STORE_CTX_get_app_data(context))
        ->Add(FaultOf(X509_STORE_CTX_get_error(context)),
              static_cast<std::size_t>(std::max(X509_STORE_CTX_get_error_depth(context), 0)));
  }
  return 1;
}

// The identifiers of a certificate's extended key usages, as a SEQUENCE; empty when it has none.
Der UsagesOf(X509* certificate) {
  const int place = X509_get_ext_by_NID(certificate, NID_ext_key_usage, -1);
  if (place < 0) {
    return {};
  }
  const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(X509_get_ext(certificate, place));
  return std::as_bytes(
      std::span(ASN1_STRING_get0_data(value), static_cast<std::size_t>(ASN1_STRING_length(value))));
}

bool HasUsage(Der usages, const ObjectId& usage) {
  DerReader outer(usages);
  for (DerReader reader(outer.Take(DerTag::Sequence).value); !reader.AtEnd();) {
    if (usage == reader.Take(DerTag::ObjectId).value) {
      return true;
    }
  }
  return false;
}

bool MaySign(X509* certificate) {
  return (X509_get_key_usage(certificate) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) != 0;
}

// The signer's certificate names the purpose, and those above it do not exclude it. One that names
// none at all can sign code when none above it names any either.
bool ServesPurpose(const CertificateStore& store, std::span<X509* const> chain, Purpose purpose) {
  const ObjectId& wanted = purpose == Purpose::CodeSigning ? kCodeSigning : kTimestamping;
  bool anyNames = false;
  for (X509* certificate : chain.subspan(1)) {
    const Der usages = UsagesOf(certificate);
    anyNames = anyNames || !usages.empty();
    if (!usages.empty() && !HasUsage(usages, wanted) && !HasUsage(usages, kAnyUsage)) {
      return false;
    }
  }
  const auto root = std::ranges::find_if(store.roots, [&chain](const TrustedRoot& candidate) {
    return X509_cmp(candidate.certificate.get(), chain.back()) == 0;
  });
  if (root != store.roots.end() && !root->usages.empty() && !HasUsage(root->usages, wanted)) {
    return false;
  }
  const Der own = UsagesOf(chain.front());
  const bool named =
      own.empty() ? purpose == Purpose::CodeSigning && !anyNames : HasUsage(own, wanted);
  return named && MaySign(chain.front());
}

// Whether a list of the issuer has the certificate as revoked at that time or before.
bool IsRevoked(X509* certificate, X509* issuer, std::span<const OpenSsl<X509_CRL>> lists,
               std::time_t at) {
  return std::ranges::any_of(lists, [=](const OpenSsl<X509_CRL>& list) {
    std::time_t moment = at;
    if (X509_NAME_cmp(X509_CRL_get_issuer(list.get()), X509_get_issuer_name(certificate)) != 0) {
      return false;
    }
    constexpr int kIsRevoked = 1;
    X509_REVOKED* entry = nullptr;
    return X509_CRL_get0_by_cert(list.get(), &entry, certificate) == kIsRevoked &&
           X509_cmp_time(X509_REVOKED_get0_revocationDate(entry), &moment) < 0 &&
           X509_CRL_verify(list.get(), X509_get0_pubkey(issuer)) == 1;
  });
}

// What OpenSSL doesn't know of: what is strong enough, purposes as Windows sees them, and what the
// machine has against a certificate.
void Judge(const CertificateStore& store, const ChainRequest& request, const Way& way,
           Faults* faults) {
  const std::span<X509* const> chain = way.certificates;
  for (std::size_t i = 0; i < chain.size(); ++i) {
    const bool isLast = i + 1 == chain.size();
    faults->Add(WeaknessOf(chain[i], isLast && way.endsInTrustedRoot), i);
    if (store.disallowed.contains(ThumbprintOf(chain[i]))) {
      faults->Add(Fault::Distrusted, i);
    }
    if (request.revocation == Revocation::OnHand && !isLast &&
        (IsRevoked(chain[i], chain[i + 1], store.revocationLists, request.at) ||
         IsRevoked(chain[i], chain[i + 1], request.lists, request.at))) {
      faults->Add(Fault::Revoked, i);
    }
  }
  if (!ServesPurpose(store, chain, request.purpose)) {
    faults->Add(Fault::WrongPurpose, 0);
  }
}

// Has OpenSSL go this way and no other.
Faults VerifyWay(const CertificateStore& store, const ChainRequest& request, const Way& way) {
  const OpenSsl<X509_STORE> roots(X509_STORE_new());
  const OpenSsl<STACK_OF(X509)> others(sk_X509_new_null());
  const OpenSsl<X509_STORE_CTX> context(X509_STORE_CTX_new());
  bool ready = roots && others && context;
  if (ready && way.endsInTrustedRoot) {
    ready = X509_STORE_add_cert(roots.get(), way.certificates.back()) == 1;
  }
  for (X509* certificate : std::span(way.certificates).subspan(1)) {
    ready = ready && sk_X509_push(others.get(), certificate) > 0;
  }
  if (!ready ||
      X509_STORE_CTX_init(context.get(), roots.get(), request.certificate, others.get()) != 1) {
    return {.worst = Fault::Other};
  }
  Faults faults;
  X509_STORE_CTX_set_time(context.get(), 0, request.at);
  X509_STORE_CTX_set_app_data(context.get(), &faults);
  X509_STORE_CTX_set_verify_cb(context.get(), NoteError);
  if (X509_verify_cert(context.get()) != 1) {
    faults.Add(FaultOf(X509_STORE_CTX_get_error(context.get())), 0);
    faults.Add(Fault::Other, 0);
  }
  // Each certificate counts that was judged by its place in the way.
  if (sk_X509_num(X509_STORE_CTX_get0_chain(context.get())) !=
      static_cast<int>(way.certificates.size())) {
    faults.Add(Fault::IssuerMissing, faults.at);
  }
  Judge(store, request, way, &faults);
  return faults;
}

}  // namespace

ChainVerdict VerifyChain(const CertificateStore& store, const ChainRequest& request) {
  ChainVerdict verdict;
  bool isFirst = true;
  VisitWays(store, request.certificate, request.others, [&](const Way& way) {
    const Faults faults = VerifyWay(store, request, way);
    if (isFirst || faults.worst > verdict.fault) {
      verdict = {.status = StatusOf(faults.worst),
                 .fault = faults.worst,
                 .faulty = std::min(faults.at, way.certificates.size() - 1),
                 .certificates = {}};
      for (X509* certificate : way.certificates) {
        verdict.certificates.push_back(Shared(certificate));
      }
    }
    isFirst = false;
    return verdict.fault == Fault::None;
  });
  return verdict;
}

bool IsForTimestamps(X509* certificate) { return HasUsage(UsagesOf(certificate), kTimestamping); }

bool EndsWithCertificate(X509* certificate) {
  return HasUsage(UsagesOf(certificate), kLifetimeSigning);
}

}  // namespace platform::posix
