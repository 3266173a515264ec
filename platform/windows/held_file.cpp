#include "platform/held_file.h"

namespace platform::files {

Code HeldFile::Hold(cvn::StringView path) {
  path_ = path;
  return Open(path, Access::Read, Share::Read, Disposition::OpenExisting, &file_);
}

void HeldFile::Release() { file_.Close(); }

cvn::String PathOfOpenFile(const File& /*file*/, cvn::StringView path) { return path; }

}  // namespace platform::files
