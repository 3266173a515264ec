#include "trust/protected_folder.h"

#include <algorithm>
#include <optional>

#include "files/delete_tree.h"
#include "files/path_text.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/held_file.h"
#include "platform/paths.h"
#include "platform/private_file.h"
#include "platform/process.h"
#include "support/format.h"
#include "trace/trace.h"
#include "trust/locations.h"
#include "trust/path_key.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

constexpr cvn::StringView kPatchesFolder = u"customPatches";
constexpr cvn::StringView kSeparators = u"\\/";

// What lies outside the base has no path below it.
constexpr platform::Code kNoRelativePath = platform::kBadPathName;

// What `path` has behind `base`, with "." and ".." worked in; nothing when it lies outside.
std::optional<cvn::String> RelativePath(cvn::StringView path, cvn::StringView base) {
  if (!path.starts_with(base)) {
    return std::nullopt;
  }
  path.remove_prefix(base.size());
  cvn::List<cvn::StringView> names;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(kSeparators), path.size());
    const cvn::StringView name = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (name == u"..") {
      if (names.empty()) {
        return std::nullopt;
      }
      names.pop_back();
    } else if (!name.empty() && name != u".") {
      names.push_back(name);
    }
  }
  cvn::String relative;
  for (const cvn::StringView name : names) {
    AppendName(&relative, name);
  }
  return relative.Empty() ? std::nullopt : std::optional(relative);
}

// Takes the files of one catalog over. A file is opened once and copied from there, and then the
// copy is verified: what the script gets is what was hashed, even when another account writes to
// the original meanwhile, or puts another file in its place.
class Transfer {
 public:
  Transfer(cvn::StringView base, bool copies) : base_(base), copies_(copies) {
    BindCatalogFunctions(&functions_);
  }

  // False when the file isn't what the catalog says, and the patch is to be refused.
  bool Take(const CatalogEntry& entry);
  std::size_t CopiedCount() const { return copied_; }

 private:
  // What became of the attempt to copy a file. Nothing is told of it before the file is verified.
  struct Copy {
    platform::Code noRelativePath = platform::kSuccess;
    platform::Code noFolder = platform::kSuccess;
    platform::Code notCopied = platform::kSuccess;
    cvn::String folder;
    cvn::String target;  // empty when there is no copy
  };

  Copy MakeCopy(const CatalogEntry& entry, const cvn::String& original);
  platform::Code EnsureFolder(const cvn::String& folder);
  bool IsGenuine(cvn::StringView path, const CatalogEntry& entry) const;
  void Tell(const Copy& copy);

  const cvn::StringView base_;
  const bool copies_;
  CatalogFunctions functions_;
  cvn::String madeFolder_;  // the last one
  std::size_t copied_ = 0;
};

bool Transfer::Take(const CatalogEntry& entry) {
  TraceLine(u"Checking file: [%s]", entry.path);
  if (!paths::Exists(entry.path)) {
    TraceLine(u"File not found!");
    return false;
  }
  files::File hold;
  if (files::Open(entry.path, files::Access::Read, files::Share::Read,
                  files::Disposition::OpenExisting, &hold) != platform::kSuccess) {
    TraceLine(u"Could not calculate hash on file!");
    return false;
  }
  const cvn::String original = files::PathOfOpenFile(hold, entry.path);
  const Copy copy = MakeCopy(entry, original);
  if (!IsGenuine(copy.target.Empty() ? original : copy.target, entry)) {
    if (!copy.target.Empty()) {
      // The run is refused whether the copy goes or stays.
      platform::IgnoreError(files::Delete(copy.target));
    }
    return false;
  }
  Tell(copy);
  return true;
}

Transfer::Copy Transfer::MakeCopy(const CatalogEntry& entry, const cvn::String& original) {
  Copy copy;
  const std::optional<cvn::String> relative = RelativePath(entry.path, base_);
  if (!relative) {
    copy.noRelativePath = kNoRelativePath;
    return copy;
  }
  if (!copies_) {
    return copy;
  }
  const cvn::String target = JoinPath(ProtectedFolderPath(), *relative);
  copy.folder = target;
  paths::RemoveFileSpec(&copy.folder);
  copy.noFolder = EnsureFolder(copy.folder);
  if (copy.noFolder == platform::kSuccess) {
    copy.notCopied = files::Copy(original, target, false);
    copy.target = copy.notCopied == platform::kSuccess ? target : cvn::String();
  }
  return copy;
}

