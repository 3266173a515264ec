#include "trust/protected_folder.h"

#include "files/delete_tree.h"
#include "files/path_text.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/private_folder.h"
#include "platform/process.h"
#include "support/format.h"
#include "trace/trace.h"
#include "trust/locations.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

constexpr cvn::StringView kPatchesFolder = u"customPatches";

// What lies outside the base has no path below it.
constexpr platform::Code kNoRelativePath = platform::kBadPathName;

// What stands in the way of the folder itself.
cvn::String ObstacleOf(platform::Code code) {
  switch (code) {
    case files::kIsLink:
      return u"the folder customPatches in the install folder is a link; remove it";
    case files::kForeignPlace:
      return u"the folder customPatches in the install folder belongs to another account; remove "
             u"it";
    case files::kNotPrivate:
      return u"other accounts can change what lies in the install folder, and the host has no "
             u"private folder; mount the volume with permissions, or let TMPDIR name a folder of "
             u"this account";
    default:
      return cvn::Format(u"no folder for the files could be made in the install folder (error %d)",
                         code);
  }
}

// Takes the files of one catalog over. A file is opened once and copied from there, and then the
// very file that was written is verified: what the script gets is what was hashed, even when
// another account writes to the original meanwhile, or puts another file in its place.
class Transfer {
 public:
  // Without a target the files are verified, and stay where they are.
  Transfer(PatchFolder* source, files::PrivateFolder* target, cvn::String* obstacle)
      : source_(*source), target_(target), obstacle_(*obstacle) {}

  // False when the file isn't what the catalog says, and the patch is to be refused.
  bool Take(const CatalogEntry& entry);
  std::size_t CopiedCount() const { return copied_; }

 private:
  // What became of the attempt to copy a file. Nothing is told of it before the file is verified.
  struct Copy {
    cvn::String place;  // below the folder; empty when it has none there
    platform::Code noFolder = platform::kSuccess;
    platform::Code notCopied = platform::kSuccess;
    files::File file;
  };

  Copy MakeCopy(const CatalogEntry& entry, const files::File& original);
  void Tell(const Copy& copy);
  void TellObstacle(cvn::StringView place, platform::Code code);

  PatchFolder& source_;
  files::PrivateFolder* const target_;
  cvn::String& obstacle_;
  std::size_t copied_ = 0;
};

bool Transfer::Take(const CatalogEntry& entry) {
  TraceLine(u"Checking file: [%s]", entry.path);
  files::File original;
  FileState state = source_.Open(entry, &original);
  if (state == FileState::Genuine) {
    Copy copy = MakeCopy(entry, original);
    state = source_.Compare(copy.file.IsOpen() ? &copy.file : &original, entry);
    if (state == FileState::Genuine) {
      Tell(copy);
      return true;
    }
  }
  TraceLine(u"%s", WordsFor(state));
  return false;
}

Transfer::Copy Transfer::MakeCopy(const CatalogEntry& entry, const files::File& original) {
  Copy copy;
  copy.place = PlaceInFolder(entry);
  if (copy.place.Empty() || target_ == nullptr) {
    return copy;
  }
  copy.noFolder = target_->MakeFoldersFor(copy.place);
  if (copy.noFolder == platform::kSuccess) {
    copy.notCopied = target_->Copy(original, copy.place, &copy.file);
  }
  return copy;
}

void Transfer::Tell(const Copy& copy) {
  if (copy.place.Empty()) {
    TraceLine(u"Could not extract file relative path: [%d]", kNoRelativePath);
    return;
  }
  if (target_ == nullptr) {
    return;
  }
  cvn::String folder = JoinPath(ProtectedFolderPath(), copy.place);
  paths::RemoveFileSpec(&folder);
  TraceLine(u"Copying file to protected folder: [%s]", folder);
  if (copy.noFolder != platform::kSuccess) {
    TraceLine(
        u"Aborting copy. Could not create recursive folder structure into protected folder: [%d]",
        copy.noFolder);
    TellObstacle(copy.place, copy.noFolder);
  } else if (copy.notCopied != platform::kSuccess) {
    TraceLine(u"Aborting copy. Could not copy file to protected folder: [%d]", copy.notCopied);
    TellObstacle(copy.place, copy.notCopied);
  } else {
    ++copied_;
  }
}

