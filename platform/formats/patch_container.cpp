// The format is bare RSA with padding of PKCS #1. To undo it without a copy of the key for each
// block takes these older functions of OpenSSL.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "platform/formats/patch_container.h"

#include <openssl/rsa.h>

#include <utility>

#include "platform/openssl.h"

namespace platform {
namespace {

const unsigned char* BytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

bool EncipherPatch(EVP_PKEY* privateKey, std::string_view text, std::string* patch) {
  // A signature without a digest is the bare operation; one by EVP works for keys on tokens too.
  const OpenSsl<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(privateKey, nullptr));
  if (context == nullptr || EVP_PKEY_sign_init(context.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1) {
    return false;
  }
  unsigned char block[kPatchBlockSize];
  patch->clear();
  patch->reserve((text.size() + kPatchPieceSize - 1) / kPatchPieceSize * kPatchBlockSize);
  for (std::size_t offset = 0; offset < text.size(); offset += kPatchPieceSize) {
    const std::string_view piece = text.substr(offset, kPatchPieceSize);
    std::size_t size = sizeof(block);
    if (EVP_PKEY_sign(context.get(), block, &size, BytesOf(piece), piece.size()) != 1 ||
        size != kPatchBlockSize) {
      return false;
    }
    patch->append(reinterpret_cast<const char*>(block), kPatchBlockSize);
  }
  return true;
}

bool DecipherPatchBlock(RSA* publicKey, std::string_view block, std::string* text) {
  // A longer key's block would not fit; no patch has one.
  unsigned char piece[kPatchBlockSize];
  const int size = RSA_size(publicKey) > static_cast<int>(sizeof(piece))
                       ? -1
                       : RSA_public_decrypt(static_cast<int>(block.size()), BytesOf(block), piece,
                                            publicKey, RSA_PKCS1_PADDING);
  if (size >= 0) {
    text->append(reinterpret_cast<const char*>(piece), static_cast<std::size_t>(size));
  }
  return size >= 0;
}

bool DecipherPatch(RSA* publicKey, std::string_view patch, std::string* text,
                   std::size_t* badOffset) {
  std::string plain;
  plain.reserve(patch.size() / kPatchBlockSize * kPatchPieceSize);
  for (std::size_t offset = 0; offset < patch.size(); offset += kPatchBlockSize) {
    if (!DecipherPatchBlock(publicKey, patch.substr(offset, kPatchBlockSize), &plain)) {
      *badOffset = offset;
      return false;
    }
  }
  *text = std::move(plain);
  return true;
}

}  // namespace platform
