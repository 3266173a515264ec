#include "tools/tlx/trust_list.h"

#include <openssl/rand.h>
#include <openssl/sha.h>

#include <array>
#include <ctime>

#include "platform/openssl.h"
#include "support/format.h"
#include "tools/tlx/der_writer.h"

namespace tlx {
namespace {

using der::Algorithm;
using der::BmpText;
using der::Element;
using der::Integer;
using der::ObjectId;
using der::Sequence;
using der::SetOf;
using der::Tag;
using platform::AsUnsigned;
using platform::Bytes;
using platform::Decoded;
using platform::Encoded;
using platform::OpenSsl;

constexpr char kTrustList[] = "1.3.6.1.4.1.311.10.1";  // szOID_CTL
constexpr char kSha256[] = "2.16.840.1.101.3.4.2.1";

std::string_view View(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string Attribute(std::string_view type, std::string_view value) {
  return Sequence({ObjectId(type), Element(Tag::Set, value)});
}

// --- The list

// The placeholder of SpcLink in Microsoft's published description of Authenticode.
std::string ObsoleteLink() {
  return Element(Tag::Context2, BmpText(Tag::Primitive0, u"<<<Obsolete>>>"));
}

std::string IndirectData(const ListedFile& file) {
  const std::string what =
      file.isImage ? Sequence({ObjectId("1.3.6.1.4.1.311.2.1.15"),
                               // No flag is set.
                               Sequence({Element(Tag::BitString, std::string_view("\0", 1)),
                                         Element(Tag::Context0, ObsoleteLink())})})
                   : Sequence({ObjectId("1.3.6.1.4.1.311.2.1.25"), ObsoleteLink()});
  const std::string digest =
      Sequence({Algorithm(kSha256), Element(Tag::OctetString, View(file.digest))});
  return Attribute("1.3.6.1.4.1.311.2.1.4", Sequence({what, digest}));
}

// CAT_MEMBERINFO: the kind of file, by the identifier of its subject interface package.
std::string MemberInfo(const ListedFile& file) {
  constexpr std::uint32_t kVersion = 0x200;
  constexpr cvn::StringView kImage = u"{C689AAB8-8E78-11D0-8C47-00C04FC295EE}";
  constexpr cvn::StringView kFlat = u"{DE351A42-8E59-11D0-8C47-00C04FC295EE}";
  return Attribute(
      "1.3.6.1.4.1.311.12.2.2",
      Sequence({BmpText(Tag::BmpString, file.isImage ? kImage : kFlat), Integer(kVersion)}));
}

// CAT_NAMEVALUE. Readers take the value's size for its length, so no closing zero is written.
std::string FileName(const ListedFile& file) {
  constexpr std::uint32_t kSignedText = 0x10010001;  // authenticated; name and value are text
  return Attribute("1.3.6.1.4.1.311.12.2.1",
                   Sequence({BmpText(Tag::BmpString, u"File"), Integer(kSignedText),
                             Element(Tag::OctetString, der::WideBytes(file.name))}));
}

// Gives the digest's digits. Tags must differ, so a content that was there before gets a number
// too.
class TagMaker {
 public:
  cvn::String Make(std::span<const std::byte> digest) {
    cvn::String tag;
    for (const std::byte byte : digest) {
      tag.Append(cvn::Format(u"%02X", std::to_integer<int>(byte)));
    }
    const int count = ++counts_[tag];
    if (count > 1) {
      tag.Append(cvn::Format(u".%d", count));
    }
    return tag;
  }

 private:
  cvn::Map<cvn::String, int> counts_;
};

std::string Subject(const ListedFile& file, const cvn::String& tag) {
  const std::string identifier = der::WideBytes(tag) + std::string(2, '\0');
  return Sequence({Element(Tag::OctetString, identifier),
                   SetOf(Tag::Set, {IndirectData(file), MemberInfo(file), FileName(file)})});
}

// Now, as UTCTime up to 2049 and GeneralizedTime from then on.
std::string Now() {
  const OpenSsl<ASN1_TIME> time(ASN1_TIME_set(nullptr, std::time(nullptr)));
  if (time == nullptr) {
    return {};
  }
  return std::string(View(Encoded<i2d_ASN1_TIME>(time.get())));
}

}  // namespace

std::string BuildTrustList(std::span<const ListedFile> files) {
  std::array<unsigned char, 16> identifier{};
  const std::string now = Now();
  if (now.empty() || RAND_bytes(identifier.data(), static_cast<int>(identifier.size())) != 1) {
    return {};
  }
  TagMaker tags;
  std::string subjects;
  for (const ListedFile& file : files) {
    subjects.append(Subject(file, tags.Make(file.digest)));
  }
  return Sequence({Sequence({ObjectId("1.3.6.1.4.1.311.12.1.1")}),
                   Element(Tag::OctetString, View(std::as_bytes(std::span(identifier)))), now,
                   Algorithm("1.3.6.1.4.1.311.12.1.2"), Element(Tag::Sequence, subjects)});
}

// --- The signature

namespace {

// The content of an element: what is behind its tag and its length.
std::string_view ContentOf(std::string_view element) {
  const auto length = static_cast<unsigned char>(element[1]);
  return element.substr(length < 0x80 ? 2 : 2 + (length & 0x7F));
}

std::vector<std::string> SignedAttributes(std::string_view list) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  const std::string_view content = ContentOf(list);
  SHA256(AsUnsigned(std::as_bytes(std::span(content))), content.size(), digest.data());
  return {Attribute("1.2.840.113549.1.9.3", ObjectId(kTrustList)),
          Attribute("1.2.840.113549.1.9.4",
                    Element(Tag::OctetString, View(std::as_bytes(std::span(digest))))),
          // SPC_SP_OPUS_INFO: the program's name and address, neither of which is given.
          Attribute("1.3.6.1.4.1.311.2.1.12", Sequence({})),
          // SPC_STATEMENT_TYPE: an individual publisher, which signing tools write for all.
          Attribute("1.3.6.1.4.1.311.2.1.11", Sequence({ObjectId("1.3.6.1.4.1.311.2.1.21")}))};
}

std::string SignatureOver(std::string_view bytes, EVP_PKEY* key) {
  const OpenSsl<EVP_MD_CTX> context(EVP_MD_CTX_new());
  const auto* data = AsUnsigned(std::as_bytes(std::span(bytes)));
  std::size_t size = 0;
  if (context == nullptr ||
      EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
      EVP_DigestSign(context.get(), nullptr, &size, data, bytes.size()) != 1) {
    return {};
  }
  std::string signature(size, '\0');
  if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, data,
                     bytes.size()) != 1) {
    return {};
  }
  signature.resize(size);
  return signature;
}

