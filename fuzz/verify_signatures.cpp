#include "fuzz/verify_signatures.h"

#include "fuzz/input.h"
#include "platform/offline/authenticode/authenticode.h"

namespace tessel::fuzz {

void VerifySignatures(std::span<const std::byte> bytes) {
  using namespace platform::posix;  // NOLINT(google-build-using-namespace): all of it is tried
  const platform::ByteSource source(bytes);
  SignedFile file(source);
  CertificateStore store;
  for (std::size_t at = 0; at < file.Count(); ++at) {
    if (file.At(at) == nullptr) {
      continue;
    }
    for (const auto& certificate : ReadCertificates(*file.At(at))) {
      store.roots.push_back({Shared(certificate.get()), {}});
    }
  }
  for (std::size_t at = 0; at <= file.Count(); ++at) {
    const Verdict verdict = VerifySignature(&file, at, store, Revocation::OnHand);
    Require(at < file.Count() || verdict.status != platform::signatures::kTrusted,
            "what isn't there isn't trusted");
  }
}

}  // namespace tessel::fuzz
