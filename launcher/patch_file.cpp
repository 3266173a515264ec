#include "launcher/patch_file.h"

#include <openssl/evp.h>

#include <array>
#include <span>

#include "platform/whole_file.h"
#include "support/format.h"

namespace tessel {

platform::Code ReadPatchFile(cvn::StringView path, std::string* bytes) {
  const platform::Code code = platform::ReadWholeFile(path, bytes);
  return code == platform::kSuccess && bytes->empty() ? kInvalidScriptFile : code;
}

cvn::String PatchContentHash(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    return {};
  }
  return cvn::HexText(std::as_bytes(std::span(digest).first(size)));
}

}  // namespace tessel
