// Objects of OpenSSL, owned; its view of bytes, and what passes between the two.
#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstddef>
#include <memory>
#include <span>
#include <type_traits>
#include <vector>

namespace platform {

struct FreeOpenSsl {
  void operator()(ASN1_TIME* it) const { ASN1_STRING_free(it); }
  void operator()(BIGNUM* it) const { BN_free(it); }
  void operator()(BIO* it) const { BIO_free(it); }
  void operator()(EVP_MD_CTX* it) const { EVP_MD_CTX_free(it); }
  void operator()(EVP_PKEY* it) const { EVP_PKEY_free(it); }
  void operator()(EVP_PKEY_CTX* it) const { EVP_PKEY_CTX_free(it); }
  void operator()(GENERAL_NAMES* it) const { GENERAL_NAMES_free(it); }
  void operator()(RSA* it) const;
  void operator()(X509* it) const { X509_free(it); }
  void operator()(X509_ALGOR* it) const { X509_ALGOR_free(it); }
  void operator()(X509_CRL* it) const { X509_CRL_free(it); }
  void operator()(X509_NAME* it) const { X509_NAME_free(it); }
  void operator()(X509_STORE* it) const { X509_STORE_free(it); }
  void operator()(X509_STORE_CTX* it) const { X509_STORE_CTX_free(it); }
  // An encoding that a function i2d_... has made.
  void operator()(unsigned char* it) const { OPENSSL_free(it); }
  // The stack alone; what is on it belongs to somebody else.
  void operator()(STACK_OF(X509) * it) const { sk_X509_free(it); }
};

using Bytes = std::vector<std::byte>;

template <typename T>
using OpenSsl = std::unique_ptr<T, FreeOpenSsl>;

inline unsigned char* AsUnsigned(Bytes& bytes) {
  return reinterpret_cast<unsigned char*>(bytes.data());
}
inline const unsigned char* AsUnsigned(std::span<const std::byte> bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

// The object that `Decode`, one of the functions d2i_..., reads at the start of `bytes`; null when
// there is none.
template <auto Decode>
auto Decoded(std::span<const std::byte> bytes) {
  const unsigned char* at = AsUnsigned(bytes);
  auto* object = Decode(nullptr, &at, static_cast<long>(bytes.size()));
  return OpenSsl<std::remove_pointer_t<decltype(object)>>(object);
}

// What `Encode`, one of the functions i2d_..., makes of an object; empty when it fails.
template <auto Encode, typename T>
Bytes Encoded(const T* object) {
  unsigned char* made = nullptr;
  const int size = Encode(object, &made);
  const OpenSsl<unsigned char> owner(made);
  const auto bytes = std::as_bytes(std::span(made, size > 0 ? static_cast<std::size_t>(size) : 0));
  return {bytes.begin(), bytes.end()};
}

}  // namespace platform
