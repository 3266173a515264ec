// Commands on single files and on the files that a pattern matches.
#include "platform/files.h"
#include "commands/common/families.h"
#include "commands/system/file_helpers.h"
#include "commands/system/move.h"
#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "files/listing.h"
#include "files/path_text.h"
#include "platform/download.h"
#include "platform/paths.h"
#include "trace/trace.h"
#include "trust/digital_signature.h"
#include "trust/path_key.h"

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

struct FunctionFileExists : FunctionRetBool {
  void Execute() override {
    const cvn::String file = ExpandVariables(path, variables);
    TraceLine(u"fileExists function called for %s", file);
    result = paths::Exists(file) && !paths::IsDirectory(file);
    TraceEnd(u"fileExists");
  }

  cvn::String path;
};

constexpr AttributeDescription kFileExistsAttributes[] = {
    Naming(
        Expanded<&FunctionFileExists::path>(u"path", Presence::NonEmpty, u"The file to look for."),
        Subject::File, Use::Read),
};

constexpr CommandDescription kFileExists = {
    .purpose = u"Tells whether a path is that of a file. A folder isn't one.",
    .attributes = kFileExistsAttributes,
    .notes = u"Whatever keeps the path from being looked at makes the answer a no.",
};

struct FunctionFileCreate : FunctionRetError {
  void Execute() override {
    files::File file;
    ReportCode(files::Open(ExpandVariables(path, variables), files::Access::All, files::Share::None,
                           files::Disposition::CreateNew, &file));
    TraceEnd(u"fileCreate");
  }

  cvn::String path;
};

constexpr AttributeDescription kFileCreateAttributes[] = {
    Naming(Expanded<&FunctionFileCreate::path>(u"path", Presence::NonEmpty,
                                               u"The file to make. Its folder must be there."),
           Subject::File, Use::Create),
};

constexpr FailureDescription kFileCreateFailures[] = {
    {u"3", u"the folder is missing"},
    {u"5", u"access is denied, or there is a folder of that name"},
    {u"80", u"there is a file of that name"},
    {u"", u"any other code of the system"},
};

constexpr CommandDescription kFileCreate = {
    .purpose = u"Makes an empty file.",
    .attributes = kFileCreateAttributes,
    .failures = kFileCreateFailures,
};

struct FunctionFileCopySingle : FunctionWithCopy {
  void Execute() override;
};

void FunctionFileCopySingle::Execute() {
  const cvn::String from = ExpandVariables(src, variables);
  const cvn::String to = ExpandVariables(dest, variables);
  TraceLine(u"fileCopySingle from '%s' to '%s'. FailIfExists: %d", from, to, failIfExists);
  if (!failIfExists && diffLWTOnly && HaveSameWriteTime(from, to)) {
    TraceLine(u"File '%s' skipped due to the same LWT", from);
  } else {
    ReportCode(files::Copy(from, to, failIfExists));
  }
  TraceEnd(u"fileCopySingle");
}

constexpr AttributeDescription kFileCopySingleAttributes[] = {
    Naming(Expanded<&FunctionFileCopySingle::src>(u"src", Presence::NonEmpty, u"The file to copy."),
           Subject::File, Use::Read),
    Naming(Expanded<&FunctionFileCopySingle::dest>(
               u"dest", Presence::NonEmpty,
               u"The copy's path, with its name. Its folder must be there."),
           Subject::File, Use::Change),
    kFailIfExists,
    kDiffLWTOnly,
};

constexpr FailureDescription kFileCopySingleFailures[] = {
    {u"2", u"there is no file at `src`"},
    {u"3", u"a folder of `src` or `dest` is missing"},
    {u"5", u"access is denied, `dest` is read-only, or one of the two is a folder"},
    {u"32", u"another program uses the file"},
    {u"80", u"`dest` is there, and `failIfExists` is on"},
    {u"112", u"the disk is full"},
    {u"", u"any other code of the system"},
};

constexpr CommandDescription kFileCopySingle = {
    .purpose = u"Copies one file.",
    .attributes = kFileCopySingleAttributes,
    .failures = kFileCopySingleFailures,
    .notes =
        u"With `diffLWTOnly` only equal times count: an older file replaces a newer one. "
        u"When `dest` is missing, the file is always copied.",
};

