// A hive and its file on the disk.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <utility>

#include "platform/linux/atomic_file.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/linux/file_names.h"
#include "platform/offline/registry/hive.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

bool IsSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino &&
         left.st_size == right.st_size && left.st_mtim.tv_sec == right.st_mtim.tv_sec &&
         left.st_mtim.tv_nsec == right.st_mtim.tv_nsec;
}

Code LastHostError() { return CodeOf(errno, kWriteFault); }

Code WriteAll(int to, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(to, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return LastHostError();
    }
    bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  return fsync(to) == 0 ? kSuccess : LastHostError();
}

}  // namespace

Code Hive::Lock::Take(const HostPath& place, const struct stat& expected) {
  descriptor_ = place.Open(O_RDONLY | O_NONBLOCK);
  if (descriptor_ < 0) {
    return LastHostError();
  }
  struct stat entry {};
  // A file system that has no locks lets everything pass.
  const bool isBusy = flock(descriptor_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (isBusy || fstat(descriptor_, &entry) != 0 || !IsSameFile(entry, expected)) {
    Release();
    return kSharingViolation;
  }
  return kSuccess;
}

void Hive::Lock::Release() {
  if (descriptor_ >= 0) {
    close(descriptor_);
    descriptor_ = -1;
  }
}

Code Hive::Load() {
  std::vector<std::byte> content;
  Code code = ReadFile(&content);
  if (code == kSuccess) {
    code = file_.Load(std::move(content));
  }
  if (code != kSuccess) {
    return code;
  }
  // Even root is bound by what the file's mode says, as SYSTEM is by READONLY on Windows. Where a
  // log has changes that the hive lacks, Windows would write them over ours.
  const auto [folder, name] = place_.At();
  isReadOnly_ = (loaded_.st_mode & 0222) == 0 || faccessat(folder, name, W_OK, 0) != 0 ||
                faccessat(folder, ".", W_OK, 0) != 0 || (file_.IsInterrupted() && HasLog());
  root_ = MakeRoot();
  root_->cell = file_.Root();
  return kSuccess;
}

Code Hive::ReadFile(std::vector<std::byte>* content) {
  // O_NONBLOCK: a pipe in the place of the file would let the run wait for ever.
  const Descriptor file(place_.Open(O_RDONLY | O_NONBLOCK));
  if (file.Get() < 0 || fstat(file.Get(), &loaded_) != 0) {
    return CodeOf(errno, kReadFault);
  }
  if (!S_ISREG(loaded_.st_mode)) {
    return kBadDatabase;
  }
  content->resize(static_cast<std::size_t>(loaded_.st_size));
  std::size_t at = 0;
  while (at < content->size()) {
    const ssize_t got = read(file.Get(), content->data() + at, content->size() - at);
    if (got == 0) {
      break;
    }
    if (got < 0 && errno != EINTR) {
      return CodeOf(errno, kReadFault);
    }
    at += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  }
  content->resize(at);
  return kSuccess;
}

bool Hive::HasLog() const {
  for (const char* ending : {".LOG", ".LOG1", ".LOG2"}) {
    struct stat entry {};
    const auto [folder, name] = place_.At();
    const std::string log = std::string(name) + ending;
    if (fstatat(folder, log.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 && entry.st_size != 0) {
      return true;
    }
  }
  return false;
}

Code Hive::Flush() {
  if (broken_ != kSuccess) {
    return broken_;
  }
  Code code = kSuccess;
  if (IsChanged()) {
    try {
      code = Apply();
    } catch (const std::length_error&) {
      code = kDiskFull;
    } catch (const std::bad_alloc&) {
      code = kNotEnoughMemory;
    }
    if (code != kSuccess) {
      broken_ = code;
      return code;
    }
    code = Write();
  }
  if (code == kSuccess) {
    lock_.Release();
  }
  return code;
}

// Brings the changes from the tree into the content of the file.
Code Hive::Apply() {
  isUnwritten_ = true;
  for (const HiveFile::Cell cell : removed_) {
    file_.FreeKey(cell);
  }
  removed_.clear();
  for (const KeyPtr& key : touched_) {
    Code code = kSuccess;
    if (key->hasNewSubKeys && !key->isDeleted) {
      code = ApplySubKeys(*key);
    }
    if (code == kSuccess && key->hasNewValues && !key->isDeleted) {
      code = ApplyValues(*key);
    }
    if (code != kSuccess) {
      return code;
    }
    key->hasNewSubKeys = false;
    key->hasNewValues = false;
  }
  touched_.clear();
  return kSuccess;
}

Code Hive::ApplySubKeys(KeyNode& key) {
  std::vector<HiveFile::NamedKey> subKeys;
  subKeys.reserve(key.subKeys->size());
  for (const auto& [index, subKey] : *key.subKeys) {
    if (subKey->isVolatile) {
      continue;
    }
    if (subKey->cell == HiveFile::kNoCell) {
      subKey->cell = file_.AddKey(key.cell, subKey->name);
    }
    subKeys.push_back({subKey->cell, subKey->name});
  }
  return file_.SetSubKeys(key.cell, subKeys);
}

Code Hive::ApplyValues(KeyNode& key) {
  for (const HiveFile::Cell cell : key.values->dropped) {
    file_.FreeValue(cell);
  }
  key.values->dropped.clear();
  std::vector<HiveFile::Cell> cells;
  cells.reserve(key.values->byAge.size());
  for (auto& [age, value] : key.values->byAge) {
    if (value.cell == HiveFile::kNoCell) {
      value.cell = file_.AddValue(value.name, value.type, value.data);
      std::vector<std::byte>().swap(value.data);
    }
    cells.push_back(value.cell);
  }
  return file_.SetValues(key.cell, cells);
}

// The lock, which is held, makes the other file's name ours.
Code Hive::Write() {
  file_.Seal();
  const auto [folder, name] = place_.At();
  AtomicFile fresh(folder);
  if (const int error = fresh.CreateAs(std::string(name) + ".tessel-new", 0600); error != 0) {
    return CodeOf(error, kWriteFault);
  }
  Code code = kSuccess;
  if (isNew_) {
    fchmod(fresh.File(), 0644);  // a file system without permissions shows what it always shows
  } else {
    code = CopyMetadata(lock_.Descriptor(), loaded_, fresh.File());
  }
  if (code == kSuccess) {
    code = WriteAll(fresh.File(), file_.Bytes());
  }
  struct stat entry {};
  if (code == kSuccess && !isNew_ &&
      (fstatat(folder, name, &entry, AT_SYMLINK_NOFOLLOW) != 0 || !IsSameFile(entry, loaded_))) {
    code = kSharingViolation;
  }
  if (code == kSuccess && fstat(fresh.File(), &entry) != 0) {
    code = LastHostError();
  }
  if (code == kSuccess) {
    code = CodeOf(fresh.Name(name, true), kWriteFault);
  }
  if (code != kSuccess) {
    return code;
  }
  // The new file is in its place; where the folder can't be written through, the old one may come
  // back when the power fails, and is whole, too.
  IgnoreError(FlushFolder(folder));
  loaded_ = entry;
  isNew_ = false;
  isUnwritten_ = false;
  return kSuccess;
}

}  // namespace platform::posix
