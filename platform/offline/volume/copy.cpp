#include "platform/offline/volume/copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <span>
#include <vector>

#include "platform/linux/error_map.h"
#include "platform/linux/same_file.h"
#include "platform/linux/volume_traits.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/file_steps.h"
#include "platform/offline/volume/folder_walk.h"
#include "platform/offline/volume/share_locks.h"
#include "platform/offline/volume/short_names.h"
#include "platform/offline/volume/volume.h"
#include "platform/overwrite.h"

namespace platform::posix {
namespace {

constexpr std::size_t kBlock = 512;  // the unit of st_blocks
// What the kernel sets up for a copy of its own costs more than such a piece.
constexpr std::size_t kSmall = std::size_t{16} * 1024;

// Copies content from the same place of one file to that of another.
class ContentCopier {
 public:
  ContentCopier(int source, int target) : source_(source), target_(target) {}

  // Copies the first `size` bytes, which is what the file had at the start: it may grow, or shrink,
  // under the copy. Holes stay holes.
  Code Copy(const struct stat& entry) {
    const off_t size = entry.st_size;
    const bool hasHoles = entry.st_blocks * static_cast<off_t>(kBlock) < size;
    if (!hasHoles) {
      return CopyRange(0, size);
    }
    off_t at = 0;
    while (at < size) {
      const off_t data = lseek(source_, at, SEEK_DATA);
      if (data < 0 && errno == ENXIO) {
        break;
      }
      const off_t hole = data < 0 ? -1 : lseek(source_, data, SEEK_HOLE);
      const bool known = data >= 0 && hole >= 0;
      const off_t end = known ? std::min(hole, size) : size;
      const Code code = CopyRange(known ? data : at, end);
      if (code != kSuccess) {
        return code;
      }
      at = end;
    }
    return ftruncate(target_, size) == 0 ? kSuccess : CodeOf(errno, kWriteFault);
  }

 private:
  Code CopyRange(off_t at, off_t end) {
    while (at < end) {
      const auto wanted = static_cast<std::size_t>(end - at);
      const bool inKernel = inKernel_ && wanted > kSmall;
      const ssize_t length = inKernel ? CopyInKernel(at, wanted) : CopyByBuffer(at, wanted);
      if (length > 0) {
        at += length;
      } else if (inKernel) {
        inKernel_ = false;  // why it failed, the other way will tell
      } else if (length == 0) {
        break;
      } else if (errno != EINTR) {
        return CodeOf(errno, reading_ ? kReadFault : kWriteFault);
      }
    }
    return kSuccess;
  }

  ssize_t CopyInKernel(off_t at, std::size_t wanted) const {
    off_t to = at;
    return copy_file_range(source_, &at, target_, &to, wanted, 0);
  }

  ssize_t CopyByBuffer(off_t at, std::size_t wanted) {
    if (wanted <= kSmall) {
      std::array<char, kSmall> buffer;
      return CopyThrough(at, std::span(buffer).first(wanted));
    }
    constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
    buffer_.resize(std::min(wanted, kBufferSize));
    return CopyThrough(at, buffer_);
  }

  ssize_t CopyThrough(off_t at, std::span<char> buffer) {
    reading_ = true;
    const ssize_t length = pread(source_, buffer.data(), buffer.size(), at);
    if (length <= 0) {
      return length;
    }
    reading_ = false;
    return pwrite(target_, buffer.data(), static_cast<std::size_t>(length), at);
  }