struct FunctionFileCopyPattern : FunctionWithCopy {
  void Execute() override;
  // Both give the code of the first failure.
  platform::Code CopyMatches(const cvn::String& from, cvn::StringView to) const;
  platform::Code CopyMatch(const files::SearchEntry& entry, cvn::StringView folder,
                           cvn::StringView to) const;
};

void FunctionFileCopyPattern::Execute() {
  const cvn::String from = WithBackslashes(ExpandVariables(src, variables));
  const cvn::String to = ExpandVariables(dest, variables);
  TraceLine(u"fileCopyPattern from '%s' to '%s'. FailIfExists: %d. SkipErrors: %d", from, to,
            failIfExists, ignoreErrors);
  ReportCode(paths::Exists(to) ? CopyMatches(from, to) : platform::kPathNotFound);
  TraceEnd(u"fileCopyPattern");
}

platform::Code FunctionFileCopyPattern::CopyMatches(const cvn::String& from,
                                                    cvn::StringView to) const {
  Listing list(from);
  if (!list.HasEntry()) {
    return list.Status();
  }
  const cvn::String folder = FolderOf(from);
  platform::Code first = platform::kSuccess;
  for (; list.HasEntry() && (first == platform::kSuccess || ignoreErrors); list.Advance()) {
    if (!list.Entry().IsDirectory()) {
      const platform::Code code = CopyMatch(list.Entry(), folder, to);
      first = first == platform::kSuccess ? code : first;
    }
  }
  return first;
}

platform::Code FunctionFileCopyPattern::CopyMatch(const files::SearchEntry& entry,
                                                  cvn::StringView folder,
                                                  cvn::StringView to) const {
  const cvn::String source = JoinPath(folder, entry.Name());
  const cvn::String target = JoinPath(to, entry.Name());
  if (!failIfExists && diffLWTOnly && HasWriteTime(target, entry.LastWriteTime())) {
    TraceLine(u"File '%s' skipped due to the same LWT", source);
    return platform::kSuccess;
  }
  const platform::Code code = files::Copy(source, target, failIfExists);
  if (code == platform::kSuccess) {
    TraceLine(u"File '%s' copied to '%s'", source, target);
  } else {
    TraceLine(u"Cannot copy '%s' to '%s'", source, target);
  }
  return code;
}

constexpr AttributeDescription kFileCopyPatternAttributes[] = {
    Naming(Expanded<&FunctionFileCopyPattern::src>(
               u"src", Presence::NonEmpty,
               u"The files to copy: a path whose name may have the "
               u"wildcards `*` and `?`. Folders are left "
               u"out."),
           Subject::File, Use::Read),
    Naming(Expanded<&FunctionFileCopyPattern::dest>(
               u"dest", Presence::NonEmpty, u"The folder that they go to. It must be there."),
           Subject::Folder, Use::Change),
    kFailIfExists,
    kIgnoreErrors<FunctionFileCopyPattern>,
    kDiffLWTOnly,
};

constexpr FailureDescription kFileCopyPatternFailures[] = {
    {u"2", u"nothing matches `src`"},
    {u"3", u"`dest`, or the folder of `src`, is missing"},
    {u"5", u"access is denied, or a file at the target is read-only"},
    {u"32", u"another program uses a file"},
    {u"80", u"a file is at the target, and `failIfExists` is on"},
    {u"112", u"the disk is full"},
    {u"", u"any other code of the system"},
};

constexpr CommandDescription kFileCopyPattern = {
    .purpose = u"Copies the files that match into a folder.",
    .attributes = kFileCopyPatternAttributes,
    .failures = kFileCopyPatternFailures,
    .notes =
        u"That nothing matches is a failure here, unlike in `fileDeletePattern`. Slashes in "
        u"`src` count as backslashes.",
};

struct FunctionFileDeletePattern : FunctionWithDelete {
  void Execute() override;
  // Gives the code of the first failure.
  platform::Code DeleteMatches(const cvn::String& wanted) const;
};

