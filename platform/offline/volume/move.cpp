#include "platform/offline/volume/volume.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/formats/names.h"
#include "platform/linux/atomic_file.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/linux/host_view.h"
#include "platform/linux/same_file.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/copy.h"
#include "platform/offline/volume/file_steps.h"
#include "platform/offline/volume/short_names.h"

namespace platform::posix {
namespace {

bool IsOneFolder(const HostPath& left, const HostPath& right) {
  struct stat leftFolder {};
  struct stat rightFolder {};
  return fstat(left.At().folder, &leftFolder) == 0 && fstat(right.At().folder, &rightFolder) == 0 &&
         IsSameFile(leftFolder, rightFolder);
}

// Whether a folder lists all of these names, spelled like that. Nothing when it can't be read.
std::optional<bool> AreListed(int folder, std::set<std::string_view> names) {
  const int error = ForEachEntry({folder, "."}, 0, [&names](const dirent& entry) {
    names.erase(entry.d_name);
    return !names.empty();
  });
  return error == 0 ? std::optional(names.empty()) : std::nullopt;
}

bool AreAlike(std::string_view left, std::string_view right) {
  std::u16string folds[2];
  AppendFolded(left, &folds[0]);
  AppendFolded(right, &folds[1]);
  return folds[0] == folds[1];
}

// A file system without regard to case finds one name by two spellings, of which it lists one. Some
// give each spelling an inode number of its own. Where the folder can't be read, two files aren't
// taken for one: the one would be written over without a question.
bool IsOnePlace(const HostPath& left, const HostPath& right) {
  const FileAt first = left.At();
  const FileAt second = right.At();
  if (!IsOneFolder(left, right)) {
    return false;
  }
  const bool isOneFile = IsSameFile(left.entry, right.entry);
  return std::string_view(first.name) == second.name ||
         ((isOneFile || AreAlike(first.name, second.name)) &&
          !AreListed(first.folder, {first.name, second.name}).value_or(!isOneFile));
}

// True when the host's path lies on the machine's drive. A drive is told by where the file is, and
// not by the spelling of its path.
bool IsOnMachine(const HostPath& place) { return ToMachinePath(place.spelling)[0] == u'C'; }

// Whether what stands in the target's place may give it up. A pipe or a device may not: its name
// would be a file's from then on, for all of the host. For a file that is open, [MS-FSCC] 2.4.41
// has STATUS_ACCESS_DENIED; only a copy finds that it may not be shared.
Code CheckTarget(const HostPath& source, const HostPath& target, bool replace) {
  if (!replace) {
    return kAlreadyExists;
  }
  const bool isFile = S_ISREG(target.entry.st_mode) || S_ISLNK(target.entry.st_mode);
  if (source.IsFolder() || target.IsFolder() || !isFile || IsReadOnly(target)) {
    return kAccessDenied;
  }
  const Code code = CheckUnused(target);
  const bool isRenamed = IsOnMachine(source) == IsOnMachine(target);
  return code == kSharingViolation && isRenamed ? kAccessDenied : code;
}

Code CheckSource(const HostPath& source) {
  return source.isRoot ? kAccessDenied : CheckUnused(source);
}

// Finds both ends of a move, and checks that the one may take the place of the other.
Code Locate(cvn::StringView from, cvn::StringView to, bool replace, HostPath* source,
            HostPath* target) {
  Code code = Resolve(from, source);
  if (code == kSuccess) {
    code = CheckSource(*source);
  }
  if (code != kSuccess) {
    return code;
  }
  code = Resolve(to, target);
  if (code == kFileNotFound) {
    return target->endsInSeparator && !source->IsFolder() ? kInvalidName : kSuccess;
  }
  return code == kSuccess && !IsOnePlace(*source, *target) ? CheckTarget(*source, *target, replace)
                                                           : code;
}

int RenameOver(FileAt from, FileAt to) {
  return renameat(from.folder, from.name, to.folder, to.name) == 0 ? 0 : errno;
}

// Gives a name another spelling. Where case doesn't count, the host may take the two for the same
// and do nothing: then the name gives way to another one first.
int Respell(FileAt from, FileAt to) {
  struct stat entry {};
  int error = RenameOver(from, to);
  if (error != 0 || std::string_view(from.name) == to.name ||
      fstatat(from.folder, from.name, &entry, AT_SYMLINK_NOFOLLOW) != 0 ||
      AreListed(to.folder, {to.name}).value_or(false)) {
    return error;
  }
  const std::string other = FreshName("moved");
  error = RenameToFree(from, {from.folder, other.c_str()});
  if (error == 0) {
    error = RenameToFree({from.folder, other.c_str()}, to);
    if (error != 0) {
      RenameToFree({from.folder, other.c_str()}, from);  // why it failed has been told
    }
  }
  return error;
}

// The target as the caller spells it: the name that what moves there gets. One that was found in
// another way than by its letters keeps the disk's spelling.
FileAt Spelled(const HostPath& target) {
  const FileAt found = target.At();
  return AreAlike(found.name, target.name) ? FileAt{found.folder, target.name.c_str()} : found;
}

int Unlink(FileAt file) { return unlinkat(file.folder, file.name, 0) == 0 ? 0 : errno; }

// Puts the source in the place of a file that is there. With its name for the moment spelled as
// before, so that at no time both are gone.
int TakePlaceOf(const HostPath& target, const HostPath& source) {
  const int error = RenameOver(source.At(), target.At());
  const FileAt spelled = Spelled(target);
  if (error == 0 && std::string_view(target.At().name) != spelled.name) {
    RenameToFree(target.At(), spelled);  // the file has moved, however it is spelled
  }
  return error;
}

Code Rename(const HostPath& source, const HostPath& target, bool replace) {
  int error = 0;
  if (IsOnePlace(source, target)) {
    // Onto itself, a move gives the name a new spelling.
    error = Respell(source.At(), Spelled(target));
  } else if (IsSameFile(source.entry, target.entry)) {
    // The host would leave both names of one file alone.
    error = Unlink(source.At());
  } else if (replace && target.entry.st_mode != 0) {
    error = TakePlaceOf(target, source);
  } else if (replace) {
    error = RenameOver(source.At(), target.At());
  } else {
    error = RenameToFree(source.At(), target.At());
  }
  switch (error) {
    case EEXIST:
    case ENOTEMPTY:
      return kAlreadyExists;
    case EINVAL:
      return kSharingViolation;  // a folder into itself
    default:
      return CodeOf(error);
  }
}

// In a view a folder of the machine can't be renamed; nobody else sees what stands there meanwhile.
Code MoveTree(const HostPath& source, const HostPath& target) {
  const FileAt to = target.At();
  const Descriptor from(source.Open(O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  if (from.Get() < 0 || mkdirat(to.folder, target.name.c_str(), S_IRWXU) != 0) {
    return CodeOf(errno);
  }
  const FileAt made = {to.folder, target.name.c_str()};
  const Descriptor copy(
      openat(made.folder, made.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const Code code = CopyTree(from.Get(), copy.Get(), CopyWay::Content);
  if (code != kSuccess) {
    IgnoreError(RemoveTree(made));  // why the move failed counts
    return code;
  }
  return RemoveTree(source.At());
}

Code Relocate(const HostPath& source, const HostPath& target, std::uint32_t flags) {
  const bool replace = (flags & files::kMoveReplaceExisting) != 0;
  const bool mayCopy = (flags & files::kMoveCopyAllowed) != 0 && !source.IsFolder();
  Code code = kNotSameDevice;
  if (mayCopy || IsOnMachine(source) == IsOnMachine(target)) {
    code = ChangeFolder(source, [&] {
      return ChangeFolder(target, [&] {
        const Code renamed = Rename(source, target, replace);
        const bool isKept = renamed == kNotSameDevice && S_ISDIR(source.entry.st_mode);
        return isKept && CurrentView().keepsFolders ? MoveTree(source, target) : renamed;
      });
    });
  }
  if (code == kNotSameDevice && mayCopy) {
    code = CopyFile(source, target,
                    {.replace = replace, .flush = (flags & files::kMoveWriteThrough) != 0});
    if (code == kSuccess) {
      // One that can't go stays, as on Windows.
      IgnoreError(ChangeFolder(source, [&] { return CodeOf(Unlink(source.At())); }));
    }
  }
  return code;
}

// Both ends have been checked.
Code MoveFound(const HostPath& source, const HostPath& target, std::uint32_t flags) {
  const Code code = Relocate(source, target, flags);
  if (code != kSuccess || (flags & files::kMoveWriteThrough) == 0) {
    return code;
  }
  const Code flushed = FlushFolder(target.At().folder);
  return flushed == kSuccess && !IsOneFolder(source, target) ? FlushFolder(source.At().folder)
                                                             : flushed;
}

// Gives the file `fresh` what the file `old` hands on, and its place.
Code TakePlace(const HostPath& fresh, HostPath* old) {
  // What a link leads to gets the new version; the link stays, and its own mode means nothing.
  Code code = FollowLink(old);
  if (code == kSuccess && IsReadOnly(*old)) {
    code = kAccessDenied;  // before the new file is made read-only too
  }
  if (code == kSuccess) {
    code = CheckUnused(*old);  // for a file in use, ReplaceFileW gives another code than a move
  }
  if (code == kSuccess && S_ISREG(old->entry.st_mode)) {
    const Descriptor target(fresh.Open(O_WRONLY | O_NONBLOCK));
    code = target.Get() < 0 ? CodeOf(errno) : CopyMetadata(*old, target.Get());
  }
  if (code == kSuccess) {
    code = CheckSource(fresh);
  }
  if (code == kSuccess) {
    code = CheckTarget(fresh, *old, true);
  }
  if (code != kSuccess) {
    return code;
  }
  old->name = old->At().name;  // its spelling stays as well
  const KeptShortName shortName(*old);
  code = MoveFound(fresh, *old, files::kMoveReplaceExisting | files::kMoveWriteThrough);
  if (code == kSuccess) {
    shortName.GiveBack();
  }
  return code;
}

}  // namespace

Code MoveNow(cvn::StringView from, cvn::StringView to, std::uint32_t flags) {
  HostPath source;
  HostPath target;
  const Code code = Locate(from, to, (flags & files::kMoveReplaceExisting) != 0, &source, &target);
  return code == kSuccess ? MoveFound(source, target, flags) : code;
}

}  // namespace platform::posix

namespace platform::files {

Code Replace(cvn::StringView from, cvn::StringView to) {
  return posix::Report(posix::MoveNow(from, to, kMoveReplaceExisting | kMoveWriteThrough));
}

Code TakePlace(cvn::StringView from, cvn::StringView to) {
  posix::HostPath fresh;
  posix::HostPath old;
  Code code = posix::Resolve(from, &fresh);
  if (code == kSuccess) {
    code = posix::Resolve(to, &old);
  }
  if (code == kFileNotFound) {
    return Replace(from, to);  // nothing to take over
  }
  return posix::Report(code == kSuccess ? posix::TakePlace(fresh, &old) : code);
}

}  // namespace platform::files
