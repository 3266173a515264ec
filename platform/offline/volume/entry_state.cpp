#include "platform/offline/volume/entry_state.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/byte_source.h"
#include "platform/file_digest.h"
#include "platform/held_folder.h"
#include "platform/linux/error_map.h"
#include "platform/linux/file_time.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/extended_attributes.h"
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
  const Code code = ListExtended(file, names);
  std::erase_if(*names, [](const std::string& name) {
    return !IsOfState(name) || name == kUnlistedDescriptor;
  });
  names->emplace_back(kUnlistedDescriptor);
  std::ranges::sort(*names);
  return code;
}

Code ReadAllExtended(int file, EntryState* state) {
  std::vector<std::string> names;
  Code code = ListNames(file, &names);
  std::size_t total = 0;
  std::vector<std::byte> value;
  for (auto name = names.begin(); code == kSuccess && name != names.end(); ++name) {
    bool isThere = false;
    code = ReadExtended(file, name->c_str(), &value, &isThere);
    total += value.size();
    if (code == kSuccess && total > kMostExtended) {
      code = kFileTooLarge;
    }
    if (code == kSuccess && isThere) {
      state->extended.emplace_back(std::move(*name), std::move(value));
    }
  }
  return code;
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
  return code == kSuccess ? ReadAllExtended(file, state) : code;
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
