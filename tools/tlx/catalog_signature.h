// Signatures over a list of files, and the catalog that both make.
#pragma once

#include <openssl/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/openssl.h"
#include "support/containers.h"

namespace tlx {

// In DER form.
using Certificates = cvn::List<platform::Bytes>;

// A signer's part of a message (PKCS #7, RFC 2315, 9.2). Attributes and algorithms are elements in
// DER.
struct CatalogSignature {
  std::string signerName;  // the certificate's issuer and serial number, an element
  std::string digestAlgorithm;
  std::vector<std::string> signedAttributes;
  std::string signatureAlgorithm;
  std::string signature;
  std::vector<std::string> unsignedAttributes;
};

// The issuer and the serial number that name a certificate, as one element. Empty when it can't be
// read.
std::string NameOfCertificate(const platform::Bytes& certificate);

// The attributes by which a signature is one of a list with this content: its type, and its digest
// by an algorithm. Nothing else that is signed matters.
std::vector<std::string> BindingAttributes(std::string_view content, const EVP_MD* algorithm);

// What a signature is made over: its signed attributes as a SET.
std::string SignedBytes(const CatalogSignature& signature);

// Signs a list, which is an element. Nothing when OpenSSL or the key's token fails.
std::optional<CatalogSignature> SignList(std::string_view list, const platform::Bytes& certificate,
                                         EVP_PKEY* key);

// Whether somebody vouches for the time of the signature.
bool HasTimeStamp(const CatalogSignature& signature);

// Adds the token of a time stamp (RFC 3161) as Microsoft does.
void AddTimeStamp(std::string_view token, CatalogSignature* signature);

// The catalog; without a signature one that tools sign which know catalogs.
std::string EncodeCatalog(std::string_view list, const Certificates& certificates,
                          const CatalogSignature* signature);

}  // namespace tlx