  const int source_;
  const int target_;
  bool inKernel_ = true;
  bool reading_ = true;
  std::vector<char> buffer_;
};

Code OpenSource(const HostPath& source, Descriptor* file, struct stat* entry) {
  // What is no file may be a pipe, which opening would wait for.
  HostPath place = source;
  Code code = FollowToOpen(&place);
  if (code == kSuccess) {
    code = place.Target(entry);
  }
  if (code != kSuccess || !S_ISREG(entry->st_mode)) {
    return code == kSuccess ? kAccessDenied : code;
  }
  file->Reset(place.Open(O_RDONLY | O_NONBLOCK));
  if (file->Get() < 0 || fstat(file->Get(), entry) != 0) {
    return CodeOf(errno, kReadFault);
  }
  if (!S_ISREG(entry->st_mode)) {
    return kAccessDenied;
  }
  return TakeShare(file->Get(), files::Access::Read, files::Share::ReadWrite);
}

// Follows a link in the target's place, and checks that the file there may be replaced.
Code FindTarget(const HostPath& target, const struct stat& source, HostPath* place) {
  constexpr files::Attributes kKept = files::kReadOnly | files::kHidden | files::kSystem;
  *place = target;
  if (const Code code = FollowLink(place); code != kSuccess) {
    return code;
  }
  const struct stat& entry = place->entry;
  if (IsSameFile(entry, source)) {
    return kSharingViolation;
  }
  if (entry.st_mode == 0) {
    return kSuccess;
  }
  files::Attributes attributes = 0;
  const Code code = ReadAttributes(place->At(), entry, false, &attributes);
  if (code == kSuccess && (!S_ISREG(entry.st_mode) || (attributes & kKept) != 0)) {
    return kAccessDenied;
  }
  return code == kSuccess ? CheckUnused(*place) : code;
}

// An open file to be copied, and what it has beside its content.
struct Source {
  Descriptor file;
  struct stat entry = {};
  files::Attributes attributes = 0;
  bool hasStreams = false;  // there can be any: on drive C:, and wherever NTFS is
};

Code Load(const HostPath& place, Source* source) {
  Code code = OpenSource(place, &source->file, &source->entry);
  if (code == kSuccess) {
    code = ReadAttributes(source->file.Get(), source->entry, &source->attributes);
  }
  source->hasStreams =
      code == kSuccess && (place.onMachine || DescriptorAttribute(source->file.Get()) != nullptr);
  return code;
}

// Makes the copy's file in its folder, with the content.
Code Fill(const Source& source, bool isNew, int folder, AtomicFile* draft) {
  Code code = CodeOf(draft->Create(isNew, (source.entry.st_mode & 0777) | S_IWUSR));
  if (code == kSuccess && isNew) {
    code = InheritSecurity(folder, draft->File());
  }
  return code == kSuccess ? CopyContent(source.file.Get(), source.entry, draft->File()) : code;
}

// Gives the copy what belongs to its content.
Code Complete(const Source& source, bool isNew, int copy) {
  const Code code = source.hasStreams ? CopyStreams(source.file.Get(), copy) : kSuccess;
  return code == kSuccess ? MarkCopy(source.attributes, source.entry, isNew, copy) : code;
}

// Writes a copy that is whole over the file at `place`, all of whose names are to have it.
Code WriteOver(const Source& source, const AtomicFile& draft, const HostPath& place) {
  files::File whole(fcntl(draft.File(), F_DUPFD_CLOEXEC, 0));
  files::File target(place.Open(O_RDWR | O_NONBLOCK));
  if (!whole.IsOpen() || !target.IsOpen()) {
    return CodeOf(errno);
  }
  const auto descriptor = static_cast<int>(target.Handle());
  Code code = TakeShare(descriptor, files::Access::ReadWrite, files::Share::None);
  if (code == kSuccess) {
    code = OverwriteContent(&whole, &target);
  }
  if (code == kSuccess) {
    code = RemoveStreams(descriptor);
  }
  return code == kSuccess ? Complete(source, false, descriptor) : code;
}

// Whether a new file may have its name without another look at it. Of the volumes that can't rename
// to a free name only, those of ntfs-3g report to the index what takes one; a look there is a
// message.
bool IsKnownFree(const HostPath& place) {
  const FileAt file = place.At();
  return place.entry.st_mode == 0 && !VolumeTraits::Of(file.folder).renamesToFree &&
         HasShortNames(file.folder) && NameIndex().IsMissed(file.folder, file.name);
}

Code NameDraft(const HostPath& place, bool replace, AtomicFile* draft) {
  const char* name = place.At().name;
  return CodeOf(IsKnownFree(place) ? draft->NameFree(name) : draft->Name(name, replace));
}

Code GiveName(const Source& source, AtomicFile* draft, const HostPath& place, CopyOptions options) {
  const bool isNew = place.entry.st_mode == 0;
  Code code = isNew ? kSuccess : CopyMetadata(place, draft->File(), Streams::Leave);
  if (code == kSuccess) {
    code = Complete(source, isNew, draft->File());
  }
  if (code == kSuccess && options.flush && fsync(draft->File()) != 0) {
    code = CodeOf(errno, kWriteFault);
  }
  if (code != kSuccess) {
    return code;
  }
  const KeptShortName shortName(place);
  code = NameDraft(place, options.replace, draft);
  if (code == kSuccess) {
    shortName.GiveBack();
  }
  return code;
}

Code CopyOnce(const HostPath& from, const HostPath& target, CopyOptions options) {
  Source source;
  HostPath place;
  Code code = Load(from, &source);
  if (code == kSuccess) {
    code = FindTarget(target, source.entry, &place);
  }
  if (code != kSuccess) {
    return code;
  }
  AtomicFile draft(place.At().folder);
  code = Fill(source, place.entry.st_mode == 0, place.At().folder, &draft);
  if (code != kSuccess) {
    return code;
  }
  return IsSharedContent(place) ? WriteOver(source, draft, place)
                                : GiveName(source, &draft, place, options);
}

}  // namespace

Code CopyContent(int from, const struct stat& entry, int to) {
  return ContentCopier(from, to).Copy(entry);
}

Code MarkCopy(files::Attributes attributes, const struct stat& from, bool isNew, int copy) {
  Code code = kSuccess;
  if (!isNew || (attributes & ~(files::kArchive | files::kNormal)) != 0) {
    struct stat made {};
    code = fstat(copy, &made) == 0 ? StoreAttributes(copy, made, attributes | files::kArchive)
                                   : CodeOf(errno);
    // Where there is no place for attributes, the content still counts.
    code = code == kNotSupported ? kSuccess : code;
  }
  const timespec times[] = {{0, UTIME_OMIT}, from.st_mtim};
  return code == kSuccess && futimens(copy, times) != 0 ? CodeOf(errno) : code;
}

Code CopyFile(const HostPath& source, const HostPath& target, CopyOptions options) {
  return ChangeFolder(target, [&] { return CopyOnce(source, target, options); });
}

std::unique_ptr<PreparedCopy> PreparedCopy::Make(const HostPath& source,
                                                 std::shared_ptr<const Descriptor> folder) {
  constexpr off_t kLargest = off_t{1} << 20;
  std::unique_ptr<PreparedCopy> copy(new PreparedCopy(std::move(folder)));
  Source from;
  const bool isMade = Load(source, &from) == kSuccess && from.entry.st_size <= kLargest &&
                      Fill(from, true, copy->folder_->Get(), &copy->draft_) == kSuccess &&
                      Complete(from, true, copy->draft_.File()) == kSuccess;
  return isMade ? std::move(copy) : nullptr;
}

bool PreparedCopy::IsBeside(const HostPath& target) const {
  const std::optional<FileNumbers> folder = NumbersOf(folder_->Get());
  return target.device == Device::None && target.entry.st_mode == 0 && folder &&
         folder == NumbersOf(target.At().folder);
}

Code PreparedCopy::GiveName(const HostPath& target) {
  return ChangeFolder(target, [&] { return NameDraft(target, false, &draft_); });
}

Code CopyTo(const HostPath& source, cvn::StringView to, bool failIfExists) {
  using files::Disposition;
  HostPath target;
  const Code code =
      LocateFile(to, failIfExists ? Disposition::CreateNew : Disposition::CreateAlways, &target);
  return code == kSuccess ? CopyFile(source, target, {.replace = !failIfExists}) : code;
}

}  // namespace platform::posix

namespace platform::files {

Code Copy(cvn::StringView from, cvn::StringView to, bool failIfExists) {
  posix::HostPath source;
  Code code = posix::LocateFile(from, Disposition::OpenExisting, &source);
  if (code == kSuccess) {
    code = posix::CopyTo(source, to, failIfExists);
  }
  return posix::Fail(code);  // a success is told as well
}

}  // namespace platform::files
