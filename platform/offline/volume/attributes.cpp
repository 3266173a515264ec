#include "platform/offline/volume/attributes.h"

#include <fcntl.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <optional>
#include <span>
#include <string_view>

#include "platform/linux/error_map.h"
#include "platform/linux/volume_traits.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

using files::Attributes;

constexpr const char* kDosName = "user.DOSATTRIB";
constexpr Attributes kStored = files::kHidden | files::kSystem | files::kArchive;
constexpr Attributes kSettable = kStored | files::kReadOnly;
constexpr mode_t kAnyonesWrite = S_IWUSR | S_IWGRP | S_IWOTH;

using NtfsWord = std::array<char, 4>;

bool IsFileOrFolder(const struct stat& entry) {
  return S_ISREG(entry.st_mode) || S_ISDIR(entry.st_mode);
}

// A file under a name. What has taken the place of the name by then is used itself when it is a
// link.
class NamedFile {
 public:
  explicit NamedFile(FileAt file) : file_(file), path_(PathThrough(file)) {}
  ssize_t Read(const char* name, std::span<char> value) const {
    return lgetxattr(path_.c_str(), name, value.data(), value.size());
  }
  int Write(const char* name, std::span<const char> value) const {
    return lsetxattr(path_.c_str(), name, value.data(), value.size(), 0);
  }
  int Remove(const char* name) const { return lremovexattr(path_.c_str(), name); }
  int SetMode(mode_t mode) const {
    return fchmodat(file_.folder, file_.name, mode, AT_SYMLINK_NOFOLLOW);
  }

 private:
  FileAt file_;
  std::string path_;
};

class OpenedFile {
 public:
  explicit OpenedFile(int descriptor) : descriptor_(descriptor) {}
  ssize_t Read(const char* name, std::span<char> value) const {
    return fgetxattr(descriptor_, name, value.data(), value.size());
  }
  int Write(const char* name, std::span<const char> value) const {
    return fsetxattr(descriptor_, name, value.data(), value.size(), 0);
  }
  int Remove(const char* name) const { return fremovexattr(descriptor_, name); }
  int SetMode(mode_t mode) const { return fchmod(descriptor_, mode); }

 private:
  int descriptor_;
};

// Nothing where the volume is not NTFS, with errno telling so. That is asked each time: a volume's
// number may be that of another after a moment.
template <typename File>
std::optional<NtfsWord> ReadNtfsWord(const File& file) {
  NtfsWord word{};
  errno = EOPNOTSUPP;
  const ssize_t length = file.Read(kAttributeWord, word);
  return length == static_cast<ssize_t>(word.size()) ? std::optional(word) : std::nullopt;
}

Attributes ValueOf(const NtfsWord& word) {
  Attributes value = 0;
  for (const char byte : word) {
    value = value << 8 | static_cast<unsigned char>(byte);
  }
  return value;
}

Attributes LittleEndian(std::string_view bytes) {
  Attributes value = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    value |= static_cast<Attributes>(static_cast<unsigned char>(bytes[i])) << (8 * i);
  }
  return value;
}

// Samba's versions 3 to 5: a text that ends with a zero, at the next even place the version, twice,
// at the next multiple of four what the rest holds, and the attributes.
bool ParseBinary(std::string_view bytes, Attributes* attributes) {
  constexpr Attributes kHoldsAttributes = 1;
  const std::size_t end = bytes.find('\0');
  const std::size_t version = (end + 2) / 2 * 2;
  const std::size_t flags = (version + 4 + 3) / 4 * 4;
  if (end == std::string_view::npos || bytes.size() < flags + 8) {
    return false;
  }
  const Attributes number = LittleEndian(bytes.substr(version, 2));
  if (number < 3 || number > 5 || number != LittleEndian(bytes.substr(version + 2, 2)) ||
      (LittleEndian(bytes.substr(flags, 4)) & kHoldsAttributes) == 0) {
    return false;
  }
  *attributes = LittleEndian(bytes.substr(flags + 4, 4));
  return true;
}

bool ParseText(std::string_view text, Attributes* attributes) {
  text = text.substr(0, text.find('\0'));
  if (!text.starts_with("0x") && !text.starts_with("0X")) {
    return false;
  }
  text.remove_prefix(2);
  const char* textEnd = text.data() + text.size();
  Attributes value = 0;
  const auto [end, error] = std::from_chars(text.data(), textEnd, value, 16);
  if (error != std::errc() || end != textEnd) {
    return false;
  }
  *attributes = value;
  return true;
}

Attributes DefaultOf(const struct stat& entry) {
  return S_ISDIR(entry.st_mode) ? 0 : files::kArchive;
}

// After a failure to read an extended attribute: one that isn't there, or isn't known, is none.
Code CodeOfReading() {
  const bool isNone = errno == ENODATA || errno == EOPNOTSUPP || errno == ERANGE;
  return isNone ? kSuccess : CodeOf(errno, kReadFault);
}

// What a file has of the attributes that can be set, and where the volume is NTFS its own word.
struct Stored {
  Attributes value = 0;
  std::optional<NtfsWord> ntfs;
};

// READONLY as the host's permissions have it. NTFS has a bit of its own for it, and permissions
// there say who may write.
Attributes ReadOnlyOf(const struct stat& entry) {
  return (entry.st_mode & S_IWUSR) == 0 ? files::kReadOnly : 0;
}

