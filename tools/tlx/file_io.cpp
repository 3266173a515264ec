#include "tools/tlx/file_io.h"

#include "platform/whole_file.h"
#include "tools/tlx/messages.h"

namespace tlx {

int WriteWholeFile(cvn::StringView path, std::string_view bytes) {
  platform::OutputFile file(path);
  platform::Code code = file.Write(bytes, platform::OutputFile::Readers::Anybody);
  if (code == platform::kSuccess) {
    code = file.Commit();
  }
  if (code != platform::kSuccess) {
    return FailToWrite(path, code);
  }
  return kExitDone;
}

}  // namespace tlx
