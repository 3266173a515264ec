#define OPENSSL_SUPPRESS_DEPRECATED
#include "tools/tlx/key_file.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>

#include "support/format.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/token_key.h"

namespace tlx {

SecretBytes::~SecretBytes() { OPENSSL_cleanse(bytes.data(), bytes.size()); }

namespace {

enum class KeyHalf { Private, Public };

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
  const platform::Code code = ReadInput(path, &pem.bytes);
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

// The first line of a file.
bool ReadPin(cvn::StringView path, SecretBytes* pin, cvn::String* problem) {
  const platform::Code code = ReadInput(path, &pin->bytes);
  if (code != platform::kSuccess) {
    *problem = cvn::Format(u"the PIN's file '%s' cannot be read: %s", path, DescribeCode(code));
    return false;
  }
  const std::size_t end = std::min(pin->bytes.find_first_of("\r\n"), pin->bytes.size());
  OPENSSL_cleanse(pin->bytes.data() + end, pin->bytes.size() - end);
  pin->bytes.resize(end);
  if (end == 0) {
    *problem = cvn::Format(u"there is no PIN in the first line of '%s'", path);
  }
  return end != 0;
}

OpenSsl<EVP_PKEY> ReadTokenKey(const KeyPlace& place, cvn::String* problem) {
  const std::optional<TokenUri> uri = ReadTokenUri(place.place, problem);
  if (!uri) {
    return nullptr;
  }
  const cvn::StringView pinFile = place.pinFile.empty() ? uri->pinFile.AsView() : place.pinFile;
  SecretBytes pin;
  if (!pinFile.empty() && !ReadPin(pinFile, &pin, problem)) {
    return nullptr;
  }
  return LoadTokenKey(*uri, pin.bytes, problem);
}

// Whether it is an RSA key that is long enough.
bool CheckKind(EVP_PKEY* key, KeyLength length, cvn::String* problem) {
  const bool isRsa = EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA;
  const int bits = EVP_PKEY_get_bits(key);
  if (length == KeyLength::AtLeast) {
    *problem = cvn::Format(u"the key must be an RSA key of %d bits or more", kKeyBits);
    return isRsa && bits >= kKeyBits;
  }
  *problem = cvn::Format(u"the key must be an RSA key of %d bits; it %s", kKeyBits,
                         isRsa ? cvn::Format(u"has %d", bits) : cvn::String(u"is of another kind"));
  return isRsa && bits == kKeyBits;
}

}  // namespace

cvn::String ShownPlace(const KeyPlace& place) {
  return IsTokenUri(place.place) ? ShownTokenUri(place.place) : cvn::String(place.place);
}

OpenSsl<EVP_PKEY> ReadPrivateKey(const KeyPlace& place, KeyLength length, cvn::String* problem) {
  const bool isOnToken = IsTokenUri(place.place);
  if (!isOnToken && !place.pinFile.empty()) {
    *problem = u"a key in a file has no PIN; --pin-file is for one on a token";
    return nullptr;
  }
  OpenSsl<EVP_PKEY> key =
      isOnToken ? ReadTokenKey(place, problem) : ReadAnyKey(place.place, KeyHalf::Private, problem);
  if (key != nullptr && !CheckKind(key.get(), length, problem)) {
    key.reset();
  }
  return key;
}

OpenSsl<RSA> ReadPublicKey(cvn::StringView path, cvn::String* problem) {
  const OpenSsl<EVP_PKEY> key = ReadAnyKey(path, KeyHalf::Public, problem);
  return OpenSsl<RSA>(key == nullptr || !CheckKind(key.get(), KeyLength::Exactly, problem)
                          ? nullptr
                          : EVP_PKEY_get1_RSA(key.get()));
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