// The issuer and the serial number that name a certificate. Empty when it can't be read.
std::string NameOfCertificate(std::span<const std::byte> der) {
  const auto certificate = Decoded<d2i_X509>(der);
  if (certificate == nullptr) {
    return {};
  }
  const Bytes issuer = Encoded<i2d_X509_NAME>(X509_get_issuer_name(certificate.get()));
  const Bytes serial = Encoded<i2d_ASN1_INTEGER>(X509_get0_serialNumber(certificate.get()));
  return issuer.empty() || serial.empty() ? std::string() : Sequence({View(issuer), View(serial)});
}

}  // namespace

std::string SignTrustList(std::string_view list,
                          const cvn::List<std::vector<std::byte>>& certificates, EVP_PKEY* key) {
  const std::vector<std::string> attributes = SignedAttributes(list);
  // What is signed has a SET's own tag.
  const std::string signature = SignatureOver(SetOf(Tag::Set, attributes), key);
  const std::string signerName = NameOfCertificate(certificates.front());
  if (signature.empty() || signerName.empty()) {
    return {};
  }
  std::vector<std::string> certificateSet;
  for (const std::vector<std::byte>& certificate : certificates) {
    certificateSet.emplace_back(View(certificate));
  }
  const std::string signer =
      Sequence({Integer(1), signerName, Algorithm(kSha256), SetOf(Tag::Context0, attributes),
                Algorithm("1.2.840.113549.1.1.1"), Element(Tag::OctetString, signature)});
  const std::string signedData =
      Sequence({Integer(1), Element(Tag::Set, Algorithm(kSha256)),
                Sequence({ObjectId(kTrustList), Element(Tag::Context0, list)}),
                SetOf(Tag::Context0, std::move(certificateSet)), Element(Tag::Set, signer)});
  return Sequence({ObjectId("1.2.840.113549.1.7.2"), Element(Tag::Context0, signedData)});
}

}  // namespace tlx
