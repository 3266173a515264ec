// The enciphered patch file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tessel {

inline constexpr std::size_t kPatchBlockSize = 256;

// Codes of the two operations.
inline constexpr std::int32_t kPatchDecrypted = 0;
inline constexpr std::int32_t kBadPatchBlock = 87;
inline constexpr std::int32_t kBadPatch = 1627;

// Reverses one RSA block with the public key in the zero-ended PEM text `keyText`. `plain` gets
// exactly what the block held. kPatchDecrypted, or kBadPatchBlock on any failure.
std::int32_t RsaPublicDecryptBlock(std::span<const std::byte> block, const char* keyText,
                                   std::vector<unsigned char>* plain);

// Decrypts the blocks of a patch file one after the other with the program's own key, which stands
// in the clear only while a block is worked on. `plainText` is written on full success only.
// kPatchDecrypted or kBadPatch.
std::int32_t DecryptPatch(std::span<const std::byte> data, std::string* plainText);

}  // namespace tessel
