#define OPENSSL_SUPPRESS_DEPRECATED
#include "tools/tlx/key_file.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include "platform/whole_file.h"
#include "support/format.h"
#include "tools/tlx/messages.h"

namespace tlx {

SecretBytes::~SecretBytes() { OPENSSL_cleanse(bytes.data(), bytes.size()); }

namespace {

using platform::OpenSsl;

// Stands in for OpenSSL's own prompt: a build must not stop to ask for a passphrase.
int NoteThatKeyIsLocked(char*, int, int, void* wasAsked) {
  *static_cast<bool*>(wasAsked) = true;
  return -1;
}

OpenSsl<EVP_PKEY> ParsePem(const std::string& pem, KeyHalf half, bool* isLocked) {
  const OpenSsl<BIO> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  if (bio == nullptr) {
    return nullptr;
  }
  const auto read = half == KeyHalf::Private ? PEM_read_bio_PrivateKey : PEM_read_bio_PUBKEY;
  return OpenSsl<EVP_PKEY>(read(bio.get(), nullptr, NoteThatKeyIsLocked, isLocked));
}

bool TakeText(BIO* bio, std::string* text) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio, &data);
  if (size <= 0) {
    return false;
  }
  text->assign(data, static_cast<std::size_t>(size));
  return true;
}

// A key of any kind.
OpenSsl<EVP_PKEY> ReadAnyKey(cvn::StringView path, KeyHalf half, cvn::String* problem) {
  SecretBytes pem;
  const platform::Code code = platform::ReadWholeFile(path, &pem.bytes);
  if (code != platform::kSuccess) {
    *problem = cvn::Format(u"cannot be read: %s", DescribeCode(code));
    return nullptr;
  }
  bool isLocked = false;
  OpenSsl<EVP_PKEY> key = ParsePem(pem.bytes, half, &isLocked);
  if (key == nullptr) {
    if (isLocked) {
      *problem = u"the key is locked with a passphrase; tlx takes a key without one";
    } else {
      *problem = half == KeyHalf::Private ? u"there is no private key in PEM form in it"
                                          : u"there is no public key in PEM form in it";
    }
  }
  return key;
}

}  // namespace

OpenSsl<EVP_PKEY> ReadSigningKey(cvn::StringView path, cvn::String* problem) {
  OpenSsl<EVP_PKEY> key = ReadAnyKey(path, KeyHalf::Private, problem);
  if (key != nullptr && (EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_RSA ||
                         EVP_PKEY_get_bits(key.get()) < kKeyBits)) {
    *problem = cvn::Format(u"the key must be an RSA key of %d bits or more", kKeyBits);
    key.reset();
  }
  return key;
}

OpenSsl<RSA> ReadKeyFile(cvn::StringView path, KeyHalf half, cvn::String* problem) {
  const OpenSsl<EVP_PKEY> key = ReadAnyKey(path, half, problem);
  if (key == nullptr) {
    return nullptr;
  }
  OpenSsl<RSA> rsa;
  if (EVP_PKEY_get_base_id(key.get()) == EVP_PKEY_RSA) {
    rsa.reset(EVP_PKEY_get1_RSA(key.get()));
  }
  if (rsa == nullptr) {
    *problem =
        cvn::Format(u"the key must be an RSA key of %d bits; it is of another kind", kKeyBits);
  } else if (RSA_bits(rsa.get()) != kKeyBits) {
    *problem = cvn::Format(u"the key must be an RSA key of %d bits; it has %d", kKeyBits,
                           RSA_bits(rsa.get()));
    rsa.reset();
  }
  return rsa;
}

bool MakeKeyPair(SecretBytes* privatePem, std::string* publicPem) {
  const OpenSsl<EVP_PKEY> key(EVP_RSA_gen(kKeyBits));
  const OpenSsl<BIO> privateBio(BIO_new(BIO_s_mem()));
  const OpenSsl<BIO> publicBio(BIO_new(BIO_s_mem()));
  return key != nullptr && privateBio != nullptr && publicBio != nullptr &&
         PEM_write_bio_PrivateKey(privateBio.get(), key.get(), nullptr, nullptr, 0, nullptr,
                                  nullptr) == 1 &&
         PEM_write_bio_PUBKEY(publicBio.get(), key.get()) == 1 &&
         TakeText(privateBio.get(), &privatePem->bytes) && TakeText(publicBio.get(), publicPem);
}

}  // namespace tlx
