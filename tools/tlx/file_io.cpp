#include "tools/tlx/file_io.h"

#include "platform/streams.h"
#include "platform/whole_file.h"
#include "support/utf.h"
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

int WriteText(cvn::StringView path, std::string_view text) {
  if (!path.empty()) {
    return WriteWholeFile(path, text);
  }
  text.remove_suffix(1);  // the stream ends the last line in its own way
  platform::streams::WriteLine(platform::streams::Output::Out, cvn::Utf8ToWide(text));
  return kExitDone;
}

}  // namespace tlx
