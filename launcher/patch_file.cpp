#include "launcher/patch_file.h"

#include "platform/whole_file.h"

namespace tessel {

platform::Code ReadPatchFile(cvn::StringView path, std::string* bytes) {
  const platform::Code code = platform::ReadWholeFile(path, bytes);
  return code == platform::kSuccess && bytes->empty() ? kInvalidScriptFile : code;
}

}  // namespace tessel
