#include "platform/offline/commit/comparison.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <span>
#include <string>
#include <utility>

#include "platform/formats/names.h"
#include "platform/held_folder.h"
#include "platform/linux/account.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/offline/commit/hives.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/volume/volume.h"
#include "support/format.h"

namespace platform::posix {
namespace {

using machine::Conflict;
using machine::EntryKind;
using machine::EntryState;

constexpr std::size_t kMostConflicts = 1000;
constexpr cvn::StringView kIsMissing = u"is missing";

// The attributes that can be stored.
constexpr files::Attributes kCompared =
    files::kReadOnly | files::kHidden | files::kSystem | files::kArchive;

cvn::StringView KindName(EntryKind kind) {
  return kind == EntryKind::File ? u"file" : kind == EntryKind::Folder ? u"folder" : u"link";
}

// Why an entry can't be found; empty for another failure.
cvn::StringView ProblemOf(Code code) {
  switch (code) {
    case kFileNotFound:
    case kPathNotFound:
      return kIsMissing;
    case kNotSameDevice:
      return u"lies in another file system, which is mounted there";
    case kCantResolveFilename:
      return u"has a link among the folders on its way";
    case files::kNoRegularFile:
      return u"is a pipe, a socket or a device now";
    default:
      return {};
  }
}

// Why a hive can't take changes that fit it otherwise; empty for another failure. It would stop the
// commit in its middle.
cvn::StringView KeyProblemOf(Code code) {
  switch (code) {
    case kAccessDenied:
      return u"is read-only, or has a key that may not be deleted";
    case kFileNotFound:
      return u"has no key that a new one can be in";
    case kInvalidParameter:
      return u"can't have a key that deep, or of that name";
    default:
      return {};
  }
}

// What an entry differs in apart from its bytes; empty for nothing.
cvn::String DifferenceOf(const EntryState& found, const EntryState& expected) {
  if (found.kind != expected.kind) {
    return cvn::Format(u"is a %s now", KindName(found.kind));
  }
  if (found.kind == EntryKind::Link) {
    return found.target == expected.target ? u"" : u"leads elsewhere";
  }
  if (((found.attributes ^ expected.attributes) & kCompared) != 0) {
    return u"has other attributes";
  }
  const bool isUnseen = HasUnseenDescriptor(found, expected);
  if (!isUnseen && found.mode != expected.mode) {
    return u"has other permissions";
  }
  // By their names in order, and all but the descriptor that was not seen.
  const bool isSame = found.extended.size() == expected.extended.size() + (isUnseen ? 1 : 0) &&
                      std::ranges::includes(found.extended, expected.extended);
  if (!isSame) {
    return u"has other extended attributes";
  }
  return found.size == expected.size ? u"" : u"has other bytes";
}

// By an attribute that binds every account.
bool IsKept(const struct statx& status) {
  return (status.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
}

class Comparison {
 public:
  Comparison(const Outline& outline, MachineTree* tree, Meter* meter,
             cvn::List<Conflict>* conflicts)
      : outline_(outline), tree_(*tree), meter_(*meter), conflicts_(*conflicts) {}

  Code Compare();
  Code CompareKeys(std::span<const machine::KeyChange> hive);
  bool IsFull() const { return conflicts_.size() >= kMostConflicts; }

 private:
  Code CompareSource(const OutlinedChange& one);
  Code CompareBytes(const OutlinedChange& one, files::File file);
  void CheckOwner(const OutlinedChange& one, const files::File& file, FileAt place);
  Code CheckNames(const OutlinedChange& one, const files::File& folder);
  Code CheckTarget(const OutlinedChange& one);
  Code CheckFolder(std::string_view path, const cvn::String& name);
  void CheckOtherSpelling(const OutlinedChange& one);

  void Add(const cvn::String& place, cvn::StringView problem) {
    conflicts_.push_back({place, problem});
  }
  static const cvn::String& PlaceBefore(const OutlinedChange& one) {
    return one.IsMoved() ? one.change->movedFrom : one.change->path;
  }
  // A conflict where the code is one, else a failure.
  Code AddOr(Code code, const cvn::String& place) {
    const cvn::StringView problem = ProblemOf(code);
    if (problem.empty()) {
      return code;
    }
    Add(place, problem);
    return kSuccess;
  }

  const Outline& outline_;
  MachineTree& tree_;
  Meter& meter_;
  cvn::List<Conflict>& conflicts_;
  std::string checkedFolder_ = "/";  // the last that was found to take names
};

Code Comparison::Compare() {
  for (const OutlinedChange& one : outline_.Changes()) {
    Code code = one.change->before ? CompareSource(one) : kSuccess;
    if (code == kSuccess && one.Departs()) {
      code = CheckFolder(FolderOf(one.source), PlaceBefore(one));
    }
    if (code == kSuccess && one.Arrives()) {
      code = CheckTarget(one);
    }
    if (code != kSuccess || IsFull()) {
      return code;
    }
    meter_.Add(one.change->before ? one.change->before->size : 0);
  }
  return kSuccess;
}

Code Comparison::CompareSource(const OutlinedChange& one) {
  const EntryState& expected = *one.change->before;
  const cvn::String& name = PlaceBefore(one);
  FileAt place{};
  EntryState found;
  files::File file;
  Code code = tree_.Find(one.source, &place);
  code = code == kSuccess ? ReadEntryStatus(place, &found, &file) : code;
  if (code != kSuccess) {
    return AddOr(code, name);
  }
  if (const cvn::String difference = DifferenceOf(found, expected); !difference.Empty()) {
    Add(name, difference);
    return kSuccess;
  }
  CheckOwner(one, file, place);
  if (expected.kind == EntryKind::Folder) {
    return one.Departs() && !one.IsMoved() ? CheckNames(one, file) : kSuccess;
  }
  return expected.kind == EntryKind::File ? CompareBytes(one, std::move(file)) : kSuccess;
}

Code Comparison::CompareBytes(const OutlinedChange& one, files::File file) {
  EntryState found;
  const Code code = ReadDigest(file, &found);
  if (code == kSuccess &&
      (found.digest != one.change->before->digest || found.size != one.change->before->size)) {
    Add(PlaceBefore(one), u"has other bytes");
  }
  return code;
}

// What this account may not change would stop the commit in its middle.
void Comparison::CheckOwner(const OutlinedChange& one, const files::File& file, FileAt place) {
  struct statx status {};
  const bool isLink = !file.IsOpen();
  const int folder = isLink ? place.folder : static_cast<int>(file.Handle());
  const int flags = isLink ? AT_SYMLINK_NOFOLLOW : AT_EMPTY_PATH;
  if (statx(folder, isLink ? place.name : "", flags, STATX_UID, &status) != 0) {
    return;
  }
  if (IsKept(status)) {
    Add(PlaceBefore(one), u"is kept from changes by the host (chattr)");
  } else if (status.stx_uid != geteuid() && !OverridesOwners()) {
    Add(PlaceBefore(one), u"belongs to another account");
  }
}

// A folder that goes takes nothing with it that the changes don't name.
Code Comparison::CheckNames(const OutlinedChange& one, const files::File& folder) {
  const FileAt opened{static_cast<int>(folder.Handle()), "."};
  return CodeOf(ForEachEntry(opened, 0, [&](const dirent& entry) {
    if (outline_.DepartingFrom(one.source + '/' + entry.d_name) == nullptr) {
      Add(PlaceBefore(one),
          cvn::Format(u"holds '%s', which is none of the changes", ToWide(entry.d_name)));
    }
    return !IsFull();
  }));
}

Code Comparison::CheckTarget(const OutlinedChange& one) {
  if (outline_.GoesWithFolder(one)) {
    return kSuccess;
  }
  const std::string_view folder = FolderOf(one.target);
  if (const OutlinedChange* made = outline_.ArrivingAt(folder);
      made != nullptr && made->Arrives()) {
    if (made->change->after->kind != EntryKind::Folder) {
      Add(one.change->path, u"has no folder");
    }
    return kSuccess;
  }
  if (outline_.DepartingFrom(folder) != nullptr) {
    Add(one.change->path, u"has no folder");
    return kSuccess;
  }
  FileAt place{};
  if (const Code code = tree_.Find(one.target, &place); code != kSuccess) {
    return AddOr(code, one.change->path);
  }
  struct stat entry {};
  if (fstatat(place.folder, place.name, &entry, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) {
      return CodeOf(errno);
    }
    CheckOtherSpelling(one);
  } else if (outline_.DepartingFrom(one.target) == nullptr) {
    Add(one.change->path, u"is there already");
  }
  return CheckFolder(folder, one.change->path);
}

// Windows would take two names that differ in case alone for one.
void Comparison::CheckOtherSpelling(const OutlinedChange& one) {
  cvn::String literal = u"\\\\?\\";
  literal.Append(one.change->path);
  HostPath host;
  if (Resolve(literal, &host) != kSuccess || host.entry.st_mode == 0) {
    return;
  }
  std::string below;
  const cvn::String spelled = ToMachinePath(host.spelling);
  if (ToPathBelow(spelled, &below) && outline_.DepartingFrom(below) == nullptr) {
    Add(one.change->path, cvn::Format(u"is there already, spelled '%s'", spelled));
  }
}

// Names can come and go in a folder that may be written to, or that is this account's, which then
// may make it so.
Code Comparison::CheckFolder(std::string_view path, const cvn::String& name) {
  if (path == checkedFolder_) {
    return kSuccess;
  }
  checkedFolder_ = path;
  FileAt place{};
  struct statx status {};
  const Code code = tree_.Find(path, &place);
  if (code != kSuccess ||
      statx(place.folder, place.name, AT_SYMLINK_NOFOLLOW, STATX_UID, &status) != 0) {
    return AddOr(code == kSuccess ? CodeOf(errno) : code, name);
  }
  if (IsKept(status)) {
    Add(name, u"lies in a folder that is kept from changes by the host (chattr)");
  } else if (status.stx_uid != geteuid() &&
             faccessat(place.folder, place.name, W_OK | X_OK, AT_EACCESS) != 0) {
    Add(name, u"lies in a folder that this account may not write to");
  }
  return kSuccess;
}

Code Comparison::CompareKeys(std::span<const machine::KeyChange> hive) {
  HostPath place;
  std::vector<std::size_t> others;
  Code code = Resolve(hive.front().hive, &place);
  code = code == kSuccess ? FindOtherKeys(place, hive, machine::Side::Before, &others) : code;
  if (code != kSuccess) {
    return AddOr(code, hive.front().hive);
  }
  for (const std::size_t index : others) {
    if (IsFull()) {
      break;
    }
    Add(cvn::Format(u"%s: %s", hive[index].hive, hive[index].path),
        u"is another key, or has other values");
  }
  code = others.empty() ? TryKeyChanges(place, hive, machine::Side::After) : kSuccess;
  if (const cvn::StringView problem = KeyProblemOf(code); !problem.empty()) {
    Add(hive.front().hive, problem);
    return kSuccess;
  }
  return code;
}

}  // namespace

Code FindConflicts(const machine::ChangeSet& changes, const Outline& outline, MachineTree* tree,
                   Meter* meter, cvn::List<Conflict>* conflicts) {
  Comparison comparison(outline, tree, meter, conflicts);
  const Code code = comparison.Compare();
  return code == kSuccess && !comparison.IsFull()
             ? ForEachHive(changes.keys, [&](auto hive) { return comparison.CompareKeys(hive); })
             : code;
}

}  // namespace platform::posix
