// The reader of signatures, and what is decided by them.
#pragma once

#include <cstdint>
#include <vector>

#include "logging/log.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/signatures.h"
#include "support/string.h"
#include "trust/signature_info.h"
#include "trust/signature_words.h"

namespace Crypt {

using cvn::amsdk::AntivirusScan::ObjectInfo::SignatureInfo::Chain;

// Is told of each signature while it is read.
class ISignatureObserver {
 public:
  virtual ~ISignatureObserver() = default;
  virtual void OnStatus(platform::signatures::TrustStatus status) = 0;
  virtual void OnCertificate(const platform::signatures::Certificate& leaf) = 0;
  virtual void OnSignatureEnd() = 0;
};

class IDigitalSignature {
 public:
  virtual ~IDigitalSignature() = default;
  // Verifies all signatures of the file, and appends a chain for each good one to `certificates`.
  // With `online`, what fails by what is cached is tried again with the network. 0 when the file
  // could be opened, whatever was found in it; else the platform's code.
  virtual platform::Code GetDigitalSignature(cvn::StringView path, cvn::List<Chain>* certificates,
                                             bool online) = 0;
  // The same without a list of the caller's.
  virtual platform::Code GetDigitalSignature(cvn::StringView path, bool online) = 0;
  // The chains of all calls so far.
  virtual void GetChains(std::vector<Chain>* out) const = 0;
  // Null for none. It outlives the calls.
  virtual void SetObserver(ISignatureObserver* observer) = 0;
};

// Keeps the logging library in the process for as long as it lives.
class DigitalSignatureObjectImplementation : public IDigitalSignature {
 public:
  DigitalSignatureObjectImplementation() { log_.Attach(); }

  platform::Code GetDigitalSignature(cvn::StringView path, cvn::List<Chain>* certificates,
                                     bool online) override;
  platform::Code GetDigitalSignature(cvn::StringView path, bool online) override;
  void GetChains(std::vector<Chain>* out) const override { *out = chains_; }
  void SetObserver(ISignatureObserver* observer) override { observer_ = observer; }
  // All signatures of the last call's file, good or not.
  const std::vector<tessel::SignatureFinding>& Findings() const { return findings_; }

 private:
  using Verifier = platform::signatures::Verifier;

  platform::Code OpenFileHandle();
  void EnumCertificates(cvn::List<Chain>* certificates, bool online);
  // Tries again with the network where that is allowed; `usesNetwork` is then set for good.
  static platform::signatures::TrustStatus Verify(Verifier* verifier, std::uint32_t index,
                                                  bool mayGoOnline, bool* usesNetwork);
  void ReadChain(const Verifier& verifier, std::uint32_t index, bool isTrusted,
                 cvn::List<Chain>* certificates);
  void GetCertificate(const Verifier& verifier, Chain* chain) const;

  cvn::PathString path_;
  platform::files::File file_;
  std::vector<Chain> chains_;
  std::vector<tessel::SignatureFinding> findings_;
  ISignatureObserver* observer_ = nullptr;
  logging::LogRef log_;
};

}  // namespace Crypt

namespace tessel {

// Whether the file at `path` needs no signature, being no program, library, driver or catalog by
// its extension, or has a valid one of the publisher's. Its content is read at `contentPath`, which
// is the same path, or that of what the caller holds in its place. Traces what is wrong with each
// of the signatures when none will do.
bool VerifyPublisherSignature(cvn::StringView path, cvn::StringView contentPath, bool online,
                              std::vector<SignatureFinding>* findings = nullptr);

// What there is against a chain, however good its signatures are.
PublisherFault FaultOfChain(const Crypt::Chain& chain);

// Whether one of the chain's certificates is the publisher's, and not refused.
bool IsPublishersChain(const Crypt::Chain& chain);

// Whether one of the system's catalogs lists the file, and verifies.
bool IsFileSignedByCatalog(cvn::StringView path);

// Whether the file is signed at all, by a signature in it or by a system catalog. Only its content
// is looked at, not who signed.
bool IsFileSigned(cvn::StringView path);

}  // namespace tessel
