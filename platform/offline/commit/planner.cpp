#include "platform/offline/commit/planner.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

using machine::EntryKind;
using machine::EntryState;

auto DepthOf(const CommitPlan::Departure& one) { return std::ranges::count(one.path, '/'); }

// Whether something is to be stored that a new file doesn't have by itself.
bool HasMore(const EntryState& state) {
  constexpr files::Attributes kStored = files::kHidden | files::kSystem | files::kArchive;
  const files::Attributes usual = state.kind == EntryKind::File ? files::kArchive : 0;
  return !state.extended.empty() || (state.attributes & kStored) != usual;
}

Code StatusOf(MachineTree* tree, std::string_view path, struct stat* entry,
              FileAt* place = nullptr) {
  FileAt found{};
  const Code code = tree->Find(path, &found);
  if (code != kSuccess) {
    return code;
  }
  if (place != nullptr) {
    *place = found;
  }
  const bool isFound = fstatat(found.folder, found.name, entry, AT_SYMLINK_NOFOLLOW) == 0;
  return isFound ? kSuccess : CodeOf(errno);
}

}  // namespace

Code Planner::MakePlan(CommitPlan* plan) {
  plan_ = plan;
  flushesAtOnce_ = staging_.CanFlushAtOnce(outline_.Changes().size());
  Code code = FindLinkedFiles();
  for (const OutlinedChange& one : outline_.Changes()) {
    code = code == kSuccess ? Plan(one) : code;
  }
  // What is in a folder leaves before the folder.
  std::ranges::stable_sort(plan->departures, std::ranges::greater(), DepthOf);
  code = code == kSuccess ? TrySettled() : code;
  return code == kSuccess && flushesAtOnce_ ? staging_.FlushAtOnce() : code;
}

// One file under several names can be written in its place only if they all say the same of it.
Code Planner::FindLinkedFiles() {
  for (const OutlinedChange& one : outline_.Changes()) {
    struct stat entry {};
    if (one.Departs() || one.Arrives() || one.KeepsBytes() ||
        one.change->after->kind != EntryKind::File) {
      continue;
    }
    if (const Code code = StatusOf(&tree_, one.target, &entry); code != kSuccess) {
      return code;
    }
    if (entry.st_nlink > 1) {
      const auto [known, isNew] = linked_.try_emplace(Identity(entry.st_dev, entry.st_ino),
                                                      one.change->after->digest, true);
      known->second.second =
          known->second.second && known->second.first == one.change->after->digest;
    }
  }
  return kSuccess;
}

Code Planner::Plan(const OutlinedChange& one) {
  std::uint32_t departed = 0;
  Code code = kSuccess;
  if (!outline_.GoesWithFolder(one)) {
    code = one.Departs() ? PlanDeparture(one, &departed) : kSuccess;
    if (code == kSuccess && one.Arrives()) {
      code = PlanArrival(one, departed);
    } else if (code == kSuccess && one.change->after && !one.KeepsBytes()) {
      code = PlanReplacement(one);
    }
  }
  if (code == kSuccess && one.change->after) {
    Settle(one);
  }
  meter_.Add(one.change->after ? one.change->after->size : 0);
  return code;
}

Code Planner::PlanDeparture(const OutlinedChange& one, std::uint32_t* slot) {
  struct stat entry {};
  Code code = StatusOf(&tree_, one.source, &entry);
  code = code == kSuccess ? OpenFolder(FolderOf(one.source)) : code;
  *slot = ++slots_;
  plan_->departures.push_back({one.source, entry.st_ino, *slot});
  return code;
}

Code Planner::PlanArrival(const OutlinedChange& one, std::uint32_t departed) {
  std::uint32_t slot = 0;
  bool inherits = false;
  Code code = kSuccess;
  if (one.KeepsBytes()) {
    slot = departed;
  } else if (one.change->after->kind != EntryKind::Folder) {
    code = Stage(one, &slot, &inherits);
  }
  code = code == kSuccess ? OpenTarget(FolderOf(one.target)) : code;
  plan_->arrivals.push_back({one.target, slot, inherits});
  return code;
}

Code Planner::PlanReplacement(const OutlinedChange& one) {
  struct stat entry {};
  std::uint32_t slot = 0;
  bool inherits = false;
  Code code = StatusOf(&tree_, one.target, &entry);
  code = code == kSuccess ? Stage(one, &slot, &inherits) : code;
  const auto linked = linked_.find(Identity(entry.st_dev, entry.st_ino));
  if (linked != linked_.end() && linked->second.second) {
    plan_->rewrites.push_back({one.target, slot});
    rewritten_.insert(one.target);
    rewrittenBytes_ += one.change->after->size;
    return code;
  }
  plan_->arrivals.push_back({one.target, slot, inherits});
  return code == kSuccess ? OpenTarget(FolderOf(one.target)) : code;
}

