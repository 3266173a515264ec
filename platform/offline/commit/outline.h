// The file changes of a set by the host's paths, and what each of them asks for.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/error.h"
#include "platform/machine_changes.h"

namespace platform::posix {

// An entry that changes. Paths are below the machine's folder.
struct OutlinedChange {
  const machine::FileChange* change = nullptr;
  std::string source;  // where it stands before; `target` for what is added
  std::string target;  // where it stands after; `source` for what is removed

  bool IsMoved() const { return source != target; }
  // Whether what is there is to leave its place, and whether the place gets something.
  bool Departs() const;
  bool Arrives() const;
  // Whether it is the same one after, with other attributes or another place at most.
  bool KeepsBytes() const;
};

class Outline {
 public:
  // `changes` outlives this. 87 for changes that contradict each other, or name what isn't on the
  // machine, or the folder of commits: such a set wasn't made by comparing two machines.
  Code Read(const machine::ChangeSet& changes);

  const std::vector<OutlinedChange>& Changes() const { return changes_; }

  // The change of what stood, or will stand, at a path; null for none.
  const OutlinedChange* DepartingFrom(std::string_view path) const;
  const OutlinedChange* ArrivingAt(std::string_view path) const;

  // Whether it comes along with its folder, by the same name.
  bool GoesWithFolder(const OutlinedChange& one) const;

 private:
  std::vector<OutlinedChange> changes_;
  std::unordered_map<std::string_view, const OutlinedChange*> departing_;
  std::unordered_map<std::string_view, const OutlinedChange*> arriving_;
};

}  // namespace platform::posix
