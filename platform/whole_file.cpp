#include "platform/whole_file.h"

#include <span>

#include "platform/draft.h"
#include "platform/error.h"
#include "platform/overwrite.h"
#include "platform/private_file.h"

namespace platform {

Code ReadWholeFile(cvn::StringView path, std::string* bytes) {
  files::File file;
  const Code code = files::Open(path, files::Access::Read, files::Share::Read,
                                files::Disposition::OpenExisting, &file);
  return code == kSuccess ? ReadWholeFile(&file, bytes) : code;
}

Code ReadWholeFile(files::File* file, std::string* bytes) {
  std::uint64_t size = 0;
  Code code = file->Size(&size);
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
    code = file->Read(std::as_writable_bytes(std::span(*bytes)).subspan(used), &count);
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
    : path_(path), temporaryPath_(files::DraftPathFor(path)) {}

OutputFile::~OutputFile() {
  if (!hasTemporary_) {
    return;
  }
  // What failed before has been told; a temporary file that stays is only in the way. It may have
  // taken over that the file is read-only.
  const Code lastError = LastError();
  if (files::Delete(temporaryPath_) != kSuccess) {
    IgnoreError(files::SetAttributes(temporaryPath_, files::kNormal));
    if (files::Delete(temporaryPath_) != kSuccess) {
      IgnoreError(files::DeleteAtReboot(temporaryPath_));  // another program has it open
    }
  }
  SetLastError(lastError);
}

Code OutputFile::Write(std::string_view bytes, Readers readers) {
  return WriteBy(
      [bytes](files::File* file) { return file->Write(std::as_bytes(std::span(bytes))); }, readers);
}

Code OutputFile::WriteBy(const std::function<Code(files::File*)>& write, Readers readers) {
  readers_ = readers;
  files::RemoveAbandonedDrafts(temporaryPath_);
  files::File file;
  Code code = readers == Readers::OwnerOnly
                  ? files::CreatePrivate(temporaryPath_, &file)
                  : files::Open(temporaryPath_, files::Access::Write, files::Share::None,
                                files::Disposition::CreateNew, &file);
  hasTemporary_ = file.IsOpen();
  if (code == kSuccess) {
    code = files::ClaimDraft(temporaryPath_, &claim_);
  }
  if (code == kSuccess) {
    code = write(&file);
  }
  if (code == kSuccess) {
    code = file.Flush();
  }
  return code;
}

Code OutputFile::Commit() {
  if (readers_ == Readers::Anybody && files::HasOtherNames(path_)) {
    return WriteOver();
  }
  const Code lastError = LastError();
  const Code code = readers_ == Readers::OwnerOnly ? files::Replace(temporaryPath_, path_)
                                                   : files::TakePlace(temporaryPath_, path_);
  if (code == kCantAccessFile) {
    SetLastError(lastError);
    return WriteOver();
  }
  if (code == kSuccess) {
    hasTemporary_ = false;
  }
  return code;
}

// The file stays the same one, with all its names and whatever it has beside its content.
Code OutputFile::WriteOver() {
  files::File from;
  files::File to;
  Code code = files::Open(temporaryPath_, files::Access::Read, files::Share::Read,
                          files::Disposition::OpenExisting, &from);
  if (code == kSuccess) {
    code = files::Open(path_, files::Access::ReadWrite, files::Share::None,
                       files::Disposition::OpenExisting, &to);
  }
  return code == kSuccess ? OverwriteContent(&from, &to) : code;
}

}  // namespace platform
