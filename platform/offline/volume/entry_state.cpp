#include "platform/offline/volume/entry_state.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <string_view>
#include <utility>

#include "platform/byte_source.h"
#include "platform/file_digest.h"
#include "platform/held_folder.h"
#include "platform/linux/error_map.h"
#include "platform/linux/file_time.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/volume.h"
#include "support/format.h"
#include "support/utf.h"

namespace platform::posix {
namespace {

using machine::EntryKind;
using machine::EntryState;

constexpr mode_t kPermissions = 07777;
// Streams of a file that Windows made for itself are small.
constexpr std::size_t kMostExtended = std::size_t{16} << 20;
constexpr const char* kUnlistedDescriptor = "system.ntfs_acl";

// The names of a file's extended attributes, and of one that a volume with NTFS has without listing
// it.
Code ListNames(int file, std::vector<std::string>* names) {
  std::string list;
  ssize_t length = flistxattr(file, nullptr, 0);
  if (length > 0) {  // most files have none
    list.resize(XATTR_LIST_MAX);
    length = flistxattr(file, list.data(), list.size());
  }
  if (length < 0 && errno != EOPNOTSUPP) {
    return CodeOf(errno, kReadFault);
  }
  list.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  for (std::string_view rest = list; !rest.empty();) {
    const std::string_view name = rest.substr(0, rest.find('\0'));
    if (IsOfState(name) && name != kUnlistedDescriptor) {
      names->emplace_back(name);
    }
    rest.remove_prefix(std::min(name.size() + 1, rest.size()));
  }
  names->emplace_back(kUnlistedDescriptor);
  std::ranges::sort(*names);
  return kSuccess;
}

Code ReadExtended(int file, EntryState* state) {
  std::vector<std::string> names;
  const Code listed = ListNames(file, &names);
  if (listed != kSuccess) {
    return listed;
  }
  std::size_t total = 0;
  std::vector<std::byte> value;
  for (std::string& name : names) {
    ssize_t size = fgetxattr(file, name.c_str(), nullptr, 0);
    if (size > 0) {
      value.resize(XATTR_SIZE_MAX);
      size = fgetxattr(file, name.c_str(), value.data(), value.size());
    }
    if (size < 0 && errno != ENODATA && errno != EOPNOTSUPP) {
      return CodeOf(errno, kReadFault);
    }
    if (size < 0) {
      continue;
    }
    total += static_cast<std::size_t>(size);
    if (total > kMostExtended) {
      return kFileTooLarge;
    }
    const auto bytes = std::span(value).first(static_cast<std::size_t>(size));
    state->extended.emplace_back(std::move(name),
                                 std::vector<std::byte>(bytes.begin(), bytes.end()));
  }
  return kSuccess;
}

Code ReadLink(FileAt link, EntryState* state) {
  std::array<char, PATH_MAX> text;
  const ssize_t length = readlinkat(link.folder, link.name, text.data(), text.size());
  if (length < 0) {
    return CodeOf(errno, kReadFault);
  }
  state->kind = EntryKind::Link;
  state->attributes = files::kReparsePoint;
  state->target.assign(text.data(), static_cast<std::size_t>(length));
  return kSuccess;
}

Code ReadNode(int file, const struct stat& status, EntryState* state) {
  const bool isFolder = S_ISDIR(status.st_mode);
  state->kind = isFolder ? EntryKind::Folder : EntryKind::File;
  state->written = static_cast<std::int64_t>(FileTimeOf(status.st_mtim));
  state->size = isFolder ? 0 : static_cast<std::uint64_t>(status.st_size);
  state->mode = status.st_mode & kPermissions;
  const Code code = ReadAttributes(file, status, &state->attributes);
  return code == kSuccess ? ReadExtended(file, state) : code;
}

}  // namespace

bool IsOfState(std::string_view extendedAttribute) {
  constexpr std::string_view kLeftOut[] = {"trusted.overlay.", "user.overlay.", "security.",
                                           "system.ntfs_"};
  const std::string_view name = extendedAttribute;
  return name == kUnlistedDescriptor || name == "security.NTACL" ||
         (name != "user.DOSATTRIB" &&
          std::ranges::none_of(kLeftOut, [name](auto start) { return name.starts_with(start); }));
}

Code ReadEntryStatus(FileAt entry, EntryState* state, files::File* opened) {
  *state = {};
  struct stat status {};
  if (fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return CodeOf(errno);
  }
  if (S_ISLNK(status.st_mode)) {
    return ReadLink(entry, state);
  }
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    return files::kNoRegularFile;
  }
  // O_NONBLOCK: a pipe may have taken the place of the file.
  Descriptor file(openat(entry.folder, entry.name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  if (file.Get() < 0 || fstat(file.Get(), &status) != 0) {
    return CodeOf(errno);
  }
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    return files::kNoRegularFile;
  }
  const Code code = ReadNode(file.Get(), status, state);
  if (opened != nullptr) {
    *opened = files::File(file.Release());
  }
  return code;
}

Code ReadDigest(const files::File& file, EntryState* state) {
  const ByteSource source(file);
  const std::optional<Bytes> digest = WholeDigest(source);
  if (!digest) {
    return kReadFault;
  }
  state->size = source.Size();
  state->digest = cvn::WideToUtf8(cvn::HexText(*digest));
  return kSuccess;
}

Code ReadEntryState(FileAt entry, EntryState* state, files::File* opened) {
  files::File file;
  Code code = ReadEntryStatus(entry, state, &file);
  if (code == kSuccess && state->kind == EntryKind::File) {
    code = ReadDigest(file, state);
  }
  if (opened != nullptr) {
    *opened = std::move(file);
  }
  return code;
}

}  // namespace platform::posix
