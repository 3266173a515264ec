#include "trust/signature_words.h"

#include "support/format.h"

namespace tessel {
namespace {

namespace signatures = platform::signatures;
using signatures::Fault;

// What comes behind the certificate's name.
cvn::StringView WordsOf(Fault fault) {
  switch (fault) {
    case Fault::BadSignature:
      return u"isn't signed by the authority that it names";
    case Fault::WeakKey:
      return u"has a key that is too short";
    case Fault::WeakDigest:
      return u"is signed over a digest that is too weak";
    case Fault::Distrusted:
      return u"is distrusted by the machine";
    case Fault::NoAuthority:
      return u"issued another one, which it may not";
    case Fault::UntrustedRoot:
      return u"is a root that the machine doesn't trust";
    case Fault::IssuerMissing:
      return u"was issued by an authority whose certificate is missing";
    case Fault::Revoked:
      return u"is revoked";
    case Fault::NotYetValid:
      return u"isn't valid yet";
    case Fault::Expired:
      return u"has expired";
    case Fault::WrongPurpose:
      return u"is for another purpose";
    case Fault::Other:
    case Fault::None:
      break;
  }
  return u"isn't accepted";
}

cvn::String WhatIsWrong(const signatures::Chain& chain) {
  return cvn::Format(u"%s %s", NameOf(chain.certificates[chain.faulty]), WordsOf(chain.fault));
}

cvn::String WordsOf(signatures::TrustStatus status) {
  switch (status) {
    case signatures::kNoSignature:
      return u"there is no signature";
    case signatures::kBadImage:
    case signatures::kSubjectFormUnknown:
      return u"the file is neither a sound program nor a sound catalog";
    case signatures::kBadDigest:
      return u"the content isn't the one that was signed";
    case signatures::kNoSignerCertificate:
      return u"the signer's certificate is missing";
    case signatures::kBadCertificateSignature:
      return u"the signature isn't made with the signer's key";
    case signatures::kBadTimestamp:
      return u"the time stamp isn't one of this signature";
    default:
      return cvn::Format(u"the system refuses it with the code 0x%.8X", status);
  }
}

}  // namespace

cvn::String SerialText(const signatures::Certificate& certificate) {
  cvn::String text;
  for (auto byte = certificate.serial.rbegin(); byte != certificate.serial.rend(); ++byte) {
    text.Append(cvn::Format(u"%02x", static_cast<unsigned>(*byte)));
  }
  return text;
}

cvn::String NameOf(const signatures::Certificate& certificate) {
  return cvn::Format(u"the certificate of %s (serial number %s)", certificate.subject,
                     SerialText(certificate));
}

cvn::String WhatIsWrong(const SignatureFinding& finding) {
  if (finding.status != signatures::kTrusted) {
    for (const signatures::Chain* chain : {&finding.signer, &finding.stamper}) {
      if (chain->fault != Fault::None && chain->faulty < chain->certificates.size()) {
        return WhatIsWrong(*chain);
      }
    }
    return WordsOf(finding.status);
  }
  const cvn::String name = finding.signer.certificates.empty()
                               ? cvn::String(u"the signer's certificate")
                               : NameOf(finding.signer.certificates.front());
  switch (finding.publisher) {
    case PublisherFault::OtherName:
      return cvn::Format(u"%s isn't the publisher's", name);
    case PublisherFault::RefusedSerial:
      return cvn::Format(u"%s is one of the publisher's that are refused", name);
    case PublisherFault::None:
      break;
  }
  return {};
}

}  // namespace tessel
