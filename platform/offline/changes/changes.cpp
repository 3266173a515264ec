#include "platform/offline/changes/changes.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "platform/linux/error_map.h"
#include "platform/linux/file_names.h"
#include "platform/linux/open_below.h"
#include "platform/offline/changes/moves.h"
#include "platform/offline/changes/tree_comparison.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

using machine::ChangeSet;
using machine::FileChange;
using machine::Side;

// A file in a folder that is held, or none.
HostPath PlaceIn(const std::shared_ptr<const Descriptor>& folder, const std::string& name) {
  HostPath place;
  place.spelling = "/" + name;
  place.name = name;
  place.onMachine = true;  // no link is a hive
  place.folder = folder;
  return place;
}

bool IsThere(const HostPath& place) {
  struct stat status {};
  const auto [folder, name] = place.At();
  return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
}

// The hives of the machine, before and in the view.
class HiveChanges {
 public:
  HiveChanges(const ViewFolder& view, ChangeSet* changes) : view_(view), changes_(*changes) {}

  // Appends what differs in the hives that can be compared, and tells their files.
  void Collect(Places* files) {
    const std::string& root = Machine::Get().Root();
    for (const std::string& hive : HivesOfMachine()) {
      if (IsWithin(hive, root) && hive.size() > root.size()) {
        Compare(hive.substr(root.size() + 1), files);
      }
    }
  }

 private:
  // A folder that leads to a hive, on both sides.
  struct Folders {
    std::string path;  // with a slash at the end, if there is any
    std::shared_ptr<const Descriptor> before;
    std::shared_ptr<const Descriptor> after;
    bool isLayered = true;  // what isn't in the folder after is seen from before
  };

  static std::shared_ptr<const Descriptor> OpenFolder(int root, const std::string& path) {
    return std::make_shared<Descriptor>(
        OpenBelow(root, path.empty() ? "." : path, O_RDONLY | O_DIRECTORY));
  }

  Folders FindFolders(const std::string& hive) const {
    Folders folders;
    folders.path = hive.substr(0, hive.rfind('/') + 1);
    folders.before = OpenFolder(Machine::Get().Folder()->Get(), folders.path);
    folders.after = OpenFolder(view_.folder->Get(), folders.path);
    folders.isLayered = view_.IsLayer();
    for (std::size_t end = folders.path.find('/'); folders.isLayered && end != std::string::npos;
         end = folders.path.find('/', end + 1)) {
      const auto folder = OpenFolder(view_.folder->Get(), folders.path.substr(0, end));
      folders.isLayered = !IsOpaque(folder->Get(), view_);
    }
    return folders;
  }

  // The file of the view; whether the view has one of its own.
  static HostPath AfterOf(const Folders& folders, const HostPath& before, bool* isOwn) {
    HostPath after = PlaceIn(folders.after, before.At().name);
    struct stat status {};
    *isOwn = fstatat(after.At().folder, after.At().name, &status, AT_SYMLINK_NOFOLLOW) == 0;
    return *isOwn || !folders.isLayered ? after : before;
  }

  void Compare(const std::string& hive, Places* files) {
    const Folders folders = FindFolders(hive);
    HiveFiles before;
    HiveFiles after;
    bool isChanged = !view_.IsLayer();
    const auto find = [&](const HostPath& place, HostPath* was, HostPath* is) {
      bool isOwn = false;
      *was = place;
      *is = AfterOf(folders, place, &isOwn);
      isChanged = isChanged || isOwn;
    };
    find(PlaceIn(folders.before, hive.substr(folders.path.size())), &before.primary,
         &after.primary);
    for (std::size_t i = 0; i < kHiveLogs.size(); ++i) {
      find(LogOf(before.primary, folders, kHiveLogs[i]), &before.logs[i], &after.logs[i]);
    }
    cvn::String name;
    if (!isChanged || !IsThere(before.primary) || !IsThere(after.primary) ||
        !ToMachinePath(hive, &name) ||
        CompareHives(before, after, name, &changes_.keys) != kSuccess) {
      return;
    }
    files->insert(hive);
    for (const HostPath& log : before.logs) {
      files->insert(folders.path + log.At().name);
    }
  }

  // The log as the machine spells it, or as it would be made.
  static HostPath LogOf(const HostPath& hive, const Folders& folders, const char* ending) {
    HostPath log;
    log.spelling = Machine::Get().Root() + '/' + folders.path + hive.At().name + ending;
    log.onMachine = true;
    IgnoreError(ResolveSpelling(&log));  // where there is none, it is spelled like the hive
    return PlaceIn(folders.before, log.At().name);
  }

  const ViewFolder& view_;
  ChangeSet& changes_;
};

}  // namespace

ViewDifference::ViewDifference(ViewFolder view) : view_(std::move(view)) {}

Code ViewDifference::Collect(ChangeSet* changes) const {
  *changes = {};
  Places hives;
  HiveChanges(view_, changes).Collect(&hives);
  Code code = CompareTrees(Machine::Get().Folder()->Get(), view_, hives, &changes->files);
  std::ranges::sort(changes->files, machine::ComesBefore,
                    [](const FileChange& change) { return change.path.AsView(); });
  FindMoves(&changes->files);
  code = code == kSuccess ? TakeOverMoved(&changes->files) : code;
  std::ranges::stable_sort(changes->keys, machine::ComesBefore,
                           [](const machine::KeyChange& change) { return change.hive.AsView(); });
  return code;
}

// Only now it is known what each was before.
Code ViewDifference::TakeOverMoved(cvn::List<FileChange>* changes) const {
  for (FileChange& change : *changes) {
    if (change.movedFrom.Empty() || change.before->kind == machine::EntryKind::Link) {
      continue;
    }
    constexpr int kFlags = O_RDONLY | O_NONBLOCK;
    const int machine = Machine::Get().Folder()->Get();
    const files::File before(OpenBelow(machine, PlaceOf(change.movedFrom), kFlags));
    const files::File after(OpenBelow(view_.folder->Get(), PlaceOf(change.path), kFlags));
    if (!before.IsOpen() || !after.IsOpen()) {
      return CodeOf(errno);
    }
    TakeOverLost(before, *change.before, after, &*change.after);
  }
  return kSuccess;
}

Code ViewDifference::Open(const FileChange& change, Side side, files::File* file) {
  const bool isBefore = side == Side::Before;
  const auto& state = isBefore ? change.before : change.after;
  if (!state || state->kind != machine::EntryKind::File) {
    return Fail(kFileNotFound);
  }
  const cvn::String& path = isBefore && !change.movedFrom.Empty() ? change.movedFrom : change.path;
  const int root = isBefore ? Machine::Get().Folder()->Get() : view_.folder->Get();
  const Descriptor found(OpenBelow(root, PlaceOf(path), O_PATH));
  struct stat status {};
  if (found.Get() < 0 || fstat(found.Get(), &status) != 0) {
    return Fail(CodeOf(errno));
  }
  if (!S_ISREG(status.st_mode)) {
    return Fail(kFileNotFound);
  }
  *file = files::File(OpenFound(found.Get(), O_RDONLY));
  return file->IsOpen() ? kSuccess : Fail(CodeOf(errno));
}

}  // namespace platform::posix
