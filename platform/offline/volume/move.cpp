#include "platform/offline/volume/volume.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/linux/atomic_file.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/copy.h"
#include "platform/offline/volume/file_steps.h"

namespace platform::posix {
namespace {

bool IsOneFile(const struct stat& left, const struct stat& right) {
  return left.st_ino == right.st_ino && left.st_dev == right.st_dev;
}

bool IsOneFolder(const HostPath& left, const HostPath& right) {
  struct stat leftFolder {};
  struct stat rightFolder {};
  return fstat(left.At().folder, &leftFolder) == 0 && fstat(right.At().folder, &rightFolder) == 0 &&
         IsOneFile(leftFolder, rightFolder);
}

// Whether a folder lists all of these names, spelled like that.
bool AreListed(int folder, std::set<std::string_view> names) {
  const DirectoryStream stream = OpenDirectory({folder, "."}, 0);
  const dirent* entry = nullptr;
  while (!names.empty() && stream != nullptr && (entry = readdir(stream.get())) != nullptr) {
    names.erase(entry->d_name);
  }
  return names.empty();
}

// A file system without regard to case finds one name by two spellings: those of a file that has
// two names are both listed.
bool IsOnePlace(const HostPath& left, const HostPath& right) {
  const FileAt first = left.At();
  const FileAt second = right.At();
  if (!IsOneFolder(left, right)) {
    return false;
  }
  return std::string_view(first.name) == second.name ||
         (IsOneFile(left.entry, right.entry) &&
          !AreListed(first.folder, {first.name, second.name}));
}

// Whether what stands in the target's place may give it up. A pipe or a device may not: its name
// would be a file's from then on, for all of the host.
Code CheckTarget(const HostPath& source, const HostPath& target, bool replace) {
  if (!replace) {
    return kAlreadyExists;
  }
  const bool isFile = S_ISREG(target.entry.st_mode) || S_ISLNK(target.entry.st_mode);
  if (source.IsFolder() || target.IsFolder() || !isFile || IsReadOnly(target)) {
    return kAccessDenied;
  }
  return CheckUnused(target);
}

// Finds both ends of a move, and checks that the one may take the place of the other.
Code Locate(cvn::StringView from, cvn::StringView to, bool replace, HostPath* source,
            HostPath* target) {
  Code code = Resolve(from, source);
  if (code == kSuccess) {
    code = source->isRoot ? kAccessDenied : CheckUnused(*source);
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

// True when the host's path lies on the machine's drive. A drive is told by where the file is, and
// not by the spelling of its path.
bool IsOnMachine(const HostPath& place) { return ToMachinePath(place.spelling)[0] == u'C'; }

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
      AreListed(to.folder, {to.name})) {
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

int Unlink(FileAt file) { return unlinkat(file.folder, file.name, 0) == 0 ? 0 : errno; }

Code Rename(const HostPath& source, const HostPath& target, bool replace) {
  int error = 0;
  if (IsOnePlace(source, target)) {
    // Onto itself, a move gives the name a new spelling.
    error = Respell(source.At(), {target.At().folder, target.name.c_str()});
  } else if (IsOneFile(source.entry, target.entry)) {
    // The host would leave both names of one file alone.
    error = Unlink(source.At());
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

Code Relocate(const HostPath& source, const HostPath& target, std::uint32_t flags) {
  const bool replace = (flags & files::kMoveReplaceExisting) != 0;
  const bool mayCopy = (flags & files::kMoveCopyAllowed) != 0 && !source.IsFolder();
  Code code = kNotSameDevice;
  if (mayCopy || IsOnMachine(source) == IsOnMachine(target)) {
    code = ChangeFolder(source, [&] {
      return ChangeFolder(target, [&] { return Rename(source, target, replace); });
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

}  // namespace

Code MoveNow(cvn::StringView from, cvn::StringView to, std::uint32_t flags) {
  HostPath source;
  HostPath target;
  Code code = Locate(from, to, (flags & files::kMoveReplaceExisting) != 0, &source, &target);
  if (code == kSuccess) {
    code = Relocate(source, target, flags);
  }
  if (code != kSuccess || (flags & files::kMoveWriteThrough) == 0) {
    return code;
  }
  code = FlushFolder(target.At().folder);
  return code == kSuccess && !IsOneFolder(source, target) ? FlushFolder(source.At().folder) : code;
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
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  // What a link leads to gets the new version; the link stays, and its own mode means nothing.
  const bool isLink = S_ISLNK(old.entry.st_mode);
  code = posix::FollowLink(&old);
  if (code == kSuccess && posix::IsReadOnly(old)) {
    code = kAccessDenied;  // before the new file is made read-only too
  }
  if (code == kSuccess && S_ISREG(old.entry.st_mode)) {
    const posix::Descriptor target(fresh.Open(O_WRONLY | O_NONBLOCK));
    code = target.Get() < 0 ? posix::CodeOf(errno) : posix::CopyMetadata(old, target.Get());
  }
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  const cvn::String place = isLink ? posix::ToMachinePath(old.spelling) : cvn::String(to);
  return Replace(from, place);
}

}  // namespace platform::files
