// Makes what has signatures: certificates, images, catalogs, timestamps. All of it with OpenSSL's
// own structures and offsets that stand fixed here, so that nothing of the reader is in it.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/string.h"

namespace platform::test {

struct Identity {
  std::shared_ptr<EVP_PKEY> key;
  std::shared_ptr<X509> certificate;
  std::string Der() const;
};

struct Wish {
  std::string name;
  const Identity* issuer = nullptr;  // signs for itself without one
  bool isAuthority = false;
  std::string usages = "codeSigning";  // empty for none
  int fromDay = -10;                   // counted from today
  int toDay = 100;
  unsigned rsaBits = 0;  // of the key; 0 for one of an elliptic curve, which is made faster
  std::string organisation = "Example, SRL";
  std::shared_ptr<EVP_PKEY> key = nullptr;  // made where there is none
  const EVP_MD* digest = EVP_sha256();      // of the issuer's signature
};
Identity MakeIdentity(const Wish& wish);
// A list of an authority that revokes one certificate, from some day on.
std::string MakeRevocationList(const Identity& authority, const Identity& revoked, int day);

// DER.
std::string Tlv(int tag, std::string_view content);
std::string Oid(const char* digits);
std::string Sequence(std::initializer_list<std::string> parts);
std::string DigestOf(std::string_view bytes, const EVP_MD* algorithm);
// The bytes as upper-case digits.
std::string Hex(std::string_view bytes);

struct Signing {
  std::vector<Identity> others = {};  // certificates that go along
  std::vector<std::string> lists = {};
  const EVP_MD* digest = EVP_sha256();
  bool withCertificate = true;
  std::time_t time = 0;  // an attribute, when there is one
};
// Signed data over a content, which is one element.
std::string Sign(const Identity& signer, const char* contentType, const std::string& content,
                 const Signing& how = {});
// The same with an unsigned attribute more.
std::string WithAttribute(const std::string& signedData, const char* type,
                          const std::string& value);

// Unsigned attributes that tell the time of a signature.
std::string WithToken(const std::string& signedData, const Identity& authority, std::time_t time,
                      const std::string& signatureOf);
std::string WithCounterSignature(const std::string& signedData, const Identity& authority,
                                 std::time_t time);
std::string WithNested(const std::string& signedData, const std::string& nested);

// A small program with two sections, data behind them, and a company's name.
std::string MakeImage(std::string_view company);
inline constexpr std::size_t kImageChecksum = 0x80 + 24 + 64;
inline constexpr std::size_t kImageSecurityEntry = 0x80 + 24 + 112 + 4 * 8;
// What a digest covers of an image without signatures.
std::string CoveredPart(std::string image);
std::string SignImage(const std::string& image, const Identity& signer, const Signing& how = {});
std::string WithSignatures(std::string image, const std::vector<std::string>& signatures);

struct Listed {
  std::string tag;
  std::string digest;
  std::string file;  // UTF-16 as it stands in the attribute; none when empty
};
std::string MakeTrustList(const std::vector<Listed>& members);
inline constexpr char kTrustListType[] = "1.3.6.1.4.1.311.10.1";

// Where the system has its catalogs.
inline constexpr cvn::StringView kSystemCatalogs =
    u"C:\\Windows\\System32\\CatRoot\\{F750E6C3-38EE-11D1-85E5-00C04FC295EE}";
// Puts what is encoded into the system's stores, by way of the registry: a certificate (property
// 32) or a revocation list (33), at a place such as "ROOT\\Certificates".
void AddToStore(const char* place, std::uint32_t property, const std::string& encoded);

}  // namespace platform::test
