#include "platform/download.h"

#include "platform/fetch.h"
#include "platform/whole_file.h"

namespace platform {
namespace {

// Returns when what a transfer left in the file has reached the disk.
Code Flush(cvn::StringView path) {
  files::File file;
  const Code code = files::Open(path, files::Access::Write, files::Share::None,
                                files::Disposition::OpenExisting, &file);
  return code == kSuccess ? file.Flush() : code;
}

}  // namespace

std::int32_t DownloadToFile(cvn::StringView url, cvn::StringView path) {
  OutputFile output(path);
  Code code = output.Write({}, OutputFile::Readers::Anybody);
  if (code != kSuccess) {
    return ResultOf(code);
  }
  const std::int32_t result = Fetch(url, output.TemporaryPath());
  if (result < 0) {
    return result;
  }
  code = Flush(output.TemporaryPath());
  return ResultOf(code == kSuccess ? output.Commit() : code);
}

}  // namespace platform
