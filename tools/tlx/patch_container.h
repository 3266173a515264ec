// The patch file: a text in pieces, each passed through the private key of the patch's maker.
#pragma once

#include <openssl/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace tlx {

// One RSA block of a 2048-bit key, and what is left in it for the text behind PKCS#1 v1.5 padding.
inline constexpr std::size_t kBlockSize = 256;
inline constexpr std::size_t kPieceSize = 245;

// Enciphers `text`, which gives as many blocks as it has pieces. False when a block fails.
bool EncipherPatch(RSA* privateKey, std::string_view text, std::string* patch);

// Undoes EncipherPatch. False when a block fails, with its offset in `*badOffset`; a last block
// that is cut short is one of those. `*text` is written on success only.
bool DecipherPatch(RSA* publicKey, std::string_view patch, std::string* text,
                   std::size_t* badOffset);

}  // namespace tlx
