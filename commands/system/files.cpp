#include "commands/system/files.h"

#include <algorithm>

#include "engine/variable_store.h"
#include "files/listing.h"
#include "files/path_text.h"
#include "platform/download.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "trace/trace.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

cvn::String WithBackslashes(cvn::StringView text) {
  cvn::String path;
  path.Reserve(text.size());
  for (const char16_t c : text) {
    path.Append(c == u'/' ? u'\\' : c);
  }
  return path;
}

cvn::String FolderOf(cvn::String path) {
  paths::RemoveFileSpec(&path);
  return path;
}

bool HasWriteTime(cvn::StringView path, std::uint64_t time) {
  const Listing found(path);
  return found.HasEntry() && found.Entry().LastWriteTime() == time;
}

bool HaveSameWriteTime(cvn::StringView left, cvn::StringView right) {
  const Listing found(left);
  return found.HasEntry() && HasWriteTime(right, found.Entry().LastWriteTime());
}

// The code in a failed HRESULT. One without a code counts as success.
platform::Code CodeOf(std::int32_t result) {
  return result < 0 ? static_cast<std::uint32_t>(result) & 0xFFFF : platform::kSuccess;
}

}  // namespace

bool FunctionFileExists::Parse() { return ReadNonEmpty(u"path", &path_); }

void FunctionFileExists::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"fileExists function called for %s", path);
  result = paths::Exists(path) && !paths::IsDirectory(path);
  TraceEnd(u"fileExists");
}

bool FunctionFileCopySingle::Parse() {
  if (!ReadNonEmpty(u"src", &src_) || !ReadNonEmpty(u"dest", &dest_)) {
    return false;
  }
  ReadFlag(u"failIfExists", &failIfExists_);
  ReadFlag(u"diffLWTOnly", &diffLWTOnly_);
  return true;
}

void FunctionFileCopySingle::Execute() {
  const cvn::String src = ExpandVariables(src_, variables);
  const cvn::String dest = ExpandVariables(dest_, variables);
  TraceLine(u"fileCopySingle from '%s' to '%s'. FailIfExists: %d", src, dest, failIfExists_);
  if (!failIfExists_ && diffLWTOnly_ && HaveSameWriteTime(src, dest)) {
    TraceLine(u"File '%s' skipped due to the same LWT", src);
  } else {
    ReportCode(files::Copy(src, dest, failIfExists_));
  }
  TraceEnd(u"fileCopySingle");
}

bool FunctionFileDownload::Parse() {
  return ReadNonEmpty(u"file", &file_) && ReadNonEmpty(u"url", &url_);
}

void FunctionFileDownload::Execute() {
  const cvn::String file = ExpandVariables(file_, variables);
  const cvn::String url = ExpandVariables(url_, variables);
  TraceLine(u"fileDownload from '%s' to '%s'.", url, file);
  ReportCode(CodeOf(platform::DownloadToFile(url, file)));
  TraceEnd(u"fileCopySingle");
}

bool FunctionFileMoveSingle::Parse() {
  if (!ReadNonEmpty(u"src", &src_) || !ReadNonEmpty(u"dest", &dest_)) {
    return false;
  }
  ReadFlag(u"failIfExists", &failIfExists_);
  ReadFlag(u"afterReboot", &afterReboot_);
  return true;
}

void FunctionFileMoveSingle::Execute() {
  const cvn::String src = ExpandVariables(src_, variables);
  const cvn::String dest = ExpandVariables(dest_, variables);
  TraceLine(u"%s from '%s' to '%s'. FailIfExists: %d. After reboot:%d", name, src, dest,
            failIfExists_, afterReboot_);
  ReportCode(Move(src, dest));
  TraceEnd(name);
}

platform::Code FunctionFileMoveSingle::Move(cvn::StringView src, cvn::StringView dest) const {
  if (!paths::Exists(src)) {
    return platform::kNotFound;
  }
  const bool isFile = !paths::IsDirectory(src);
  const bool isSameRoot = paths::IsSameRoot(src, dest);
  if (!isFile && !isSameRoot) {
    return platform::kNotSameDevice;
  }
  std::uint32_t flags = afterReboot_ ? files::kMoveDelayUntilReboot : files::kMoveWriteThrough;
  if (!afterReboot_ && isFile && !isSameRoot) {
    flags |= files::kMoveCopyAllowed;
  }
  if (isFile && !failIfExists_) {
    flags |= files::kMoveReplaceExisting;
  }
  return files::Move(src, dest, flags);
}

