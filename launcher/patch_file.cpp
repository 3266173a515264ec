// The format of the patch file has RSA keys, and this kind of object is deprecated.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "launcher/patch_file.h"

#include <openssl/crypto.h>
#include <openssl/pem.h>

#include <memory>
#include <span>
#include <utility>

#include "patch_key.h"
#include "platform/file_digest.h"
#include "platform/formats/patch_container.h"
#include "platform/held_folder.h"
#include "platform/openssl.h"
#include "platform/whole_file.h"
#include "support/format.h"

namespace tessel {
namespace {

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

platform::Code ReadPatchFile(cvn::StringView path, std::string* bytes) {
  platform::files::File file;
  platform::Code code = platform::files::OpenRegular(path, &file);
  if (code == platform::kSuccess) {
    code = platform::ReadWholeFile(&file, bytes);
  }
  return code == platform::kSuccess && bytes->empty() ? kInvalidScriptFile : code;
}

cvn::String PatchContentHash(std::string_view bytes) {
  return cvn::HexText(platform::Sha256(std::as_bytes(std::span(bytes))));
}

void StartOpenSslForOneRun() {
  // It can fail only for want of memory, and then what follows fails too.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_ATEXIT, nullptr);
}

std::int32_t RsaPublicDecryptBlock(std::string_view block, const char* keyText,
                                   std::string* plain) {
  const platform::OpenSsl<BIO> bio(BIO_new_mem_buf(keyText, -1));
  if (bio == nullptr) {
    return kBadPatchBlock;
  }
  const platform::OpenSsl<RSA> key(PEM_read_bio_RSA_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
  return key != nullptr && platform::DecipherPatchBlock(key.get(), block, plain) ? kPatchDecrypted
                                                                                 : kBadPatchBlock;
}

std::int32_t DecryptPatch(std::string_view bytes, std::string* plainText) {
  std::string text;
  text.reserve(bytes.size());
  do {
    const ClearKey key;
    const std::string_view block = bytes.substr(0, platform::kPatchBlockSize);
    if (RsaPublicDecryptBlock(block, key.Text(), &text) != kPatchDecrypted) {
      return kBadPatch;
    }
    bytes.remove_prefix(block.size());
  } while (!bytes.empty());
  *plainText = std::move(text);
  return kPatchDecrypted;
}

}  // namespace tessel
