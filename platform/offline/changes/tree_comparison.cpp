#include "platform/offline/changes/tree_comparison.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>
#include <vector>

#include "platform/formats/names.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/linux/open_below.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

using machine::EntryKind;
using machine::EntryState;

constexpr std::size_t kMostChanges = 1'000'000;
constexpr std::size_t kMostNames = 1'000'000;  // of one folder

bool IsBefore(const timespec& left, const timespec& right) {
  return left.tv_sec != right.tv_sec ? left.tv_sec < right.tv_sec : left.tv_nsec < right.tv_nsec;
}

bool HasExtended(const files::File& file, const char* name) {
  return file.IsOpen() && fgetxattr(static_cast<int>(file.Handle()), name, nullptr, 0) >= 0;
}

// A folder that is there on one side or both.
struct Folder {
  std::string path;
  bool hasBefore = true;
  bool hasAfter = true;
  // Of an overlay: of what isn't in the folder after, the one before is seen.
  bool isLayer = false;
  // Of a copy: none of the folders that lead here has got its name since it was made.
  bool isInPlace = false;
};

// What has a name in it on one side; nothing without a mode.
using Entry = struct stat;

class TreeComparison {
 public:
  TreeComparison(int before, const ViewFolder& view, const Places& leftOut,
                 cvn::List<machine::FileChange>* changes)
      : before_(before), view_(view), leftOut_(leftOut), changes_(*changes) {}

  Code Run() {
    pending_.push_back(
        {.path = ".", .isLayer = view_.IsLayer(), .isInPlace = view_.completedAt.has_value()});
    Code code = kSuccess;
    while (code == kSuccess && !pending_.empty()) {
      const Folder folder = std::move(pending_.back());
      pending_.pop_back();
      code = CompareFolder(folder);
    }
    return code;
  }

 private:
  Code CompareFolder(Folder folder) {
    Descriptor before;
    Descriptor after;
    std::set<std::string> names;
    Code code = folder.hasBefore ? OpenFolder(before_, folder.path, &before) : kSuccess;
    if (code == kSuccess && folder.hasAfter) {
      code = OpenFolder(view_.folder->Get(), folder.path, &after);
      folder.isLayer = folder.isLayer && !IsOpaque(after.Get(), view_);
      code = code == kSuccess ? AddNames(after, &names) : code;
    }
    if (code == kSuccess && folder.hasBefore && !folder.isLayer) {
      code = AddNames(before, &names);
    }
    for (auto name = names.begin(); code == kSuccess && name != names.end(); ++name) {
      code = CompareEntry(folder, {before.Get(), name->c_str()}, {after.Get(), name->c_str()});
    }
    return code;
  }

  static Code OpenFolder(int root, const std::string& path, Descriptor* folder) {
    folder->Reset(OpenBelow(root, path, O_RDONLY | O_DIRECTORY));
    return folder->Get() < 0 ? CodeOf(errno) : kSuccess;
  }

  static Code AddNames(const Descriptor& folder, std::set<std::string>* names) {
    const int error = ForEachEntry({folder.Get(), "."}, 0, [names](const dirent& entry) {
      names->emplace(entry.d_name);
      return names->size() <= kMostNames;
    });
    return names->size() > kMostNames ? kNotEnoughMemory : CodeOf(error, kReadFault);
  }

  // What no volume of Windows has (a pipe, a device) isn't there; and a device is how an overlay
  // marks what is gone.
  static Code Look(FileAt place, Entry* entry) {
    *entry = {};
    if (place.folder < 0) {
      return kSuccess;
    }
    if (fstatat(place.folder, place.name, entry, AT_SYMLINK_NOFOLLOW) != 0) {
      const int error = errno;
      *entry = {};
      return error == ENOENT ? kSuccess : CodeOf(error);
    }
    if (!S_ISREG(entry->st_mode) && !S_ISDIR(entry->st_mode) && !S_ISLNK(entry->st_mode)) {
      *entry = {};
    }
    return kSuccess;
  }

  Code CompareEntry(const Folder& folder, FileAt before, FileAt after) {
    const std::string path =
        folder.path == "." ? std::string(after.name) : folder.path + '/' + after.name;
    if (path.size() >= PATH_MAX) {
      return kFilenameExceedsRange;
    }
    Entry was;
    Entry is;
    Code code = Look(before, &was);
    code = code == kSuccess ? Look(after, &is) : code;
    if (code != kSuccess || leftOut_.contains(path)) {
      return code;
    }
    const bool isInPlace = folder.isInPlace && IsInPlace(is);
    if (S_ISDIR(was.st_mode) || S_ISDIR(is.st_mode)) {
      const bool hasBefore = S_ISDIR(was.st_mode);
      const bool hasAfter = S_ISDIR(is.st_mode);
      pending_.push_back({.path = path,
                          .hasBefore = hasBefore,
                          .hasAfter = hasAfter,
                          .isLayer = folder.isLayer && hasBefore && hasAfter,
                          .isInPlace = isInPlace});
    }
    return isInPlace && IsUntouched(was, is) ? kSuccess
                                             : CompareStates(path, before, was, after, is);
  }

