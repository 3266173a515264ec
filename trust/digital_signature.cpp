#include "trust/digital_signature.h"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "platform/catalogs.h"
#include "platform/paths.h"
#include "refused_serials.h"
#include "trace/trace.h"
#include "trust/path_key.h"
#include "trust/product.h"

namespace files = platform::files;
namespace signatures = platform::signatures;

namespace cvn {

NameParts DistinguishedNameBuilder::Build(StringView name) {
  NameParts parts;
  const signatures::RdnReader reader;
  while (reader.IsAvailable() && !name.empty()) {
    String key;
    String value;
    const platform::Code code = reader.Next(&name, &key, &value);
    if (code != platform::kSuccess) {
      logging::WriteLine(logging::kFailure, u"cvn::DistinguishedNameBuilder", u"Error %d\n", code);
      break;
    }
    StringView bare = value;
    if (bare.size() >= 2 && bare.front() == u'"' && bare.back() == u'"') {
      bare = bare.substr(1, bare.size() - 2);
    }
    parts[key].push_back(bare);
  }
  return parts;
}

}  // namespace cvn

namespace Crypt {
namespace {

using platform::Code;
using signatures::TrustStatus;

#define TESSEL_ROUTINE(name) u"Crypt::DigitalSignatureObjectImplementation::" u##name
constexpr const char16_t* kGetDigitalSignature = TESSEL_ROUTINE("GetDigitalSignature");
constexpr const char16_t* kOpenFileHandle = TESSEL_ROUTINE("OpenFileHandle");
constexpr const char16_t* kEnumCertificates = TESSEL_ROUTINE("EnumCertificates");
constexpr const char16_t* kGetCertificate = TESSEL_ROUTINE("GetCertificate");
constexpr const char16_t* kGetIssuer = TESSEL_ROUTINE("GetIssuer");
constexpr const char16_t* kGetSubject = TESSEL_ROUTINE("GetSubject");
constexpr const char16_t* kGetSerial = TESSEL_ROUTINE("GetSerial");
constexpr const char16_t* kBlobToStr = TESSEL_ROUTINE("BlobToStr");
constexpr const char16_t* kGetTimestamp = TESSEL_ROUTINE("GetTimestamp");
#undef TESSEL_ROUTINE

void CheckText(const cvn::String& text) {
  if (text.Empty()) {
    logging::WriteLine(logging::kFailure, kBlobToStr, u"Failed to convert blob to string.");
  }
}

cvn::String GetIssuer(const signatures::Certificate& certificate) {
  const logging::ScopeTrace scope(kGetIssuer);
  CheckText(certificate.issuer);
  logging::WriteLine(logging::kDetail, kGetIssuer, u"Issuer: %s", certificate.issuer);
  return certificate.issuer;
}

cvn::String GetSubject(const signatures::Certificate& certificate) {
  const logging::ScopeTrace scope(kGetSubject);
  CheckText(certificate.subject);
  logging::WriteLine(logging::kDetail, kGetSubject, u"Subject: %s", certificate.subject);
  return certificate.subject;
}

cvn::String GetSerial(const signatures::Certificate& certificate) {
  const logging::ScopeTrace scope(kGetSerial);
  cvn::String serial = tessel::SerialText(certificate);
  logging::WriteLine(logging::kDetail, kGetSerial, u"Serial: %s", serial);
  return serial;
}

// Seconds since 1970 of a time in 100-nanosecond ticks since 1601.
std::int64_t ReadTime(std::uint64_t ticks) {
  constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
  constexpr std::uint64_t kTicksPerSecond = 10'000'000;
  const std::int64_t seconds =
      static_cast<std::int64_t>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970;
  const std::chrono::sys_seconds moment{std::chrono::seconds(seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(moment - day);
  logging::WriteLine(logging::kDetail, kGetTimestamp, u"Systemtime : %02d/%02d/%04d %02d:%02d",
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     static_cast<int>(date.year()), static_cast<int>(time.hours().count()),
                     static_cast<int>(time.minutes().count()));
  return seconds;
}

std::int64_t GetTimestamp(const signatures::Verifier& verifier) {
  const logging::ScopeTrace scope(kGetTimestamp);
  std::uint64_t ticks = 0;
  switch (verifier.SigningTime(&ticks)) {
    case signatures::Timestamp::None:
      logging::WriteLine(logging::kFailure, kGetTimestamp, u"No counter signer found.");
      return 0;
    case signatures::Timestamp::OtherCounterSigner:
      logging::WriteLine(logging::kFailure, kGetTimestamp,
                         u"No signer of type SGNR_TYPE_TIMESTAMP found.");
      return 0;
    case signatures::Timestamp::Found:
      break;
  }
  return ReadTime(ticks);
}

}  // namespace

Code DigitalSignatureObjectImplementation::GetDigitalSignature(cvn::StringView path,
                                                               cvn::List<Chain>* certificates,
                                                               bool online) {
  const logging::ScopeTrace scope(kGetDigitalSignature);
  path_ = path;
  findings_.clear();
  const Code code = OpenFileHandle();
  if (code == platform::kSuccess) {
    EnumCertificates(certificates, online);
  }
  path_.Clear();
  file_.Close();
  return code;
}

Code DigitalSignatureObjectImplementation::GetDigitalSignature(cvn::StringView path, bool online) {
  cvn::List<Chain> certificates;
  return GetDigitalSignature(path, &certificates, online);
}

Code DigitalSignatureObjectImplementation::OpenFileHandle() {
  const logging::ScopeTrace scope(kOpenFileHandle);
  const Code code = files::Open(path_, files::Access::Read, files::Share::ReadWriteDelete,
                                files::Disposition::OpenExisting, &file_);
  if (code != platform::kSuccess) {
    logging::WriteLine(logging::kFailure, kOpenFileHandle, u"Failed to open file with error %d.",
                       code);
  }
  return code;
}

void DigitalSignatureObjectImplementation::EnumCertificates(cvn::List<Chain>* certificates,
                                                            bool online) {
  const logging::ScopeTrace scope(kEnumCertificates);
  Verifier verifier(path_, file_);
  bool usesNetwork = false;
  std::uint32_t index = 0;
  do {
    const TrustStatus status = Verify(&verifier, index, online, &usesNetwork);
    if (observer_ != nullptr) {
      observer_->OnStatus(status);
    }
    findings_.push_back(
        {.status = status, .signer = verifier.SignerChain(), .stamper = verifier.StamperChain()});
    ReadChain(verifier, index, status == signatures::kTrusted, certificates);
    verifier.Close();
    if (observer_ != nullptr) {
      observer_->OnSignatureEnd();
    }
    ++index;
  } while (index <= verifier.SecondaryCount());
}

TrustStatus DigitalSignatureObjectImplementation::Verify(Verifier* verifier, std::uint32_t index,
                                                         bool mayGoOnline, bool* usesNetwork) {
  TrustStatus status = verifier->Verify(index, *usesNetwork);
  if (!mayGoOnline || status == signatures::kTrusted) {
    return status;
  }
  logging::WriteLine(logging::kFailure, kEnumCertificates,
                     u"WinVerifyTrust failed with error 0x%.8X\n", status);
  verifier->Close();
  logging::WriteLine(logging::kNotice, kEnumCertificates, u"WinVerifyTrust try again online check");
  *usesNetwork = true;
  status = verifier->Verify(index, true);
  if (status != signatures::kTrusted) {
    logging::WriteLine(logging::kFailure, kEnumCertificates,
                       u"WinVerifyTrust failed online with error 0x%.8X", status);
  }
  return status;
}

void DigitalSignatureObjectImplementation::ReadChain(const Verifier& verifier, std::uint32_t index,
                                                     bool isTrusted,
                                                     cvn::List<Chain>* certificates) {
  if (!verifier.HasProviderData()) {
    logging::WriteLine(logging::kFailure, kEnumCertificates,
                       u"Failed to get crypt provider data. Index %d from %d certificates.", index,
                       verifier.SecondaryCount());
    return;
  }
  if (!verifier.HasSigner()) {
    logging::WriteLine(logging::kFailure, kEnumCertificates,
                       u"Failed to get crypt provider signer. Index %d from %d certificates.",
                       index, verifier.SecondaryCount());
    return;
  }
  Chain chain;
  GetCertificate(verifier, &chain);
  tessel::SignatureFinding& finding = findings_.back();
  finding.stampedAt = chain.certificates.empty() ? 0 : chain.certificates.front().timestamp;
  if (isTrusted) {
    certificates->push_back(chain);
    finding.chain = chain;
    chains_.push_back(std::move(chain));
  }
}

void DigitalSignatureObjectImplementation::GetCertificate(const Verifier& verifier,
                                                          Chain* chain) const {
  signatures::Certificate leaf;
  if (!verifier.SignerCertificate(&leaf)) {
    logging::WriteLine(logging::kFailure, kGetCertificate, u"Failed to get provider certificate.");
    return;
  }
  if (observer_ != nullptr) {
    observer_->OnCertificate(leaf);
  }
  Chain::Certificate certificate;
  certificate.issuer = GetIssuer(leaf);
  certificate.subject = GetSubject(leaf);
  certificate.serial = GetSerial(leaf);
  certificate.issuerParts = cvn::DistinguishedNameBuilder::Build(certificate.issuer);
  certificate.subjectParts = cvn::DistinguishedNameBuilder::Build(certificate.subject);
  certificate.timestamp = GetTimestamp(verifier);
  chain->certificates.push_back(std::move(certificate));
}

}  // namespace Crypt

namespace tessel {
namespace {

constexpr cvn::StringView kSignedKinds[] = {u"exe", u"dll", u"sys", u"cat"};

bool HasPart(const cvn::NameParts& parts, const cvn::String& key, cvn::StringView value) {
  const auto values = parts.find(key);
  return values != parts.end() &&
         std::find(values->second.begin(), values->second.end(), value) != values->second.end();
}

bool NeedsSignature(cvn::StringView path) {
  cvn::String extension = platform::paths::FindExtension(path);
  LowerCase(&extension);
  extension.RemovePrefix(std::min(extension.AsView().find_first_not_of(u'.'), extension.Length()));
  return std::find(std::begin(kSignedKinds), std::end(kSignedKinds), extension.AsView()) !=
         std::end(kSignedKinds);
}

// The digits without leading zeros: a positive number whose highest bit is set has a zero byte
// before it in a certificate.
cvn::StringView NumberIn(cvn::StringView digits) {
  return digits.substr(std::min(digits.find_first_not_of(u'0'), digits.size()));
}

// Whether one of the file's signatures is good, and the publisher's.
bool FindPublishersSignature(cvn::StringView contentPath, bool online,
                             std::vector<SignatureFinding>* findings) {
  Crypt::DigitalSignatureObjectImplementation reader;
  // Twice, and both have to find a good one.
  for (int i = 0; i < 2; ++i) {
    const platform::Code opened = reader.GetDigitalSignature(contentPath, online);
    *findings = reader.Findings();
    if (opened != platform::kSuccess ||
        std::ranges::none_of(
            *findings, [](const SignatureFinding& finding) { return finding.chain.has_value(); })) {
      return false;
    }
  }
  bool isFound = false;
  for (SignatureFinding& finding : *findings) {
    if (finding.chain) {
      finding.publisher = FaultOfChain(*finding.chain);
      isFound = isFound || finding.publisher == PublisherFault::None;
    }
  }
  return isFound;
}

}  // namespace

bool VerifyPublisherSignature(cvn::StringView path, cvn::StringView contentPath, bool online,
                              std::vector<SignatureFinding>* findings) {
  if (!NeedsSignature(path)) {
    return true;
  }
  std::vector<SignatureFinding> found;
  const bool passes = FindPublishersSignature(contentPath, online, &found);
  for (const SignatureFinding& finding : found) {
    if (!passes) {
      TraceLine(u"Signature refused: %s", WhatIsWrong(finding));
    }
  }
  if (findings != nullptr) {
    *findings = std::move(found);
  }
  return passes;
}

PublisherFault FaultOfChain(const Crypt::Chain& chain) {
  const auto publishers =
      std::find_if(chain.certificates.begin(), chain.certificates.end(),
                   [](const Crypt::Chain::Certificate& certificate) {
                     return HasPart(certificate.subjectParts, u"CN", product::kPublisher) &&
                            HasPart(certificate.subjectParts, u"O", product::kPublisher);
                   });
  if (publishers == chain.certificates.end()) {
    return PublisherFault::OtherName;
  }
  const bool isRefused =
      std::ranges::any_of(kRefusedSerials, [&publishers](cvn::StringView refused) {
        return NumberIn(refused) == NumberIn(publishers->serial);
      });
  return isRefused ? PublisherFault::RefusedSerial : PublisherFault::None;
}

bool IsPublishersChain(const Crypt::Chain& chain) {
  return FaultOfChain(chain) == PublisherFault::None;
}

bool IsFileSignedByCatalog(cvn::StringView path) {
  files::File file;
  return files::Open(path, files::Access::Read, files::Share::Read,
                     files::Disposition::OpenExisting, &file) == platform::kSuccess &&
         platform::catalogs::IsListedBySystem(path, &file);
}

bool IsFileSigned(cvn::StringView path) {
  return signatures::VerifyDigestOnly(path) == signatures::kTrusted || IsFileSignedByCatalog(path);
}

}  // namespace tessel