platform::Code Transfer::EnsureFolder(const cvn::String& folder) {
  if (folder == madeFolder_) {
    return platform::kSuccess;
  }
  const platform::Code code = files::CreateDirectoryRecursive(folder);
  if (code == platform::kSuccess) {
    madeFolder_ = folder;
  }
  return code;
}

bool Transfer::IsGenuine(cvn::StringView path, const CatalogEntry& entry) const {
  cvn::String hash;
  if (CalcFileHash(functions_, path, &hash) != platform::kSuccess) {
    TraceLine(u"Could not calculate hash on file!");
    return false;
  }
  if (hash != entry.hash) {
    TraceLine(u"Hash not matching!");
    return false;
  }
  return true;
}

void Transfer::Tell(const Copy& copy) {
  if (copy.noRelativePath != platform::kSuccess) {
    TraceLine(u"Could not extract file relative path: [%d]", copy.noRelativePath);
    return;
  }
  if (!copies_) {
    return;
  }
  TraceLine(u"Copying file to protected folder: [%s]", copy.folder);
  if (copy.noFolder != platform::kSuccess) {
    TraceLine(
        u"Aborting copy. Could not create recursive folder structure into protected folder: [%d]",
        copy.noFolder);
  } else if (copy.notCopied != platform::kSuccess) {
    TraceLine(u"Aborting copy. Could not copy file to protected folder: [%d]", copy.notCopied);
  } else {
    ++copied_;
  }
}

}  // namespace

cvn::String& ProtectedFolderPath() {
  static cvn::String path;
  return path;
}

std::int32_t PrepareProtectedFolder() {
  const cvn::String install = GetInstallPath();
  if (install.Empty()) {
    return kNoInstallFolder;
  }
  const cvn::String patches = JoinPath(install, kPatchesFolder);
  platform::Code code = files::CreatePrivateDirectory(patches);
  if (code != platform::kSuccess && code != platform::kAlreadyExists) {
    TraceLine(u"Failed creating protected folder: [%d]", code);
    return kNotAllCopied;
  }
  const std::int64_t seconds = platform::clock::NowTicks() / platform::clock::kTicksPerSecond;
  const cvn::String folder =
      JoinPath(patches, cvn::Format(u"%d-%d", seconds, platform::process::CurrentId()));
  code = files::CreatePrivateDirectory(folder);
  if (code != platform::kSuccess) {
    TraceLine(u"Failed creating protected folder for custom patch: [%d]", code);
    return kNotAllCopied;
  }
  ProtectedFolderPath() = folder;
  TraceLine(u"Protected folder for custom patch is ready for use: [%s]", folder);
  return kFilesCopied;
}

std::int32_t CopyToProtectedFolder(const cvn::List<CatalogEntry>& entries,
                                   cvn::StringView patchPath) {
  cvn::String base = GetParentFolder(patchPath);
  LowerCase(&base);
  cvn::String patch = patchPath;
  LowerCase(&patch);
  // Without the folder the files are still verified.
  const bool isPrepared = PrepareProtectedFolder() == kFilesCopied;
  TraceLine(
      u"Checking and copying patch files (registered in the digital catalog) to protected "
      u"folder...");
  Transfer transfer(base, isPrepared && ProtectedFolderPath() != GetInstallPath());
  for (const CatalogEntry& entry : entries) {
    if (entry.path != patch && !transfer.Take(entry)) {
      return kInvolvedFileMismatch;
    }
  }
  // The patch file, which is listed, isn't copied.
  if (transfer.CopiedCount() + 1 != entries.size()) {
    TraceLine(u"Could not copy all patch files to protected folder!");
    return kNotAllCopied;
  }
  return kFilesCopied;
}

void CleanupProtectedFolder() {
  const cvn::String folder = ProtectedFolderPath();
  if (folder.Empty() || folder == GetInstallPath()) {
    return;
  }
  TraceLine(u"Cleaning up the patch files from the protected folder...");
  platform::Code code = DeleteTree(folder, true, DeleteFallbacks());
  if (code == platform::kSuccess && paths::Exists(folder)) {
    code = platform::LastError();
  }
  if (code != platform::kSuccess) {
    TraceLine(u"Could not remove the protected folder for custom patches: [%d]", code);
    return;
  }
  ProtectedFolderPath().Clear();
  TraceLine(u"Protected folder for custom patches removed");
}

}  // namespace tessel
