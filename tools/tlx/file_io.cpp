#include "tools/tlx/file_io.h"

#include <span>

#include "platform/private_file.h"
#include "platform/random.h"
#include "support/format.h"
#include "tools/tlx/messages.h"

namespace tlx {

platform::Code ReadWholeFile(cvn::StringView path, std::string* bytes) {
  namespace files = platform::files;
  files::File file;
  platform::Code code = files::Open(path, files::Access::Read, files::Share::Read,
                                    files::Disposition::OpenExisting, &file);
  std::uint64_t size = 0;
  if (code == platform::kSuccess) {
    code = file.Size(&size);
  }
  if (code == platform::kSuccess && size > kLargestFile) {
    code = kFileTooLarge;
  }
  if (code != platform::kSuccess) {
    return code;
  }
  // The end of the file decides, not its size: a pipe has none.
  bytes->resize(static_cast<std::size_t>(size) + 1);
  std::size_t used = 0;
  for (;;) {
    std::size_t count = 0;
    code = file.Read(std::as_writable_bytes(std::span(*bytes)).subspan(used), &count);
    if (code != platform::kSuccess || count == 0) {
      break;
    }
    used += count;
    if (used > kLargestFile) {
      code = kFileTooLarge;
      break;
    }
    if (used == bytes->size()) {
      bytes->resize(2 * used);
    }
  }
  bytes->resize(used);
  return code;
}

OutputFile::OutputFile(cvn::StringView path)
    : path_(path), temporaryPath_(cvn::Format(u"%s.%08x.tmp", path, platform::SecureRandom32())) {}

OutputFile::~OutputFile() {
  if (hasTemporary_) {
    platform::files::Delete(temporaryPath_);
  }
}

platform::Code OutputFile::Write(std::string_view bytes, Readers readers) {
  namespace files = platform::files;
  files::File file;
  platform::Code code = readers == Readers::OwnerOnly
                            ? files::CreatePrivate(temporaryPath_, &file)
                            : files::Open(temporaryPath_, files::Access::Write, files::Share::None,
                                          files::Disposition::CreateNew, &file);
  hasTemporary_ = file.IsOpen();
  if (code == platform::kSuccess) {
    code = file.Write(std::as_bytes(std::span(bytes)));
  }
  if (code == platform::kSuccess) {
    code = file.Flush();
  }
  return code;
}

platform::Code OutputFile::Commit() {
  const platform::Code code = platform::files::Replace(temporaryPath_, path_);
  if (code == platform::kSuccess) {
    hasTemporary_ = false;
  }
  return code;
}

int WriteWholeFile(cvn::StringView path, std::string_view bytes) {
  OutputFile file(path);
  platform::Code code = file.Write(bytes, OutputFile::Readers::Anybody);
  if (code == platform::kSuccess) {
    code = file.Commit();
  }
  if (code != platform::kSuccess) {
    return FailToWrite(path, code);
  }
  return kExitDone;
}

}  // namespace tlx
