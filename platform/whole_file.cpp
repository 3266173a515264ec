#include "platform/whole_file.h"

#include <span>

#include "platform/private_file.h"
#include "platform/random.h"
#include "support/format.h"

namespace platform {

Code ReadWholeFile(cvn::StringView path, std::string* bytes) {
  files::File file;
  Code code = files::Open(path, files::Access::Read, files::Share::Read,
                          files::Disposition::OpenExisting, &file);
  std::uint64_t size = 0;
  if (code == kSuccess) {
    code = file.Size(&size);
  }
  if (code == kSuccess && size > kLargestWholeFile) {
    code = kFileTooLarge;
  }
  if (code != kSuccess) {
    return code;
  }
  // The end of the file decides, not its size: a pipe has none.
  bytes->resize(static_cast<std::size_t>(size) + 1);
  std::size_t used = 0;
  for (;;) {
    std::size_t count = 0;
    code = file.Read(std::as_writable_bytes(std::span(*bytes)).subspan(used), &count);
    if (code != kSuccess || count == 0) {
      break;
    }
    used += count;
    if (used > kLargestWholeFile) {
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
    : path_(path), temporaryPath_(cvn::Format(u"%s.%08x.tmp", path, SecureRandom32())) {}

OutputFile::~OutputFile() {
  if (hasTemporary_) {
    files::Delete(temporaryPath_);
  }
}

Code OutputFile::Write(std::string_view bytes, Readers readers) {
  readers_ = readers;
  files::File file;
  Code code = readers == Readers::OwnerOnly
                  ? files::CreatePrivate(temporaryPath_, &file)
                  : files::Open(temporaryPath_, files::Access::Write, files::Share::None,
                                files::Disposition::CreateNew, &file);
  hasTemporary_ = file.IsOpen();
  if (code == kSuccess) {
    code = file.Write(std::as_bytes(std::span(bytes)));
  }
  if (code == kSuccess) {
    code = file.Flush();
  }
  return code;
}

Code OutputFile::Commit() {
  const Code code = readers_ == Readers::OwnerOnly ? files::Replace(temporaryPath_, path_)
                                                   : files::TakePlace(temporaryPath_, path_);
  if (code == kSuccess) {
    hasTemporary_ = false;
  }
  return code;
}

}  // namespace platform
