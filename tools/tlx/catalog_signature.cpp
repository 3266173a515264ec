#include "tools/tlx/catalog_signature.h"

#include <algorithm>

#include "platform/file_digest.h"
#include "tools/tlx/der_writer.h"

namespace tlx {
namespace {

using der::Algorithm;
using der::Attribute;
using der::Element;
using der::Integer;
using der::ObjectId;
using der::Sequence;
using der::SetOf;
using der::Tag;
using der::View;
using platform::AsUnsigned;
using platform::Bytes;
using platform::Decoded;
using platform::Encoded;
using platform::OpenSsl;

constexpr char kSignedData[] = "1.2.840.113549.1.7.2";
constexpr char kContentType[] = "1.2.840.113549.1.9.3";
constexpr char kMessageDigest[] = "1.2.840.113549.1.9.4";
constexpr char kRsa[] = "1.2.840.113549.1.1.1";
constexpr char kCounterSignature[] = "1.2.840.113549.1.9.6";
constexpr char kTimeStampToken[] = "1.3.6.1.4.1.311.3.3.1";  // szOID_RFC3161_counterSign

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

std::string EncodeSigner(const CatalogSignature& signature) {
  const std::string unsignedAttributes = signature.unsignedAttributes.empty()
                                             ? std::string()
                                             : SetOf(Tag::Context1, signature.unsignedAttributes);
  return Sequence({Integer(1), signature.signerName, signature.digestAlgorithm,
                   SetOf(Tag::Context0, signature.signedAttributes), signature.signatureAlgorithm,
                   Element(Tag::OctetString, signature.signature), unsignedAttributes});
}

}  // namespace

std::string NameOfCertificate(const Bytes& certificate) {
  const auto parsed = Decoded<d2i_X509>(certificate);
  if (parsed == nullptr) {
    return {};
  }
  const Bytes issuer = Encoded<i2d_X509_NAME>(X509_get_issuer_name(parsed.get()));
  const Bytes serial = Encoded<i2d_ASN1_INTEGER>(X509_get0_serialNumber(parsed.get()));
  return issuer.empty() || serial.empty() ? std::string() : Sequence({View(issuer), View(serial)});
}

std::vector<std::string> BindingAttributes(std::string_view content, const EVP_MD* algorithm) {
  const Bytes digest = platform::Digest(std::as_bytes(std::span(content)), algorithm);
  return {Attribute(kContentType, ObjectId(der::kTrustList)),
          Attribute(kMessageDigest, Element(Tag::OctetString, View(digest)))};
}

std::string SignedBytes(const CatalogSignature& signature) {
  return SetOf(Tag::Set, signature.signedAttributes);
}

std::optional<CatalogSignature> SignList(std::string_view list, const Bytes& certificate,
                                         EVP_PKEY* key) {
  CatalogSignature made;
  made.signerName = NameOfCertificate(certificate);
  made.digestAlgorithm = Algorithm(der::kSha256);
  made.signedAttributes = BindingAttributes(der::ContentOf(list), EVP_sha256());
  made.signatureAlgorithm = Algorithm(kRsa);
  // SPC_SP_OPUS_INFO: the program's name and address, neither of which is given.
  made.signedAttributes.push_back(Attribute("1.3.6.1.4.1.311.2.1.12", Sequence({})));
  // SPC_STATEMENT_TYPE: an individual publisher, which signing tools write for all.
  made.signedAttributes.push_back(
      Attribute("1.3.6.1.4.1.311.2.1.11", Sequence({ObjectId("1.3.6.1.4.1.311.2.1.21")})));
  made.signature = SignatureOver(SignedBytes(made), key);
  return made.signature.empty() || made.signerName.empty() ? std::nullopt : std::optional(made);
}

bool HasTimeStamp(const CatalogSignature& signature) {
  return std::ranges::any_of(signature.unsignedAttributes, [](const std::string& attribute) {
    const std::string_view content = der::ContentOf(attribute);
    return content.starts_with(ObjectId(kTimeStampToken)) ||
           content.starts_with(ObjectId(kCounterSignature));
  });
}

void AddTimeStamp(std::string_view token, CatalogSignature* signature) {
  signature->unsignedAttributes.push_back(Attribute(kTimeStampToken, token));
}

std::string EncodeCatalog(std::string_view list, const Certificates& certificates,
                          const CatalogSignature* signature) {
  std::vector<std::string> certificateSet;
  for (const Bytes& certificate : certificates) {
    certificateSet.emplace_back(View(certificate));
  }
  const bool isSigned = signature != nullptr;
  const std::string signedData = Sequence(
      {Integer(1), Element(Tag::Set, isSigned ? signature->digestAlgorithm : std::string()),
       Sequence({ObjectId(der::kTrustList), Element(Tag::Context0, list)}),
       certificateSet.empty() ? std::string() : SetOf(Tag::Context0, std::move(certificateSet)),
       Element(Tag::Set, isSigned ? EncodeSigner(*signature) : std::string())});
  return Sequence({ObjectId(kSignedData), Element(Tag::Context0, signedData)});
}

}  // namespace tlx
