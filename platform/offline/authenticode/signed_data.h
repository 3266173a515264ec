// Signed data as PKCS #7 (RFC 2315) and CMS (RFC 5652) define it: some content, certificates, and a
// signature over both the content's digest and attributes.
//
// What is read must be strict DER. A signer has signed attributes, and these are sorted as DER
// demands of a SET OF, for the signature is made over that form.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <ctime>
#include <optional>
#include <vector>

#include "platform/formats/der.h"
#include "platform/openssl.h"
#include "platform/signatures.h"

namespace platform::posix {

struct SignerInfo {
  Der issuer;  // a name; empty when the signer is told by key
  Der serial;  // content of an integer
  Der keyId;
  Der digestAlgorithm;
  DerElement signedAttributes;
  Der signatureAlgorithm;
  Der signature;
  Der unsignedAttributes;  // content of the SET; may be empty
};

// All views lie in the bytes that were parsed.
struct SignedData {
  Der contentType;
  DerElement content;
  Der certificates;  // content of the SET
  Der revocationLists;
  std::optional<SignerInfo> signer;  // none when nobody has signed
};

// The signed data that `bytes` begins with. What follows it does not matter. Nothing when it is
// malformed, or has more than one signer: neither programs nor catalogs may.
std::optional<SignedData> ParseSignedData(Der bytes);
std::optional<SignerInfo> ParseSignerInfo(Der bytes);

// SPC_INDIRECT_DATA_OBJID: content that says what was digested, and its digest.
inline constexpr ObjectId kIndirectData(1, 3, 6, 1, 4, 1, 311, 2, 1, 4);

// What a signature says of a file: what kind of thing it is, and its digest.
struct IndirectData {
  Der type;
  Der algorithm;
  Der digest;
};
// Of the content of a SEQUENCE.
std::optional<IndirectData> ParseIndirectData(Der content);

// The values of the first attribute of a type, as the content of their SET; empty when there is
// none.
Der FindAttribute(Der attributes, const ObjectId& type);

// The algorithm of a digest that an AlgorithmIdentifier names; null for one that is
// refused (strength.h).
const EVP_MD* DigestNamed(Der algorithm);

// Those certificates of signed data that can be read.
std::vector<OpenSsl<X509>> ReadCertificates(const SignedData& data);
std::vector<OpenSsl<X509_CRL>> ReadRevocationLists(const SignedData& data);

// The bytes of the certificate's serial number, the highest first.
Bytes SerialOf(const X509* certificate);

// The signer's own certificate; null when it isn't there.
X509* FindSigner(std::span<const OpenSsl<X509>> certificates, const SignerInfo& signer);

// Whether the signed attributes name this content type, and the digest of these bytes: kTrusted, or
// kBadDigest. A counter-signature's content has no type.
signatures::TrustStatus CheckMessageDigest(const SignerInfo& signer, std::optional<Der> contentType,
                                           Der content);

// Whether the certificate's key made the signature over the signed attributes: kTrusted, or
// kBadCertificateSignature.
signatures::TrustStatus CheckSignature(const SignerInfo& signer, X509* certificate);

// A moment as UTCTime and GeneralizedTime tell it, in seconds since 1970.
std::optional<std::time_t> TimeOf(const DerElement& element);

}  // namespace platform::posix