// Reads what is stored. When that can't be read, `*stored` is what a new file has.
template <typename File>
Code ReadStored(const File& file, const struct stat& entry, Stored* stored) {
  *stored = {DefaultOf(entry) | ReadOnlyOf(entry), std::nullopt};
  if (!IsFileOrFolder(entry)) {
    return kSuccess;
  }
  stored->ntfs = ReadNtfsWord(file);
  if (stored->ntfs) {
    stored->value = ValueOf(*stored->ntfs) & kSettable;
    return kSuccess;
  }
  if (const Code code = CodeOfReading(); code != kSuccess) {
    return code;
  }
  std::array<char, 256> buffer;
  const ssize_t length = file.Read(kDosName, buffer);
  if (length < 0) {
    return CodeOfReading();
  }
  const std::string_view value(buffer.data(), static_cast<std::size_t>(length));
  Attributes apart = DefaultOf(entry);
  static_cast<void>(ParseBinary(value, &apart) || ParseText(value, &apart));
  stored->value = (apart & kStored) | ReadOnlyOf(entry);
  return kSuccess;
}

template <typename File>
Code WriteNtfs(const File& file, NtfsWord word, Attributes wanted) {
  word[3] = static_cast<char>((ValueOf(word) & ~kSettable) | (wanted & kSettable));
  return file.Write(kAttributeWord, word) == 0 ? kSuccess : CodeOf(errno);
}

template <typename File>
Code WriteDos(const File& file, const struct stat& entry, Attributes wanted) {
  if ((wanted & kStored) == DefaultOf(entry)) {
    return file.Remove(kDosName) == 0 || errno == ENODATA ? kSuccess : CodeOf(errno);
  }
  std::array<char, 16> text;
  const int length = std::snprintf(text.data(), text.size(), "0x%x", wanted & kStored);
  const std::span<const char> written(text.data(), static_cast<std::size_t>(length));
  return file.Write(kDosName, written) == 0 ? kSuccess : CodeOf(errno);
}

// What is no link.
template <typename File>
Code ReadAttributesOfNode(const File& file, const struct stat& entry, bool isFolder,
                          Attributes* attributes) {
  Stored stored;
  const Code code = ReadStored(file, entry, &stored);
  *attributes = stored.value | (isFolder ? files::kDirectory : 0);
  *attributes = *attributes == 0 ? files::kNormal : *attributes;
  return code;
}

// Stores READONLY as permissions, and the others apart, for a file that has `held`.
template <typename File>
Code StoreOnHost(const File& file, const struct stat& entry, Attributes held, Attributes wanted) {
  Code code = kSuccess;
  const mode_t before = entry.st_mode & 07777;
  const mode_t writable = before | S_IWUSR;
  mode_t now = before;
  mode_t final = (wanted & files::kReadOnly) != 0 ? before & ~kAnyonesWrite : writable;
  if (((held ^ wanted) & kStored) != 0) {
    // Extended attributes of a file that can't be written can't be, either.
    now = now != writable && file.SetMode(writable) == 0 ? writable : now;
    code = WriteDos(file, entry, wanted);
    final = code == kSuccess ? final : before;
  }
  const bool changed = now == final || file.SetMode(final) == 0;
  return code == kSuccess && !changed ? CodeOf(errno) : code;
}

// Stores what differs from the attributes that the file has.
template <typename File>
Code StoreInNode(const File& file, const struct stat& entry, Attributes wanted) {
  Stored held;
  const Code code = ReadStored(file, entry, &held);
  if (code != kSuccess || ((held.value ^ wanted) & kSettable) == 0) {
    return code;
  }
  if (!IsFileOrFolder(entry)) {
    return kNotSupported;
  }
  return held.ntfs ? WriteNtfs(file, *held.ntfs, wanted)
                   : StoreOnHost(file, entry, held.value, wanted);
}

}  // namespace

Code ReadAttributes(FileAt file, const struct stat& entry, bool isFolder, Attributes* attributes) {
  if (S_ISLNK(entry.st_mode)) {
    *attributes = files::kReparsePoint | (isFolder ? files::kDirectory : files::kArchive);
    return kSuccess;
  }
  return ReadAttributesOfNode(NamedFile(file), entry, isFolder, attributes);
}

Code ReadAttributes(int descriptor, const struct stat& entry, Attributes* attributes) {
  return ReadAttributesOfNode(OpenedFile(descriptor), entry, S_ISDIR(entry.st_mode), attributes);
}

Code StoreAttributes(FileAt file, const struct stat& entry, Attributes wanted) {
  if (!S_ISLNK(entry.st_mode)) {
    return StoreInNode(NamedFile(file), entry, wanted);
  }
  // A link always has ARCHIVE alone.
  return (wanted & kSettable) == files::kArchive ? kSuccess : kNotSupported;
}

Code StoreAttributes(int descriptor, const struct stat& entry, Attributes wanted) {
  return StoreInNode(OpenedFile(descriptor), entry, wanted);
}

Code ClearAttributes(int folder) {
  struct stat entry {};
  return fstat(folder, &entry) == 0 ? StoreAttributes(folder, entry, 0) : CodeOf(errno);
}

bool IsReadOnly(const HostPath& host) {
  if (!IsFileOrFolder(host.entry)) {
    return false;
  }
  const std::optional<NtfsWord> ntfs = ReadNtfsWord(NamedFile(host.At()));
  return ((ntfs ? ValueOf(*ntfs) : ReadOnlyOf(host.entry)) & files::kReadOnly) != 0;
}

}  // namespace platform::posix