void Transfer::TellObstacle(cvn::StringView place, platform::Code code) {
  obstacle_ =
      cvn::Format(u"'%s' could not be copied to the protected folder (error %d)", place, code);
}

// Held until the process ends, so that no other run takes it for one that was left behind.
files::PrivateFolder& ThisRunsFolder() {
  static files::PrivateFolder folder;
  return folder;
}

void RemoveAbandoned(cvn::StringView patches) {
  for (const cvn::String& folder : files::PrivateFolder::FindAbandoned(patches)) {
    const platform::Code code = DeleteTree(folder, true, DeleteFallbacks());
    TraceLine(u"Removed the protected folder of a run that was broken off: [%s] [%d]", folder,
              code);
  }
}

}  // namespace

cvn::String& ProtectedFolderPath() {
  static cvn::String path;
  return path;
}

std::int32_t PrepareProtectedFolder(files::PrivateFolder* folder, cvn::String* obstacle) {
  const cvn::String install = GetInstallPath();
  if (install.Empty()) {
    return kNoInstallFolder;
  }
  const cvn::String patches = JoinPath(install, kPatchesFolder);
  platform::Code code = files::PrivateFolder::MakePlace(patches);
  if (code != platform::kSuccess) {
    TraceLine(u"Failed creating protected folder: [%d]", code);
    *obstacle = ObstacleOf(code);
    return kNotAllCopied;
  }
  RemoveAbandoned(patches);
  const std::int64_t seconds = platform::clock::NowTicks() / platform::clock::kTicksPerSecond;
  const cvn::String name = cvn::Format(u"%d-%d", seconds, platform::process::CurrentId());
  code = folder->Make(patches, name);
  if (code != platform::kSuccess) {
    TraceLine(u"Failed creating protected folder for custom patch: [%d]", code);
    *obstacle = ObstacleOf(code);
    return kNotAllCopied;
  }
  ProtectedFolderPath() = JoinPath(patches, name);
  if (const cvn::String path = folder->PathOnHost(); !path.Empty()) {
    TraceLine(
        u"Other accounts can change what lies in the install folder, so it is on the host: [%s]",
        path);
  }
  TraceLine(u"Protected folder for custom patch is ready for use: [%s]", ProtectedFolderPath());
  return kFilesCopied;
}

std::int32_t FindProtectedFolderObstacle(cvn::String* obstacle) {
  const cvn::String install = GetInstallPath();
  if (install.Empty()) {
    return kNoInstallFolder;
  }
  const platform::Code code = files::PrivateFolder::CheckPlace(JoinPath(install, kPatchesFolder));
  if (code != platform::kSuccess) {
    *obstacle = ObstacleOf(code);
    return kNotAllCopied;
  }
  return kFilesCopied;
}

std::int32_t CopyToProtectedFolder(const cvn::List<CatalogEntry>& entries, std::size_t own,
                                   PatchFolder* patchFolder, cvn::String* obstacle) {
  obstacle->Clear();
  ThisRunsFolder() = files::PrivateFolder();
  // Without the folder the files are still verified.
  const bool isPrepared = PrepareProtectedFolder(&ThisRunsFolder(), obstacle) == kFilesCopied;
  TraceLine(
      u"Checking and copying patch files (registered in the digital catalog) to protected "
      u"folder...");
  const bool copies = isPrepared && ProtectedFolderPath() != GetInstallPath();
  Transfer transfer(patchFolder, copies ? &ThisRunsFolder() : nullptr, obstacle);
  for (std::size_t number = 0; number < entries.size(); ++number) {
    if (number != own && !transfer.Take(entries[number])) {
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
