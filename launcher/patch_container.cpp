#include "launcher/patch_container.h"

// The key is an RSA key by the format of the patch file, and its blocks are padded by these
// functions.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <memory>

#include "patch_key.h"

namespace tessel {
namespace {

struct BioDeleter {
  void operator()(BIO* bio) const { BIO_free(bio); }
};
struct RsaDeleter {
  void operator()(RSA* key) const { RSA_free(key); }
};

// The program's public key in the clear; zeroed at the end of its life.
class ClearKey {
 public:
  ClearKey() : text_(std::make_unique<char[]>(launcher::kPatchKeyBufferSize)) {
    std::size_t length = 0;
    for (const unsigned char scrambled : launcher::kScrambledPatchKey) {
      const char clear = launcher::UnscramblePatchKeyByte(scrambled, length);
      if (clear == '\0') {
        break;
      }
      text_[length++] = clear;
    }
    text_[length] = '\0';
  }
  ClearKey(const ClearKey&) = delete;
  ClearKey& operator=(const ClearKey&) = delete;
  ~ClearKey() { OPENSSL_cleanse(text_.get(), launcher::kPatchKeyBufferSize); }

  const char* Text() const { return text_.get(); }

 private:
  std::unique_ptr<char[]> text_;
};

}  // namespace

std::int32_t RsaPublicDecryptBlock(std::span<const std::byte> block, const char* keyText,
                                   std::vector<unsigned char>* plain) {
  // Room for any key's block, so that a wrong key can't make the library write beyond the end.
  constexpr std::size_t kPlainRoom = 8 * kPatchBlockSize;
  const std::unique_ptr<BIO, BioDeleter> bio(BIO_new_mem_buf(keyText, -1));
  if (bio == nullptr) {
    return kBadPatchBlock;
  }
  const std::unique_ptr<RSA, RsaDeleter> key(
      PEM_read_bio_RSA_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
  if (key == nullptr || RSA_size(key.get()) > static_cast<int>(kPlainRoom)) {
    return kBadPatchBlock;
  }
  plain->resize(kPlainRoom);
  const int size = RSA_public_decrypt(static_cast<int>(block.size()),
                                      reinterpret_cast<const unsigned char*>(block.data()),
                                      plain->data(), key.get(), RSA_PKCS1_PADDING);
  if (size < 0) {
    return kBadPatchBlock;
  }
  plain->resize(static_cast<std::size_t>(size));
  return kPatchDecrypted;
}

std::int32_t DecryptPatch(std::span<const std::byte> data, std::string* plainText) {
  std::string text;
  text.reserve(data.size());
  std::vector<unsigned char> plain;
  do {
    const ClearKey key;
    const auto block = data.first(std::min(data.size(), kPatchBlockSize));
    if (RsaPublicDecryptBlock(block, key.Text(), &plain) != kPatchDecrypted) {
      return kBadPatch;
    }
    text.append(plain.begin(), plain.end());
    data = data.subspan(block.size());
  } while (!data.empty());
  *plainText = std::move(text);
  return kPatchDecrypted;
}

}  // namespace tessel
