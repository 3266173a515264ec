#include "tools/tlx/publisher_check.h"

#include <openssl/bn.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <ctime>

#include "platform/openssl.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/messages.h"
#include "trust/digital_signature.h"
#include "trust/product.h"

namespace tlx {
namespace {

using platform::OpenSsl;

constexpr std::time_t kDay = std::time_t{24} * 60 * 60;
constexpr std::time_t kSoon = 14 * kDay;

cvn::String TextOf(const ASN1_STRING* string) {
  unsigned char* made = nullptr;
  const int size = ASN1_STRING_to_UTF8(&made, string);
  const OpenSsl<unsigned char> owner(made);
  return size <= 0 ? cvn::String()
                   : cvn::Utf8ToWide(std::string_view(reinterpret_cast<const char*>(made),
                                                      static_cast<std::size_t>(size)));
}

cvn::NameParts PartsOf(const X509_NAME* name) {
  cvn::NameParts parts;
  for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
    const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
    const int number = OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry));
    parts[cvn::Utf8ToWide(OBJ_nid2sn(number))].push_back(TextOf(X509_NAME_ENTRY_get_data(entry)));
  }
  return parts;
}

// Two lower-case digits a byte, as the reader of signatures has it.
cvn::String SerialOf(const X509* certificate) {
  const OpenSsl<BIGNUM> number(ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
  platform::Bytes bytes(number == nullptr ? 0
                                          : static_cast<std::size_t>(BN_num_bytes(number.get())));
  if (number != nullptr) {
    BN_bn2bin(number.get(), platform::AsUnsigned(bytes));
  }
  return cvn::HexText(bytes);
}

// What a run would read of the certificate.
Crypt::Chain ChainOf(const X509* certificate) {
  Crypt::Chain chain;
  Crypt::Chain::Certificate& only = chain.certificates.emplace_back();
  only.subjectParts = PartsOf(X509_get_subject_name(certificate));
  only.serial = SerialOf(certificate);
  return chain;
}

cvn::String DayOf(const ASN1_TIME* time) {
  std::tm parts{};
  return ASN1_TIME_to_tm(time, &parts) != 1 ? cvn::String(u"a day that can't be read")
                                            : cvn::Format(u"%04d-%02d-%02d", parts.tm_year + 1900,
                                                          parts.tm_mon + 1, parts.tm_mday);
}

// What a run says to a catalog of such a certificate.
void WarnOfRefusal(const PublisherCheck& check, cvn::StringView reason) {
  WarnOfFile(check.path,
             cvn::Format(u"%s: a run will end with 323 (\"Integrity check failed. Reason: invalid "
                         u"digital signature.\")",
                         reason));
}

void CheckName(X509* certificate, const PublisherCheck& check) {
  switch (tessel::FaultOfChain(ChainOf(certificate))) {
    case tessel::PublisherFault::None:
      return;
    case tessel::PublisherFault::OtherName:
      WarnOfRefusal(check, cvn::Format(u"the certificate isn't the publisher's, whose common name "
                                       u"and organisation are both '%s'",
                                       tessel::product::kPublisher));
      return;
    case tessel::PublisherFault::RefusedSerial:
      WarnOfRefusal(check, cvn::Format(u"the certificate's serial number %s counts as lost",
                                       SerialOf(certificate)));
      return;
  }
}

void CheckPurpose(X509* certificate, const PublisherCheck& check) {
  if ((X509_get_extended_key_usage(certificate) & XKU_CODE_SIGN) == 0 ||
      (X509_get_key_usage(certificate) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) == 0) {
    WarnOfRefusal(check, u"the certificate isn't one for code signing");
  }
}

int CheckTime(X509* certificate, const PublisherCheck& check) {
  const ASN1_TIME* end = X509_get0_notAfter(certificate);
  const bool isOver = X509_cmp_current_time(end) < 0;
  if (isOver || X509_cmp_current_time(X509_get0_notBefore(certificate)) > 0) {
    const cvn::StringView fault = isOver ? cvn::StringView(u"the certificate has expired")
                                         : cvn::StringView(u"the certificate isn't valid yet");
    if (!check.isForced) {
      return FailOnFile(check.path, cvn::Format(u"%s (--force signs all the same)", fault));
    }
    WarnOfRefusal(check, fault);
    return kExitDone;
  }
  std::time_t soon = std::time(nullptr) + kSoon;
  if (!check.isStamped && X509_cmp_time(end, &soon) < 0) {
    WarnOfFile(check.path, cvn::Format(u"the certificate expires on %s, and so does the catalog: "
                                       u"it gets no time stamp (--timestamp)",
                                       DayOf(end)));
  }
  return kExitDone;
}

}  // namespace

int CheckPublisher(X509* certificate, const PublisherCheck& check) {
  CheckName(certificate, check);
  CheckPurpose(certificate, check);
  return CheckTime(certificate, check);
}

}  // namespace tlx
