#include "platform/offline/authenticode/certificate_ways.h"

#include <openssl/x509v3.h>

#include <algorithm>

namespace platform::posix {
namespace {

constexpr std::size_t kLongestWay = 16;
constexpr int kMostWays = 32;
constexpr int kMostSignatures = 512;

bool AreSame(const X509* left, const X509* right) { return X509_cmp(left, right) == 0; }

bool IsSelfSigned(X509* certificate) { return X509_self_signed(certificate, 0) == 1; }

// The same authority, whoever certified it.
bool AreOfOneAuthority(X509* left, X509* right) {
  const EVP_PKEY* leftKey = X509_get0_pubkey(left);
  const EVP_PKEY* rightKey = X509_get0_pubkey(right);
  return leftKey != nullptr && rightKey != nullptr && EVP_PKEY_eq(leftKey, rightKey) == 1 &&
         X509_NAME_cmp(X509_get_subject_name(left), X509_get_subject_name(right)) == 0;
}

class WaySearch {
 public:
  WaySearch(const CertificateStore& store, std::span<const OpenSsl<X509>> others,
            const std::function<bool(const Way&)>& visit)
      : store_(store), visit_(visit) {
    for (const TrustedRoot& root : store.roots) {
      if (IsSelfSigned(root.certificate.get())) {
        known_.push_back(root.certificate.get());
      }
    }
    for (const auto& certificates : {others, std::span(store.authorities)}) {
      for (const auto& certificate : certificates) {
        known_.push_back(certificate.get());
      }
    }
  }

  // Goes on from the last certificate of the way. True when the search is over.
  bool GoOn() {
    X509* last = way_.certificates.back();
    way_.endsInTrustedRoot = IsTrustedRoot(store_, last);
    if (way_.endsInTrustedRoot || IsSelfSigned(last) || way_.certificates.size() == kLongestWay) {
      return Visit();
    }
    const std::vector<X509*> named = FindNamed(last);
    const std::vector<X509*> issuers = FindSigners(named, last);
    for (X509* issuer : issuers) {
      way_.certificates.push_back(issuer);
      const bool isOver = GoOn();
      way_.certificates.pop_back();
      if (isOver) {
        return true;
      }
    }
    return issuers.empty() && VisitDeadEnd(named);
  }

  bool Start(X509* certificate) {
    way_.certificates = {certificate};
    return GoOn();
  }

 private:
  bool Visit() { return visit_(way_) || ++ways_ == kMostWays; }

  // Nobody signed the last certificate, but one of the issuer's name may be there.
  bool VisitDeadEnd(const std::vector<X509*>& named) {
    if (named.empty()) {
      way_.endsInTrustedRoot = false;
      return Visit();
    }
    way_.certificates.push_back(named.front());
    way_.endsInTrustedRoot = IsTrustedRoot(store_, named.front());
    const bool isOver = Visit();
    way_.certificates.pop_back();
    return isOver;
  }

  // Those that the certificate names as its issuer, each authority's certificate once in a way.
  std::vector<X509*> FindNamed(X509* certificate) const {
    std::vector<X509*> found;
    for (X509* candidate : known_) {
      const bool fits =
          X509_NAME_cmp(X509_get_subject_name(candidate), X509_get_issuer_name(certificate)) == 0 &&
          std::ranges::none_of(way_.certificates, [candidate](X509* passed) {
            return AreOfOneAuthority(passed, candidate);
          });
      if (fits && std::ranges::none_of(
                      found, [candidate](X509* other) { return AreSame(other, candidate); })) {
        found.push_back(candidate);
      }
    }
    return found;
  }

  std::vector<X509*> FindSigners(const std::vector<X509*>& named, X509* certificate) {
    std::vector<X509*> found;
    for (X509* candidate : named) {
      if (signatures_++ < kMostSignatures &&
          X509_verify(certificate, X509_get0_pubkey(candidate)) == 1) {
        found.push_back(candidate);
      }
    }
    return found;
  }

  const CertificateStore& store_;
  const std::function<bool(const Way&)>& visit_;
  std::vector<X509*> known_;  // roots first
  Way way_;
  int ways_ = 0;
  int signatures_ = 0;
};

}  // namespace

void VisitWays(const CertificateStore& store, X509* certificate,
               std::span<const OpenSsl<X509>> others,
               const std::function<bool(const Way& way)>& visit) {
  WaySearch(store, others, visit).Start(certificate);
}

bool IsTrustedRoot(const CertificateStore& store, X509* certificate) {
  return IsSelfSigned(certificate) &&
         std::ranges::any_of(store.roots, [certificate](const TrustedRoot& root) {
           return AreSame(root.certificate.get(), certificate);
         });
}

}  // namespace platform::posix