  // A new name gives a new time of change, but none of the last write.
  bool IsInPlace(const Entry& is) const {
    return IsBefore(is.st_ctim, *view_.completedAt) || !IsBefore(is.st_mtim, *view_.completedAt);
  }

  bool IsUntouched(const Entry& was, const Entry& is) const {
    return was.st_mode == is.st_mode && was.st_size == is.st_size &&
           IsBefore(is.st_ctim, *view_.completedAt) && !IsBefore(was.st_mtim, is.st_mtim) &&
           !IsBefore(is.st_mtim, was.st_mtim);
  }

  Code CompareStates(const std::string& path, FileAt before, const Entry& was, FileAt after,
                     const Entry& is) {
    machine::FileChange change;
    files::File beforeFile;
    files::File afterFile;
    Code code = ReadStatus(before, was, &change.before, &beforeFile);
    code = code == kSuccess ? ReadStatus(after, is, &change.after, &afterFile) : code;
    if (code != kSuccess) {
      return code;
    }
    if (change.before && change.after) {
      TakeOverLost(beforeFile, *change.before, afterFile, &*change.after);
    }
    const auto isFile = [](const auto& state) { return state && state->kind == EntryKind::File; };
    if (change.before != change.after || isFile(change.before)) {
      code = isFile(change.before) ? ReadDigest(beforeFile, &*change.before) : code;
      code =
          code == kSuccess && isFile(change.after) ? ReadDigest(afterFile, &*change.after) : code;
    }
    if (code != kSuccess || change.before == change.after) {
      return code;
    }
    if (!ToMachinePath(path, &change.path)) {
      return kInvalidName;
    }
    changes_.push_back(std::move(change));
    return changes_.size() > kMostChanges ? kNotEnoughMemory : kSuccess;
  }

  static Code ReadStatus(FileAt place, const Entry& entry, std::optional<EntryState>* state,
                         files::File* file) {
    return entry.st_mode == 0 ? kSuccess : ReadEntryStatus(place, &state->emplace(), file);
  }

  const int before_;
  const ViewFolder& view_;
  const Places& leftOut_;
  cvn::List<machine::FileChange>& changes_;
  std::vector<Folder> pending_;
};

}  // namespace

void TakeOverLost(const files::File& before, const EntryState& was, const files::File& after,
                  EntryState* is) {
  constexpr const char* kNtfsAttributes = "system.ntfs_attrib_be";
  constexpr std::string_view kNtfsDescriptor = "system.ntfs_acl";
  if (!HasExtended(before, kNtfsAttributes) || HasExtended(after, kNtfsAttributes)) {
    return;
  }
  if (!HasExtended(after, "user.DOSATTRIB")) {
    constexpr files::Attributes kStored = files::kHidden | files::kSystem | files::kArchive;
    const files::Attributes taken = kStored | (was.mode == is->mode ? files::kReadOnly : 0);
    const files::Attributes all =
        ((is->attributes & ~taken) | (was.attributes & taken)) & ~files::kNormal;
    is->attributes = all == 0 ? files::kNormal : all;
  }
  const auto descriptor =
      std::ranges::find(was.extended, kNtfsDescriptor, &decltype(was.extended)::value_type::first);
  if (descriptor != was.extended.end()) {
    is->extended.push_back(*descriptor);
    std::ranges::sort(is->extended);
  }
}

bool ToMachinePath(std::string_view below, cvn::String* path) {
  std::string text = "C:/";
  text += below;
  const bool canBeSaid = below.find('\\') == std::string_view::npos;
  std::ranges::replace(text, '/', '\\');
  *path = ToWide(text);
  return canBeSaid;
}

std::string PlaceOf(cvn::StringView machinePath) {
  std::string text;
  AppendHostText(machinePath.substr(std::min(machinePath.find(u'\\') + 1, machinePath.size())),
                 &text);
  std::ranges::replace(text, '\\', '/');
  return text;
}

bool IsOpaque(int folder, const ViewFolder& view) {
  char value = '\0';
  return fgetxattr(folder, view.hidingMark, &value, sizeof(value)) == 1 && value == 'y';
}

Code CompareTrees(int before, const ViewFolder& view, const Places& leftOut,
                  cvn::List<machine::FileChange>* changes) {
  return TreeComparison(before, view, leftOut, changes).Run();
}

}  // namespace platform::posix
