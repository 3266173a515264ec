#include "launcher/patch_file.h"

#include <limits>

#include "platform/files.h"

namespace tessel {

platform::Code ReadPatchFile(cvn::StringView path, std::vector<std::byte>* bytes) {
  namespace files = platform::files;
  files::File file;
  const platform::Code opened = files::Open(path, files::Access::Read, files::Share::Read,
                                            files::Disposition::OpenExisting, &file);
  if (opened != platform::kSuccess) {
    return opened;
  }
  std::uint64_t size = 0;
  const platform::Code sized = file.Size(&size);
  if (sized != platform::kSuccess) {
    return sized;
  }
  if (size == 0) {
    return kInvalidScriptFile;
  }
  if (size > std::numeric_limits<std::int32_t>::max()) {
    return platform::kFileTooLarge;
  }
  bytes->resize(static_cast<std::size_t>(size));
  std::size_t count = 0;
  const platform::Code code = file.Read(*bytes, &count);
  bytes->resize(count);
  return code;
}

}  // namespace tessel
