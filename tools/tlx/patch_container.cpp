#define OPENSSL_SUPPRESS_DEPRECATED
#include "tools/tlx/patch_container.h"

#include <openssl/rsa.h>

namespace tlx {
namespace {

const unsigned char* BytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

bool EncipherPatch(RSA* privateKey, std::string_view text, std::string* patch) {
  unsigned char block[kBlockSize];
  patch->clear();
  patch->reserve((text.size() + kPieceSize - 1) / kPieceSize * kBlockSize);
  for (std::size_t offset = 0; offset < text.size(); offset += kPieceSize) {
    const std::string_view piece = text.substr(offset, kPieceSize);
    const int size = RSA_private_encrypt(static_cast<int>(piece.size()), BytesOf(piece), block,
                                         privateKey, RSA_PKCS1_PADDING);
    if (size != static_cast<int>(kBlockSize)) {
      return false;
    }
    patch->append(reinterpret_cast<const char*>(block), kBlockSize);
  }
  return true;
}

bool DecipherPatch(RSA* publicKey, std::string_view patch, std::string* text,
                   std::size_t* badOffset) {
  unsigned char piece[kBlockSize];
  std::string plain;
  plain.reserve(patch.size() / kBlockSize * kPieceSize);
  for (std::size_t offset = 0; offset < patch.size(); offset += kBlockSize) {
    const std::string_view block = patch.substr(offset, kBlockSize);
    const int size = RSA_public_decrypt(static_cast<int>(block.size()), BytesOf(block), piece,
                                        publicKey, RSA_PKCS1_PADDING);
    if (size < 0) {
      *badOffset = offset;
      return false;
    }
    plain.append(reinterpret_cast<const char*>(piece), static_cast<std::size_t>(size));
  }
  *text = std::move(plain);
  return true;
}

}  // namespace tlx
