#include "tools/tlx/foreign_signature.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>

#include <algorithm>

#include "tools/tlx/der_writer.h"

namespace tlx {
namespace {

using der::View;
using platform::Bytes;
using platform::Encoded;
using platform::OpenSsl;

struct FreeMessage {
  void operator()(PKCS7* message) const { PKCS7_free(message); }
};
using Message = std::unique_ptr<PKCS7, FreeMessage>;

// The DER form of what may be in PEM form.
Bytes WithoutPem(std::string_view bytes) {
  const auto raw = std::as_bytes(std::span(bytes));
  if (!bytes.starts_with("-----BEGIN ")) {
    return {raw.begin(), raw.end()};
  }
  const OpenSsl<BIO> bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  char* name = nullptr;
  char* header = nullptr;
  unsigned char* data = nullptr;
  long size = 0;
  Bytes der;
  if (bio != nullptr && PEM_read_bio(bio.get(), &name, &header, &data, &size) == 1) {
    const auto read = std::as_bytes(std::span(data, static_cast<std::size_t>(size)));
    der.assign(read.begin(), read.end());
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(data);
  }
  return der;
}

Message ParseMessage(std::string_view bytes) {
  const Bytes der = WithoutPem(bytes);
  const unsigned char* at = platform::AsUnsigned(der);
  Message message(d2i_PKCS7(nullptr, &at, static_cast<long>(der.size())));
  ERR_clear_error();
  return message != nullptr && PKCS7_type_is_signed(message.get()) ? std::move(message) : nullptr;
}

// What is signed: the octets of CMS, or in PKCS #7 the content of an element of some other type.
std::optional<std::string> ContentOf(const PKCS7& message) {
  const PKCS7* inner = message.d.sign->contents;
  const bool isOther = inner != nullptr && inner->d.ptr != nullptr &&
                       OBJ_obj2nid(inner->type) != NID_pkcs7_data && !PKCS7_type_is_signed(inner);
  const Bytes element = isOther ? Encoded<i2d_ASN1_TYPE>(inner->d.other) : Bytes();
  return element.size() < 2 ? std::nullopt
                            : std::optional(std::string(der::ContentOf(View(element))));
}

std::vector<std::string> AttributesOf(const STACK_OF(X509_ATTRIBUTE) * attributes) {
  std::vector<std::string> encoded;
  const int count = std::max(sk_X509_ATTRIBUTE_num(attributes), 0);  // negative for none at all
  encoded.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    encoded.emplace_back(View(Encoded<i2d_X509_ATTRIBUTE>(sk_X509_ATTRIBUTE_value(attributes, i))));
  }
  return encoded;
}

CatalogSignature SignatureOf(const PKCS7_SIGNER_INFO& info) {
  const ASN1_OCTET_STRING* octets = info.enc_digest;
  return {
      .signerName = std::string(View(Encoded<i2d_PKCS7_ISSUER_AND_SERIAL>(info.issuer_and_serial))),
      .digestAlgorithm = std::string(View(Encoded<i2d_X509_ALGOR>(info.digest_alg))),
      .signedAttributes = AttributesOf(info.auth_attr),
      .signatureAlgorithm = std::string(View(Encoded<i2d_X509_ALGOR>(info.digest_enc_alg))),
      .signature = std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(octets)),
                               static_cast<std::size_t>(ASN1_STRING_length(octets))),
      .unsignedAttributes = AttributesOf(info.unauth_attr)};
}

// The digest that an algorithm names; null unless a run takes it.
const EVP_MD* DigestNamed(std::string_view algorithm) {
  const auto parsed = platform::Decoded<d2i_X509_ALGOR>(std::as_bytes(std::span(algorithm)));
  const ASN1_OBJECT* object = nullptr;
  if (parsed != nullptr) {
    X509_ALGOR_get0(&object, nullptr, nullptr, parsed.get());
  }
  switch (object == nullptr ? NID_undef : OBJ_obj2nid(object)) {
    case NID_sha256:
      return EVP_sha256();
    case NID_sha384:
      return EVP_sha384();
    case NID_sha512:
      return EVP_sha512();
    default:
      return nullptr;
  }
}

bool IsMadeBy(X509* certificate, const CatalogSignature& signature, const EVP_MD* algorithm) {
  const OpenSsl<EVP_MD_CTX> context(EVP_MD_CTX_new());
  const std::string bytes = SignedBytes(signature);
  const bool isGood =
      context != nullptr &&
      EVP_DigestVerifyInit(context.get(), nullptr, algorithm, nullptr,
                           X509_get0_pubkey(certificate)) == 1 &&
      EVP_DigestVerify(context.get(),
                       reinterpret_cast<const unsigned char*>(signature.signature.data()),
                       signature.signature.size(),
                       reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()) == 1;
  ERR_clear_error();
  return isGood;
}

}  // namespace

std::optional<ForeignSignature> ParseForeignSignature(std::string_view bytes,
                                                      cvn::String* problem) {
  const Message message = ParseMessage(bytes);
  if (message == nullptr) {
    *problem =
        u"there is no signed data in it, PKCS #7 or CMS with the signer's issuer and serial number";
    return std::nullopt;
  }
  const PKCS7_SIGNED& data = *message->d.sign;
  if (sk_PKCS7_SIGNER_INFO_num(data.signer_info) != 1) {
    *problem = u"a catalog has one signer, and no more";
    return std::nullopt;
  }
  ForeignSignature read;
  read.signature = SignatureOf(*sk_PKCS7_SIGNER_INFO_value(data.signer_info, 0));
  read.content = ContentOf(*message);
  for (int i = 0; i < sk_X509_num(data.cert); ++i) {
    read.certificates.push_back(Encoded<i2d_X509>(sk_X509_value(data.cert, i)));
  }
  return read;
}

OpenSsl<X509> VerifyForeignSignature(const CatalogSignature& signature, std::string_view content,
                                     const Certificates& certificates, cvn::String* problem) {
  const EVP_MD* algorithm = DigestNamed(signature.digestAlgorithm);
  if (algorithm == nullptr) {
    *problem = u"its digest isn't SHA-256, SHA-384 or SHA-512";
    return nullptr;
  }
  const std::vector<std::string> binding = BindingAttributes(content, algorithm);
  const auto has = [&signature](const std::string& attribute) {
    return std::ranges::find(signature.signedAttributes, attribute) !=
           signature.signedAttributes.end();
  };
  if (!has(binding[0])) {
    *problem =
        u"it isn't signed as a catalog: its content type must be 1.3.6.1.4.1.311.10.1 (openssl cms "
        u"-econtent_type), in signed attributes";
    return nullptr;
  }
  if (!has(binding[1])) {
    *problem = u"it is the signature of something else than this list";
    return nullptr;
  }
  const auto signer = std::ranges::find(certificates, signature.signerName, NameOfCertificate);
  if (signer == certificates.end()) {
    *problem = u"the signer's certificate is neither in it nor given by --cert or --chain";
    return nullptr;
  }
  OpenSsl<X509> certificate = platform::Decoded<d2i_X509>(*signer);
  if (!IsMadeBy(certificate.get(), signature, algorithm)) {
    *problem = u"the signature isn't one by the key of the signer's certificate";
    certificate.reset();
  }
  return certificate;
}

}  // namespace tlx
