// The patch file: a text in pieces, each passed through the private key of the patch's maker.
#pragma once

#include <openssl/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

// One RSA block of a 2048-bit key, and what is left in it for the text behind PKCS #1 v1.5 padding
// (RFC 8017, 7.2.1: 11 bytes at least).
inline constexpr std::size_t kPatchBlockSize = 256;
inline constexpr std::size_t kPatchPieceSize = kPatchBlockSize - 11;

// Enciphers `text`, which gives as many blocks as it has pieces. The key is an RSA key of
// 2048 bits. False when a block fails.
bool EncipherPatch(EVP_PKEY* privateKey, std::string_view text, std::string* patch);

// Appends what one block holds. False when it isn't a block of this pair of keys, or is cut short.
bool DecipherPatchBlock(RSA* publicKey, std::string_view block, std::string* text);

// Undoes EncipherPatch. False when a block fails, with its offset in `*badOffset`. `*text` is
// written on success only.
bool DecipherPatch(RSA* publicKey, std::string_view patch, std::string* text,
                   std::size_t* badOffset);

}  // namespace platform
