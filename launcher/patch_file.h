// The patch file: reading it, its digest, and the script in it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "support/string.h"

namespace tessel {

// What an empty file gives.
inline constexpr platform::Code kInvalidScriptFile = 1006;

// Reads the whole file at `path`, which others can't write meanwhile. Success, the platform's code
// for the failure (222 for a pipe, a socket or a device, none of which is opened), or
// kInvalidScriptFile.
platform::Code ReadPatchFile(cvn::StringView path, std::string* bytes);

// The SHA-256 digest of a patch file's bytes in lower-case hexadecimal digits.
cvn::String PatchContentHash(std::string_view bytes);

// For a process that runs one patch and ends, before anything else of OpenSSL: spares it the texts
// of errors, which nobody reads, and the tidying up at the end. Both take longer than to decrypt a
// patch.
void StartOpenSslForOneRun();

// Codes of the two operations below.
inline constexpr std::int32_t kPatchDecrypted = 0;
inline constexpr std::int32_t kBadPatchBlock = 87;
inline constexpr std::int32_t kBadPatch = 1627;

// Reverses one RSA block with the public key in the zero-ended PEM text `keyText`, and appends what
// it held to `plain`. kPatchDecrypted, or kBadPatchBlock on any failure.
std::int32_t RsaPublicDecryptBlock(std::string_view block, const char* keyText, std::string* plain);

// Decrypts the blocks of a patch file one after the other with the program's own key, which stands
// in the clear only while a block is worked on. `plainText` is written on full success only.
// kPatchDecrypted or kBadPatch.
std::int32_t DecryptPatch(std::string_view bytes, std::string* plainText);

}  // namespace tessel
