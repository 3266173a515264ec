#include "platform/offline/commit/staging.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/files.h"
#include "platform/linux/atomic_file.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/linux/other_accounts.h"
#include "platform/linux/volume_traits.h"
#include "platform/machine_commit.h"
#include "platform/offline/commit/journal.h"
#include "platform/offline/volume/volume.h"
#include "platform/private_folder.h"

namespace platform::posix {
namespace {

constexpr const char* kDraft = "draft";
constexpr const char* kJournal = "journal";
constexpr const char* kDone = "done";
constexpr const char* kReserve = "reserve";
constexpr const char* kTime = "time";  // its last write is that of the machine's folder

constexpr std::size_t kMostSingleFlushes = 32;

constexpr mode_t kOwnersFile = S_IRUSR | S_IWUSR;
constexpr mode_t kOwnersFolder = S_IRWXU;
constexpr int kNewFile = O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

// Whether files of this file system have permissions at all. Where it says the same ones of every
// file, who can write to the folder of a commit can write to all of the machine, and gains nothing.
bool HasPermissions(int folder) {
  AtomicFile probe(folder);
  struct stat entry {};
  return probe.Create(true, kOwnersFile) != 0 || fstat(probe.File(), &entry) != 0 ||
         (entry.st_mode & 0777) == kOwnersFile;
}

Code Flush(int file) { return fsync(file) == 0 ? kSuccess : CodeOf(errno, kWriteFault); }

Code WriteAll(int file, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(file, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) {
      return CodeOf(errno, kWriteFault);
    }
    bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return kSuccess;
}

// A file, a link or an empty folder.
bool Remove(FileAt entry) {
  return unlinkat(entry.folder, entry.name, 0) == 0 ||
         unlinkat(entry.folder, entry.name, AT_REMOVEDIR) == 0;
}

// What can't be looked at counts as there: nobody is to go on as if there were no commit.
bool Exists(FileAt file) {
  struct stat entry {};
  return fstatat(file.folder, file.name, &entry, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

}  // namespace

bool Staging::IsThere() const { return Exists({root_, kCommitFolder}); }

Code Staging::Make() {
  struct stat root {};
  if (fstat(root_, &root) != 0) {
    return CodeOf(errno);
  }
  if (mkdirat(root_, kCommitFolder, kOwnersFolder) != 0) {
    return errno == EEXIST ? kAlreadyExists : CodeOf(errno);
  }
  Code code = Open();
  if (code != kSuccess) {
    unlinkat(root_, kCommitFolder, AT_REMOVEDIR);
    return code;
  }
  const Descriptor time(openat(folder_.Get(), kTime, O_WRONLY | kNewFile, kOwnersFile));
  code = time.Get() < 0 ? CodeOf(errno) : KeepTime(root.st_mtim);
  machine::EntryState state;
  if (code == kSuccess && ReadEntryStatus({root_, kCommitFolder}, &state) == kSuccess) {
    // Whom it is hidden from is Windows, where there is a place for that.
    state.attributes |= files::kHidden | files::kSystem;
    IgnoreError(WriteEntryState({root_, kCommitFolder}, state));
  }
  if (code != kSuccess) {
    IgnoreError(Remove());  // the first failure counts
  }
  return code;
}

Code Staging::Open() {
  folder_ =
      Descriptor(openat(root_, kCommitFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder_.Get() < 0) {
    return errno == ENOTDIR || errno == ELOOP ? files::kNotPrivate
           : errno == EACCES                  ? files::kForeignPlace
                                              : CodeOf(errno);
  }
  const Code code = Judge();
  if (code != kSuccess) {
    folder_ = Descriptor();
  }
  return code;
}

Code Staging::Judge() const {
  struct stat entry {};
  struct stat root {};
  if (fstat(folder_.Get(), &entry) != 0 || fstat(root_, &root) != 0) {
    return CodeOf(errno);
  }
  if (entry.st_uid != geteuid()) {
    return files::kForeignPlace;
  }
  const bool isPrivate = !CanOthersWrite(entry) || !HasPermissions(folder_.Get());
  return isPrivate && entry.st_dev == root.st_dev ? kSuccess : files::kNotPrivate;
}

Code Staging::MakeFile(std::uint32_t slot, Descriptor* file) const {
  const SlotName name(slot);
  *file = Descriptor(openat(folder_.Get(), name.In(*this).name, O_RDWR | kNewFile, kOwnersFile));
  return file->Get() < 0 ? CodeOf(errno) : kSuccess;
}

Code Staging::MakeFolder(std::uint32_t slot) const {
  const SlotName name(slot);
  return mkdirat(folder_.Get(), name.In(*this).name, kOwnersFolder) == 0 ? kSuccess : CodeOf(errno);
}

bool Staging::CanFlushAtOnce(std::size_t entries) const {
  return entries > kMostSingleFlushes && IsServedByProgram(root_) == false;
}

Code Staging::FlushAtOnce() const {
  return syncfs(folder_.Get()) == 0 ? kSuccess : CodeOf(errno, kWriteFault);
}

Code Staging::WriteJournal(std::span<const std::byte> bytes) const {
  if (bytes.size() > kLargestJournal) {
    return kFileTooLarge;
  }
  const Descriptor draft(openat(folder_.Get(), kDraft, O_WRONLY | kNewFile, kOwnersFile));
  Code code = draft.Get() < 0 ? CodeOf(errno) : WriteAll(draft.Get(), bytes);
  code = code == kSuccess ? Flush(draft.Get()) : code;
  // The slots' names, and this folder's own, come before the journal's.
  code = code == kSuccess ? FlushFolder(folder_.Get()) : code;
  code = code == kSuccess ? FlushFolder(root_) : code;
  if (code == kSuccess && renameat(folder_.Get(), kDraft, folder_.Get(), kJournal) != 0) {
    code = CodeOf(errno);
  }
  return code == kSuccess ? FlushFolder(folder_.Get()) : code;
}

bool Staging::HasJournal() const { return Exists({folder_.Get(), kJournal}); }

Code Staging::ReadJournal(std::vector<std::byte>* bytes) const {
  const Descriptor journal(
      openat(folder_.Get(), kJournal, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat entry {};
  if (journal.Get() < 0 || fstat(journal.Get(), &entry) != 0) {
    return errno == ELOOP ? machine::kCorrupt : CodeOf(errno, kReadFault);
  }
  const auto size = static_cast<std::uint64_t>(entry.st_size);
  if (!S_ISREG(entry.st_mode) || size > kLargestJournal) {
    return machine::kCorrupt;
  }
  bytes->resize(size);
  std::size_t got = 0;
  while (got < size) {
    const ssize_t count =
        pread(journal.Get(), bytes->data() + got, size - got, static_cast<off_t>(got));
    if (count == 0) {
      return machine::kCorrupt;
    }
    if (count < 0 && errno != EINTR) {
      return CodeOf(errno, kReadFault);
    }
    got += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
  return kSuccess;
}

Code Staging::CloseJournal() const {
  const bool isClosed = renameat(folder_.Get(), kJournal, folder_.Get(), kDone) == 0;
  return isClosed ? FlushFolder(folder_.Get()) : CodeOf(errno);
}

bool Staging::IsComplete() const { return Exists({folder_.Get(), kDone}); }

bool Staging::IsEmpty() const {
  bool isEmpty = true;
  const int error = ForEachEntry({folder_.Get(), "."}, 0, [&isEmpty](const dirent&) {
    isEmpty = false;
    return false;
  });
  return isEmpty && error == 0;
}

Code Staging::Reserve(std::uint64_t bytes) const {
  const Descriptor file(openat(folder_.Get(), kReserve, O_WRONLY | kNewFile, kOwnersFile));
  return file.Get() < 0 ? CodeOf(errno)
                        : CodeOf(posix_fallocate(file.Get(), 0, static_cast<off_t>(bytes)));
}

void Staging::GiveRoomBack() const { unlinkat(folder_.Get(), kReserve, 0); }

Code Staging::KeepTime(const timespec& written) const {
  const timespec times[] = {{0, UTIME_OMIT}, written};
  const bool isKept = utimensat(folder_.Get(), kTime, times, AT_SYMLINK_NOFOLLOW) == 0;
  return isKept || errno == ENOENT ? kSuccess : CodeOf(errno);  // without the file, nobody wants it
}

// Removes what is in the folder, and notes if there was nothing.
Code Staging::RemoveAll(bool* isEmpty) const {
  *isEmpty = true;
  Code code = kSuccess;
  const int error = ForEachEntry({folder_.Get(), "."}, 0, [&](const dirent& entry) {
    // These two tell what the folder is left of, should this be interrupted.
    const std::string_view name = entry.d_name;
    if (name == kTime || name == kDone) {
      return true;
    }
    *isEmpty = false;
    if (!posix::Remove({folder_.Get(), entry.d_name})) {
      const int fault = errno;
      code = fault == ENOTEMPTY || fault == EEXIST ? RaiseAll(entry.d_name) : CodeOf(fault);
    }
    return code == kSuccess;
  });
  return code == kSuccess ? CodeOf(error) : code;
}

// Empties a folder in this one, whose own folders come up beside it: so trees of any depth need no
// more descriptors than two.
Code Staging::RaiseAll(const char* folder) const {
  fchmodat(folder_.Get(), folder, kOwnersFolder, AT_SYMLINK_NOFOLLOW);
  const DirectoryStream names = OpenDirectory({folder_.Get(), folder}, O_NOFOLLOW);
  if (names == nullptr) {
    return CodeOf(errno);
  }
  Code code = kSuccess;
  const int error = ForEachEntry(names, [&](const dirent& entry) {
    const FileAt inner{dirfd(names.get()), entry.d_name};
    if (posix::Remove(inner)) {
      return true;
    }
    fchmodat(inner.folder, inner.name, kOwnersFolder, AT_SYMLINK_NOFOLLOW);
    const bool isRaised =
        renameat(inner.folder, inner.name, folder_.Get(), FreshName("gone").c_str()) == 0;
    code = isRaised ? kSuccess : CodeOf(errno);
    return isRaised;
  });
  return code == kSuccess ? CodeOf(error) : code;
}

Code Staging::Remove() {
  struct stat time {};
  const bool isTold = fstatat(folder_.Get(), kTime, &time, AT_SYMLINK_NOFOLLOW) == 0;
  Code code = kSuccess;
  for (bool isEmpty = false; code == kSuccess && !isEmpty;) {
    code = RemoveAll(&isEmpty);
  }
  for (const char* last : {kTime, kDone}) {
    if (code == kSuccess && unlinkat(folder_.Get(), last, 0) != 0 && errno != ENOENT) {
      code = CodeOf(errno);
    }
  }
  if (code == kSuccess && unlinkat(root_, kCommitFolder, AT_REMOVEDIR) != 0) {
    code = CodeOf(errno);
  }
  if (code != kSuccess) {
    return code;
  }
  folder_ = Descriptor();
  const timespec times[] = {{0, UTIME_OMIT}, time.st_mtim};
  if (isTold && utimensat(root_, ".", times, 0) != 0) {
    code = CodeOf(errno);
  }
  return code == kSuccess ? FlushFolder(root_) : code;
}

}  // namespace platform::posix