// A file from a slot has all that it is to have, but for one that was there before.
void Planner::Settle(const OutlinedChange& one) {
  const EntryState& after = *one.change->after;
  const std::optional<EntryState>& before = one.change->before;
  const bool isNew = !one.KeepsBytes() && !rewritten_.contains(one.target);
  if (after.kind == EntryKind::Folder ||
      (after.kind == EntryKind::File && !isNew && after != before.value_or(EntryState()))) {
    plan_->settled.push_back({one.target, after});
  }
}

// A folder whose names change, and that its owner may not write to: as READONLY of a folder has it
// on the host, while on Windows that says nothing of its names.
Code Planner::OpenFolder(std::string_view path) {
  if (folders_.contains(path)) {
    return kSuccess;
  }
  folders_.emplace(path);
  FileAt place{};
  struct stat entry {};
  const Code code = StatusOf(&tree_, path, &entry, &place);
  // A root with all privileges may write there as it is; one of a container may not.
  if (code == kSuccess && (entry.st_mode & S_IWUSR) == 0 &&
      faccessat(place.folder, place.name, W_OK, AT_EACCESS) != 0) {
    plan_->opened.push_back({std::string(path), entry.st_mode & 07777});
  }
  return code;
}

// One that comes with the commit is open until its end.
Code Planner::OpenTarget(std::string_view path) {
  const OutlinedChange* made = outline_.ArrivingAt(path);
  return made != nullptr && made->Arrives() ? kSuccess : OpenFolder(path);
}

Code Planner::Stage(const OutlinedChange& one, std::uint32_t* slot, bool* inherits) {
  *slot = ++slots_;
  if (one.change->after->kind == EntryKind::File) {
    return StageFile(one, *slot, inherits);
  }
  const SlotName name(*slot);
  const FileAt place = name.In(staging_);
  return symlinkat(one.change->after->target.c_str(), place.folder, place.name) == 0
             ? kSuccess
             : CodeOf(errno);
}

Code Planner::StageFile(const OutlinedChange& one, std::uint32_t slot, bool* inherits) {
  Descriptor made;
  Code code = staging_.MakeFile(slot, &made);
  if (code != kSuccess) {
    return code;
  }
  files::File file(made.Release());
  code = StageBytes(one, &file);
  code = code == kSuccess ? TakeOver(one, file) : code;
  const SlotName name(slot);
  code = code == kSuccess ? WriteEntryState(name.In(staging_), *one.change->after) : code;
  EntryState staged;
  code = code == kSuccess ? ReadEntryStatus(name.In(staging_), &staged) : code;
  *inherits = one.Arrives() && HasUnseenDescriptor(staged, *one.change->after);
  return code == kSuccess && !flushesAtOnce_ ? file.Flush() : code;
}

Code Planner::StageBytes(const OutlinedChange& one, files::File* file) {
  files::File from;
  struct stat entry {};
  Code code = bytes_.Open(*one.change, machine::Side::After, &from);
  if (code == kSuccess && fstat(static_cast<int>(from.Handle()), &entry) != 0) {
    code = CodeOf(errno);
  }
  if (code == kSuccess) {
    code = CopyContent(static_cast<int>(from.Handle()), entry, static_cast<int>(file->Handle()));
  }
  EntryState staged;
  code = code == kSuccess ? ReadDigest(*file, &staged) : code;
  const EntryState& after = *one.change->after;
  const bool isSame = staged.digest == after.digest && staged.size == after.size;
  return code == kSuccess && !isSame ? machine::kCorrupt : code;
}

// Hands on what the states don't tell of a file that is replaced, like its owner.
Code Planner::TakeOver(const OutlinedChange& one, const files::File& staged) {
  if (one.Arrives()) {
    return kSuccess;
  }
  FileAt place{};
  const Code code = tree_.Find(one.target, &place);
  if (code != kSuccess) {
    return code;
  }
  const Descriptor old(
      openat(place.folder, place.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat entry {};
  if (old.Get() < 0 || fstat(old.Get(), &entry) != 0) {
    return CodeOf(errno);
  }
  return CopyMetadata(old.Get(), entry, static_cast<int>(staged.Handle()));
}

// What the volume can't store has to show before the commit begins.
Code Planner::TrySettled() const {
  Code code = kSuccess;
  for (const CommitPlan::Settled& one : plan_->settled) {
    if (code != kSuccess || !HasMore(one.state)) {
      continue;
    }
    const bool isFolder = one.state.kind == EntryKind::Folder;
    const SlotName name(0);
    const FileAt probe = name.In(staging_);
    Descriptor file;
    code = isFolder ? staging_.MakeFolder(0) : staging_.MakeFile(0, &file);
    code = code == kSuccess ? WriteEntryState(probe, one.state) : code;
    unlinkat(probe.folder, probe.name, isFolder ? AT_REMOVEDIR : 0);
  }
  return code;
}

}  // namespace platform::posix
