#include "platform/offline/authenticode/signed_data.h"

#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <string>
#include <utility>

#include "platform/file_digest.h"
#include "platform/offline/authenticode/strength.h"

namespace platform::posix {
namespace {

using signatures::kBadCertificateSignature;
using signatures::kBadDigest;
using signatures::kTrusted;
using signatures::TrustStatus;

// id-signedData, id-contentType and id-messageDigest of RFC 5652, 5.1, 11.1 and 11.2.
constexpr ObjectId kSignedData(1, 2, 840, 113549, 1, 7, 2);
constexpr ObjectId kContentType(1, 2, 840, 113549, 1, 9, 3);
constexpr ObjectId kMessageDigest(1, 2, 840, 113549, 1, 9, 4);
constexpr std::size_t kMostCertificates = 256;

int NumberOf(const X509_ALGOR& algorithm) {
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, &algorithm);
  return OBJ_obj2nid(object);
}

// Whether a signature by this algorithm is one of the key, over a digest by `digest`. The algorithm
// may be named together with the digest, or be the key's alone.
bool Fits(Der signatureAlgorithm, const EVP_MD* digest, const EVP_PKEY* key) {
  const auto algorithm = Decoded<d2i_X509_ALGOR>(signatureAlgorithm);
  if (!algorithm) {
    return false;
  }
  const int number = NumberOf(*algorithm);
  const int keyType = EVP_PKEY_get_base_id(key);
  if (keyType != EVP_PKEY_RSA && keyType != EVP_PKEY_EC && keyType != EVP_PKEY_DSA) {
    return false;
  }
  int namedDigest = NID_undef;
  int namedKey = NID_undef;
  if (OBJ_find_sigid_algs(number, &namedDigest, &namedKey) == 1) {
    return namedDigest == EVP_MD_get_type(digest) && namedKey == keyType;
  }
  return number == keyType;
}

void ReadSigner(Der choice, DerTag tag, SignerInfo* signer) {
  if (tag != DerTag::Sequence) {
    signer->keyId = choice;
    return;
  }
  DerReader reader(choice);
  signer->issuer = reader.Take(DerTag::Sequence).whole;
  signer->serial = reader.Take(DerTag::Integer).value;
  if (!reader.IsDone()) {
    signer->issuer = signer->serial = {};
  }
}

bool IsSigner(X509* certificate, const SignerInfo& signer) {
  if (signer.issuer.empty()) {
    const ASN1_OCTET_STRING* id = X509_get0_subject_key_id(certificate);
    return id != nullptr && !signer.keyId.empty() &&
           AreEqual(std::as_bytes(std::span(ASN1_STRING_get0_data(id),
                                            static_cast<std::size_t>(ASN1_STRING_length(id)))),
                    signer.keyId);
  }
  const Bytes serial = SerialOf(certificate);
  if (serial.empty() || !AreEqual(serial, signer.serial)) {
    return false;
  }
  const auto issuer = Decoded<d2i_X509_NAME>(signer.issuer);
  return issuer && X509_NAME_cmp(issuer.get(), X509_get_issuer_name(certificate)) == 0;
}

// The value of an attribute that has exactly one.
DerElement SingleValue(Der attributes, const ObjectId& type) {
  DerReader values(FindAttribute(attributes, type));
  const DerElement value = values.Take();
  return values.IsDone() ? value : DerElement{};
}

}  // namespace

std::optional<SignerInfo> ParseSignerInfo(Der bytes) {
  DerReader outer(bytes);
  DerReader reader(outer.Take(DerTag::Sequence).value);
  SignerInfo signer;
  reader.Take(DerTag::Integer);
  // The issuer and serial number, or [0] and the key's identifier.
  const DerElement who = reader.Take();
  if (who.tag != DerTag::Sequence && who.tag != DerTag::Context0Primitive) {
    return std::nullopt;
  }
  ReadSigner(who.value, who.tag, &signer);
  signer.digestAlgorithm = reader.Take(DerTag::Sequence).whole;
  signer.signedAttributes = reader.Take(DerTag::Context0);
  signer.signatureAlgorithm = reader.Take(DerTag::Sequence).whole;
  signer.signature = reader.Take(DerTag::OctetString).value;
  if (const auto attributes = reader.TakeIf(DerTag::Context1)) {
    signer.unsignedAttributes = attributes->value;
  }
  if (!reader.IsDone() || !outer.IsGood() || !IsSorted(signer.signedAttributes.value)) {
    return std::nullopt;
  }
  return signer;
}

std::optional<SignedData> ParseSignedData(Der bytes) {
  if (!IsDer(bytes)) {
    return std::nullopt;
  }
  DerReader outer(bytes);
  DerReader info(outer.Take(DerTag::Sequence).value);
  if (!(kSignedData == info.Take(DerTag::ObjectId).value)) {
    return std::nullopt;
  }
  DerReader wrapped(info.Take(DerTag::Context0).value);
  DerReader reader(wrapped.Take(DerTag::Sequence).value);
  SignedData data;
  reader.Take(DerTag::Integer);
  reader.Take(DerTag::Set);
  DerReader content(reader.Take(DerTag::Sequence).value);
  data.contentType = content.Take(DerTag::ObjectId).value;
  DerReader explicitContent(content.Take(DerTag::Context0).value);
  data.content = explicitContent.Take();
  if (const auto certificates = reader.TakeIf(DerTag::Context0)) {
    data.certificates = certificates->value;
  }
  if (const auto lists = reader.TakeIf(DerTag::Context1)) {
    data.revocationLists = lists->value;
  }
  DerReader signers(reader.Take(DerTag::Set).value);
  if (!info.IsDone() || !wrapped.IsDone() || !reader.IsDone() || !content.IsDone() ||
      !explicitContent.IsDone()) {
    return std::nullopt;
  }
  if (!signers.AtEnd()) {
    data.signer = ParseSignerInfo(signers.Take(DerTag::Sequence).whole);
    if (!data.signer || !signers.IsDone()) {
      return std::nullopt;
    }
  }
  return data;
}

