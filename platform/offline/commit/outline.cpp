#include "platform/offline/commit/outline.h"

#include <strings.h>

#include "platform/offline/commit/machine_tree.h"
#include "platform/offline/commit/staging.h"

namespace platform::posix {
namespace {

std::string_view NameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// Windows takes no notice of the case.
bool IsOfCommits(std::string_view path) {
  constexpr std::string_view kOwn = kCommitFolder;
  return path.substr(0, path.find('/')).size() == kOwn.size() &&
         strncasecmp(path.data(), kOwn.data(), kOwn.size()) == 0;
}

const OutlinedChange* FindIn(
    const std::unordered_map<std::string_view, const OutlinedChange*>& changes,
    std::string_view path) {
  const auto found = changes.find(path);
  return found == changes.end() ? nullptr : found->second;
}

}  // namespace

bool OutlinedChange::Departs() const {
  return change->before &&
         (!change->after || IsMoved() || change->before->kind != change->after->kind);
}

bool OutlinedChange::Arrives() const {
  return change->after &&
         (!change->before || IsMoved() || change->before->kind != change->after->kind);
}

bool OutlinedChange::KeepsBytes() const {
  const std::optional<machine::EntryState>& before = change->before;
  const std::optional<machine::EntryState>& after = change->after;
  return before && after && before->kind == after->kind && before->size == after->size &&
         before->digest == after->digest && before->target == after->target;
}

Code Outline::Read(const machine::ChangeSet& changes) {
  changes_.reserve(changes.files.size());
  for (const machine::FileChange& change : changes.files) {
    OutlinedChange& one = changes_.emplace_back();
    one.change = &change;
    const cvn::StringView from =
        change.movedFrom.Empty() ? change.path.AsView() : change.movedFrom.AsView();
    const bool isSound = ToPathBelow(change.path, &one.target) && ToPathBelow(from, &one.source) &&
                         (change.before || change.after) &&
                         (!one.IsMoved() || (change.before && change.after)) &&
                         !IsOfCommits(one.target) && !IsOfCommits(one.source);
    if (!isSound || (one.target.empty() && (one.Departs() || one.Arrives()))) {
      return kInvalidParameter;
    }
  }
  for (const OutlinedChange& one : changes_) {
    if ((one.Departs() && !departing_.emplace(one.source, &one).second) ||
        (one.change->after && !arriving_.emplace(one.target, &one).second)) {
      return kInvalidParameter;
    }
  }
  return kSuccess;
}

const OutlinedChange* Outline::DepartingFrom(std::string_view path) const {
  return FindIn(departing_, path);
}

const OutlinedChange* Outline::ArrivingAt(std::string_view path) const {
  return FindIn(arriving_, path);
}

bool Outline::GoesWithFolder(const OutlinedChange& one) const {
  if (!one.Departs()) {
    return false;
  }
  const OutlinedChange* folder = DepartingFrom(FolderOf(one.source));
  if (folder == nullptr) {
    return false;
  }
  if (!one.change->after) {
    return !folder->change->after;  // both are gone
  }
  return one.KeepsBytes() && folder->IsMoved() && folder->KeepsBytes() &&
         folder->target == FolderOf(one.target) && NameOf(one.source) == NameOf(one.target);
}

}  // namespace platform::posix