void FunctionFileDeletePattern::Execute() {
  const cvn::String wanted = WithBackslashes(ExpandVariables(path, variables));
  TraceLine(u"fileDeletePattern from '%s'. SkipErrors: %d. AfterReboot: %d", wanted, ignoreErrors,
            afterRebootIfFails);
  ReportCode(DeleteMatches(wanted));
  TraceEnd(u"fileDeletePattern");
}

platform::Code FunctionFileDeletePattern::DeleteMatches(const cvn::String& wanted) const {
  Listing list(wanted);
  if (!list.HasEntry()) {
    return list.Status() == platform::kFileNotFound ? platform::kSuccess : list.Status();
  }
  const cvn::String folder = FolderOf(wanted);
  platform::Code first = platform::kSuccess;
  for (; list.HasEntry() && (first == platform::kSuccess || ignoreErrors); list.Advance()) {
    const platform::Code code = DeleteFileWithFallback(folder, list.Entry(), Fallbacks());
    if (code != platform::kSuccess) {
      first = first == platform::kSuccess ? code : first;
      TraceLine(u"Cannot delete '%s\\%s'. Error %d", folder, list.Entry().Name(), code);
    }
  }
  return first;
}

constexpr AttributeDescription kFileDeletePatternAttributes[] = {
    Naming(Expanded<&FunctionFileDeletePattern::path>(
               u"path", Presence::NonEmpty,
               u"The files to delete: a path whose name may have the wildcards `*` and `?`."),
           Subject::File, Use::Remove),
    kIgnoreErrors<FunctionFileDeletePattern>,
    kRenameIfFails,
    kAfterRebootIfFails,
};

constexpr FailureDescription kFileDeletePatternFailures[] = {
    {u"3", u"the folder of `path` is missing"},
    {u"5", u"access is denied, or a folder matches"},
    {u"32", u"another program uses a file"},
    {u"", u"any other code of the system"},
};

constexpr CommandDescription kFileDeletePattern = {
    .purpose = u"Deletes the files that match, read-only ones too.",
    .attributes = kFileDeletePatternAttributes,
    .failures = kFileDeletePatternFailures,
    .notes =
        u"That nothing matches is a success. A folder that matches fails with `5`, and so do "
        u"the entries `.` and `..` under the pattern `*`: give the pattern an ending, or "
        u"`ignoreErrors` and an `onerrorspec` for `5`. Slashes in `path` count as "
        u"backslashes.",
};

// The code in a failed HRESULT. One without a code counts as success.
platform::Code CodeOf(std::int32_t result) {
  return result < 0 ? platform::Code(static_cast<std::uint32_t>(result) & 0xFFFF)
                    : platform::kSuccess;
}

struct FunctionFileDownload : FunctionRetError {
  void Execute() override {
    const cvn::String target = ExpandVariables(file, variables);
    const cvn::String source = ExpandVariables(url, variables);
    TraceLine(u"fileDownload from '%s' to '%s'.", source, target);
    ReportCode(CodeOf(platform::DownloadToFile(source, target)));
    TraceEnd(u"fileCopySingle");
  }

  cvn::String file;
  cvn::String url;
};

constexpr AttributeDescription kFileDownloadAttributes[] = {
    Naming(Expanded<&FunctionFileDownload::file>(
               u"file", Presence::NonEmpty,
               u"Where the download goes. A file that is there is replaced, once all has arrived."),
           Subject::File, Use::Change),
    Naming(Expanded<&FunctionFileDownload::url>(u"url", Presence::NonEmpty,
                                                u"What to fetch: an http, https, ftp or file URL."),
           Subject::Url, Use::Read),
};

// Low halves of the Internet codes, and codes of the file.
constexpr FailureDescription kFileDownloadFailures[] = {
    {u"2", u"`url` isn't a URL"},
    {u"3", u"the folder of `file` is missing"},
    {u"4", u"the server refuses the connection"},
    {u"5", u"there is no such server, no such file at a file URL, or `file` can't be written"},
    {u"6", u"the server has no such file (404, 410)"},
    {u"7", u"the server gives no data (any other status from 400 on)"},
    {u"8", u"the transfer broke off"},
    {u"9", u"the server wants a login (401, 407)"},
    {u"11", u"the server fell silent, on Linux for a minute"},
    {u"13", u"the protocol is unknown"},
    {u"14", u"no safe connection came about"},
    {u"20", u"too many redirects, or one that may not be followed"},
    {u"25", u"the server's certificate isn't trusted"},
    {u"112", u"the disk is full"},
    {u"", u"any other code of the system, or the low half of an Internet one"},
};