bool FunctionFileCopyPattern::Parse() {
  if (!ReadNonEmpty(u"src", &src_) || !ReadNonEmpty(u"dest", &dest_)) {
    return false;
  }
  ReadFlag(u"failIfExists", &failIfExists_);
  ReadFlag(u"ignoreErrors", &ignoreErrors_);
  ReadFlag(u"diffLWTOnly", &diffLWTOnly_);
  return true;
}

void FunctionFileCopyPattern::Execute() {
  const cvn::String src = WithBackslashes(ExpandVariables(src_, variables));
  const cvn::String dest = ExpandVariables(dest_, variables);
  TraceLine(u"fileCopyPattern from '%s' to '%s'. FailIfExists: %d. SkipErrors: %d", src, dest,
            failIfExists_, ignoreErrors_);
  ReportCode(paths::Exists(dest) ? CopyMatches(src, dest) : platform::kPathNotFound);
  TraceEnd(u"fileCopyPattern");
}

platform::Code FunctionFileCopyPattern::CopyMatches(const cvn::String& src,
                                                    cvn::StringView dest) const {
  Listing list(src);
  if (!list.HasEntry()) {
    return list.Status();
  }
  const cvn::String folder = FolderOf(src);
  platform::Code first = platform::kSuccess;
  for (; list.HasEntry() && (first == platform::kSuccess || ignoreErrors_); list.Advance()) {
    if (!list.Entry().IsDirectory()) {
      const platform::Code code = CopyMatch(list.Entry(), folder, dest);
      first = first == platform::kSuccess ? code : first;
    }
  }
  return first;
}

platform::Code FunctionFileCopyPattern::CopyMatch(const files::SearchEntry& entry,
                                                  cvn::StringView folder,
                                                  cvn::StringView dest) const {
  const cvn::String source = JoinPath(folder, entry.Name());
  const cvn::String target = JoinPath(dest, entry.Name());
  if (!failIfExists_ && diffLWTOnly_ && HasWriteTime(target, entry.LastWriteTime())) {
    TraceLine(u"File '%s' skipped due to the same LWT", source);
    return platform::kSuccess;
  }
  const platform::Code code = files::Copy(source, target, failIfExists_);
  if (code == platform::kSuccess) {
    TraceLine(u"File '%s' copied to '%s'", source, target);
  } else {
    TraceLine(u"Cannot copy '%s' to '%s'", source, target);
  }
  return code;
}

void FunctionFileDeletePattern::Execute() {
  const cvn::String path = WithBackslashes(ExpandVariables(path_, variables));
  TraceLine(u"fileDeletePattern from '%s'. SkipErrors: %d. AfterReboot: %d", path, ignoreErrors_,
            afterRebootIfFails_);
  ReportCode(DeleteMatches(path));
  TraceEnd(u"fileDeletePattern");
}

platform::Code FunctionFileDeletePattern::DeleteMatches(const cvn::String& path) const {
  Listing list(path);
  if (!list.HasEntry()) {
    return list.Status() == platform::kFileNotFound ? platform::kSuccess : list.Status();
  }
  const cvn::String folder = FolderOf(path);
  platform::Code first = platform::kSuccess;
  for (; list.HasEntry() && (first == platform::kSuccess || ignoreErrors_); list.Advance()) {
    const platform::Code code = DeleteFileWithFallback(folder, list.Entry(), Fallbacks());
    if (code != platform::kSuccess) {
      first = first == platform::kSuccess ? code : first;
      TraceLine(u"Cannot delete '%s\\%s'. Error %d", folder, list.Entry().Name(), code);
    }
  }
  return first;
}

bool FunctionFileCreate::Parse() { return ReadNonEmpty(u"path", &path_); }

void FunctionFileCreate::Execute() {
  files::File file;
  ReportCode(files::Open(ExpandVariables(path_, variables), files::Access::All, files::Share::None,
                         files::Disposition::CreateNew, &file));
  TraceEnd(u"fileCreate");
}

void FunctionFileFind::Execute() {
  const cvn::String dir = ExpandVariables(dir_, variables);
  const cvn::String pattern = ExpandVariables(pattern_, variables);
  TraceLine(u"fileFind from '%s\\%s' (depth %d)", dir, pattern, depth_);
  // Any attribute but that one: a folder with another attribute is found too.
  Find(dir, pattern, ~files::kDirectory);
  TraceEnd(u"fileDeletePattern");
}

}  // namespace tessel