std::optional<IndirectData> ParseIndirectData(Der content) {
  IndirectData data;
  DerReader reader(content);
  DerReader what(reader.Take(DerTag::Sequence).value);
  data.type = what.Take(DerTag::ObjectId).value;
  DerReader digest(reader.Take(DerTag::Sequence).value);
  data.algorithm = digest.Take(DerTag::Sequence).whole;
  data.digest = digest.Take(DerTag::OctetString).value;
  return reader.IsDone() && what.IsGood() && digest.IsDone() ? std::optional(data) : std::nullopt;
}

Der FindAttribute(Der attributes, const ObjectId& type) {
  for (DerReader reader(attributes); !reader.AtEnd();) {
    DerReader attribute(reader.Take(DerTag::Sequence).value);
    const Der found = attribute.Take(DerTag::ObjectId).value;
    const Der values = attribute.Take(DerTag::Set).value;
    if (type == found) {
      return values;
    }
  }
  return {};
}

const EVP_MD* DigestNamed(Der algorithm) {
  const auto named = Decoded<d2i_X509_ALGOR>(algorithm);
  return AcceptedDigest(named ? NumberOf(*named) : NID_undef);
}

std::vector<OpenSsl<X509>> ReadCertificates(const SignedData& data) {
  std::vector<OpenSsl<X509>> certificates;
  for (DerReader reader(data.certificates);
       !reader.AtEnd() && certificates.size() < kMostCertificates;) {
    if (auto certificate = Decoded<d2i_X509>(reader.Take().whole)) {
      certificates.push_back(std::move(certificate));
    }
  }
  return certificates;
}

std::vector<OpenSsl<X509_CRL>> ReadRevocationLists(const SignedData& data) {
  std::vector<OpenSsl<X509_CRL>> lists;
  for (DerReader reader(data.revocationLists);
       !reader.AtEnd() && lists.size() < kMostCertificates;) {
    if (auto list = Decoded<d2i_X509_CRL>(reader.Take().whole)) {
      lists.push_back(std::move(list));
    }
  }
  return lists;
}

Bytes SerialOf(const X509* certificate) {
  const Bytes encoded = Encoded<i2d_ASN1_INTEGER>(X509_get0_serialNumber(certificate));
  const Der value = DerReader(encoded).Take(DerTag::Integer).value;
  return {value.begin(), value.end()};
}

X509* FindSigner(std::span<const OpenSsl<X509>> certificates, const SignerInfo& signer) {
  const auto found = std::ranges::find_if(certificates, [&signer](const auto& certificate) {
    return IsSigner(certificate.get(), signer);
  });
  return found == certificates.end() ? nullptr : found->get();
}

TrustStatus CheckMessageDigest(const SignerInfo& signer, std::optional<Der> contentType,
                               Der content) {
  const EVP_MD* algorithm = DigestNamed(signer.digestAlgorithm);
  const DerElement type = SingleValue(signer.signedAttributes.value, kContentType);
  const DerElement digest = SingleValue(signer.signedAttributes.value, kMessageDigest);
  const bool fits =
      !contentType || (type.tag == DerTag::ObjectId && AreEqual(type.value, *contentType));
  const bool matches = fits && algorithm != nullptr && digest.tag == DerTag::OctetString &&
                       !digest.value.empty() && AreEqual(digest.value, Digest(content, algorithm));
  return matches ? kTrusted : kBadDigest;
}

TrustStatus CheckSignature(const SignerInfo& signer, X509* certificate) {
  const EVP_MD* algorithm = DigestNamed(signer.digestAlgorithm);
  EVP_PKEY* key = X509_get0_pubkey(certificate);
  if (algorithm == nullptr || key == nullptr || !Fits(signer.signatureAlgorithm, algorithm, key)) {
    return kBadCertificateSignature;
  }
  // In the signer's record the attributes are tagged [0]; what is signed has a SET's tag (RFC 5652,
  // 5.4).
  Bytes attributes(signer.signedAttributes.whole.begin(), signer.signedAttributes.whole.end());
  attributes.front() = static_cast<std::byte>(DerTag::Set);
  const OpenSsl<EVP_MD_CTX> context(EVP_MD_CTX_new());
  const bool good =
      context && EVP_DigestVerifyInit(context.get(), nullptr, algorithm, nullptr, key) == 1 &&
      EVP_DigestVerify(context.get(), AsUnsigned(signer.signature), signer.signature.size(),
                       AsUnsigned(attributes), attributes.size()) == 1;
  return good ? kTrusted : kBadCertificateSignature;
}

std::optional<std::time_t> TimeOf(const DerElement& element) {
  std::string text(reinterpret_cast<const char*>(element.value.data()), element.value.size());
  std::tm moment{};
  const bool known = element.tag == DerTag::UtcTime || element.tag == DerTag::GeneralizedTime;
  OpenSsl<ASN1_TIME> time(ASN1_STRING_type_new(
      element.tag == DerTag::UtcTime ? V_ASN1_UTCTIME : V_ASN1_GENERALIZEDTIME));
  if (!known || !text.ends_with('Z') || !time ||
      ASN1_STRING_set(time.get(), text.data(), static_cast<int>(text.size())) != 1 ||
      ASN1_TIME_to_tm(time.get(), &moment) != 1) {
    return std::nullopt;
  }
  return timegm(&moment);
}

}  // namespace platform::posix
