// What differs between a machine before and after: the words in which a rehearsal tells it, and in
// which it is committed and taken back.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/files.h"
#include "support/containers.h"
#include "support/string.h"

namespace platform::machine {

enum class EntryKind { File, Folder, Link };

// What is to be known of a file, folder or link, and compared.
struct EntryState {
  EntryKind kind = EntryKind::File;
  // As files::GetAttributes gives them; of a link kReparsePoint alone.
  files::Attributes attributes = 0;
  std::int64_t written = 0;  // time of a file's or folder's last write, 100 ns since 1601
  std::uint64_t size = 0;    // of a file's bytes
  std::string digest;        // of them: SHA-256 in lower-case hexadecimal
  std::string target;        // of a link, as the host has it stored
  std::uint32_t mode = 0;    // the host's permission bits
  // The host's extended attributes but for those that hold `attributes`: named streams, security
  // descriptors, by their names in order.
  std::vector<std::pair<std::string, std::vector<std::byte>>> extended;
  bool operator==(const EntryState&) const = default;
};

struct FileChange {
  cvn::String path;                  // C:\..., spelled as the volume spells it
  cvn::String movedFrom;             // where it stood before; empty when it wasn't moved
  std::optional<EntryState> before;  // none of what was added; of a moved one that of movedFrom
  std::optional<EntryState> after;   // none of what was removed
};

struct ValueState {
  std::uint32_t type = 0;
  std::vector<std::byte> data;
  bool operator==(const ValueState&) const = default;
};

struct ValueChange {
  cvn::String name;  // empty for the key's default value
  std::optional<ValueState> before;
  std::optional<ValueState> after;
  bool operator==(const ValueChange&) const = default;
};

struct KeyState {
  cvn::String className;
  bool isLink = false;
  std::vector<std::byte> security;  // a self-relative security descriptor
  bool operator==(const KeyState&) const = default;
};

struct KeyChange {
  cvn::String hive;  // the hive's file, C:\...
  cvn::String path;  // from the hive's root, names separated by '\'; empty for the root
  std::optional<KeyState> before;  // none of a key that was added
  std::optional<KeyState> after;   // none of a key that was removed
  cvn::List<ValueChange> values;   // those that differ, by their names
  bool operator==(const KeyChange&) const = default;
};

// The order of paths: what contains something comes right before what is in it.
inline bool ComesBefore(cvn::StringView left, cvn::StringView right) {
  const auto rank = [](char16_t unit) { return unit == u'\\' ? 0 : unit + 1; };
  return std::ranges::lexicographical_compare(left, right, {}, rank, rank);
}

// Files by path, and keys by hive and path, in the order of ComesBefore. A file that is a hive of
// the registry is not among the files when it was one before and after, nor are logs of such hives.
// Of a folder that has moved, all that is in it follows, moved too.
struct ChangeSet {
  cvn::List<FileChange> files;
  cvn::List<KeyChange> keys;
  bool IsEmpty() const { return files.empty() && keys.empty(); }
};

enum class Side { Before, After };

// Where the bytes of changed files are to be had: in a view and the machine below it, or in a kept
// set.
class ChangeBytes {
 public:
  virtual ~ChangeBytes() = default;
  // Opens the bytes of a file on one side, for reading. 2 when there are none.
  virtual Code Open(const FileChange& change, Side side, files::File* file) = 0;
};

}  // namespace platform::machine