constexpr CommandDescription kFileDownload = {
    .purpose = u"Fetches a file.",
    .attributes = kFileDownloadAttributes,
    .failures = kFileDownloadFailures,
    .notes =
        u"The error is the low half of the system's code, so an Internet code and a file's "
        u"can look alike. There is one attempt, and nothing checks what has arrived. In the "
        u"trace, the line that ends the command names `fileCopySingle`.",
};

struct FunctionFileFind : FunctionWithFind {
  void Execute() override {
    const cvn::String folder = ExpandVariables(dir, variables);
    const cvn::String wanted = ExpandVariables(pattern, variables);
    TraceLine(u"fileFind from '%s\\%s' (depth %d)", folder, wanted, depth);
    // Any attribute but that one: a folder with another attribute is found too.
    Find(folder, wanted, ~files::kDirectory);
    TraceEnd(u"fileDeletePattern");
  }
};

constexpr CommandDescription kFileFind = {
    .purpose = u"Lists the files that match, in a folder and below it.",
    .attributes = kFindAttributes<Subject::File>,
    .notes =
        u"Never fails: a folder that is missing has no files. A folder that has an attribute "
        u"besides being one (hidden, read-only and so on) counts as a file. Links to folders "
        u"are followed. In the trace, the line that ends the command names "
        u"`fileDeletePattern`.",
};

// Whether a file is signed at all, by a signature in it or by a catalog of the system.
struct FunctionFileIsSigned : FunctionRetBool {
  void Execute() override {
    const cvn::String file = TidyPath(ExpandVariables(path, variables));
    TraceLine(u"fileIsSigned function called for %s", file);
    result = IsFileSigned(file);
    TraceEnd(u"fileIsSigned");
  }

  cvn::String path;
};

constexpr AttributeDescription kFileIsSignedAttributes[] = {
    Naming(
        Expanded<&FunctionFileIsSigned::path>(u"path", Presence::NonEmpty, u"The file to look at."),
        Subject::File, Use::Read),
};

constexpr CommandDescription kFileIsSigned = {
    .purpose =
        u"Tells whether a file is signed: its content is as a valid signature says, one in "
        u"it or one of a catalog of the system.",
    .attributes = kFileIsSignedAttributes,
    .notes =
        u"Whose signature it is doesn't count. A file that is missing, or can't be read, isn't "
        u"signed.",
};

constexpr CommandRecord kCommands[] = {
    Command<FunctionFileExists>(u"fileExists", kFileExists),
    Command<FunctionFileCreate>(u"fileCreate", kFileCreate),
    Command<FunctionFileCopySingle>(u"fileCopySingle", kFileCopySingle),
    Command<FunctionFileCopyPattern>(u"fileCopyPattern", kFileCopyPattern),
    Command<FunctionMove>(u"fileMove", kMove),
    Command<FunctionFileDeletePattern>(u"fileDeletePattern", kFileDeletePattern),
    Command<FunctionFileDownload>(u"fileDownload", kFileDownload),
    Command<FunctionFileFind>(u"fileFind", kFileFind),
    Command<FunctionFileIsSigned>(u"fileIsSigned", kFileIsSigned),
};

}  // namespace

constinit const CommandFamily kFilesFamily = {
    .title = u"Files",
    .introduction =
        uR"md(
Slashes and backslashes both separate folders. Only a name may have wildcards, and those are the system's: `*` and `?`.
Where a command goes on after a failure (`ignoreErrors`), the first one is the one that is told.

`fileDownload` gives the low half of an Internet code. The codes here are those of Linux, after the documentation of
Windows, which itself gives what its urlmon makes of the cause.
)md",
    .commands = kCommands,
};

}  // namespace tessel
