// Gets a commit ready: puts the bytes of what is to be on the machine into the commit's folder, and
// finds the steps that are left then.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "platform/error.h"
#include "platform/offline/commit/journal.h"
#include "platform/offline/commit/machine_tree.h"
#include "platform/offline/commit/meter.h"
#include "platform/offline/commit/outline.h"
#include "platform/offline/commit/staging.h"

namespace platform::posix {

class Planner {
 public:
  Planner(const Outline& outline, MachineTree* tree, const Staging& staging,
          machine::ChangeBytes* bytes, Meter* meter)
      : outline_(outline), tree_(*tree), staging_(staging), bytes_(*bytes), meter_(*meter) {}

  // Fills in all of the plan but its keys. The machine is as FindConflicts has approved of it.
  Code MakePlan(CommitPlan* plan);

  // What writing files in their places takes at most once the commit has begun.
  std::uint64_t RewrittenBytes() const { return rewrittenBytes_; }

 private:
  using Identity = std::pair<dev_t, ino_t>;

  Code Plan(const OutlinedChange& one);
  Code PlanDeparture(const OutlinedChange& one, std::uint32_t* slot);
  Code PlanArrival(const OutlinedChange& one, std::uint32_t departed);
  Code PlanReplacement(const OutlinedChange& one);
  void Settle(const OutlinedChange& one);
  Code OpenFolder(std::string_view path);
  Code OpenTarget(std::string_view path);
  Code Stage(const OutlinedChange& one, std::uint32_t* slot, bool* inherits);
  Code StageFile(const OutlinedChange& one, std::uint32_t slot, bool* inherits);
  Code StageBytes(const OutlinedChange& one, files::File* file);
  Code TakeOver(const OutlinedChange& one, const files::File& staged);
  Code TrySettled() const;
  Code FindLinkedFiles();

  const Outline& outline_;
  MachineTree& tree_;
  const Staging& staging_;
  machine::ChangeBytes& bytes_;
  Meter& meter_;
  CommitPlan* plan_ = nullptr;
  std::uint32_t slots_ = 0;
  bool flushesAtOnce_ = false;
  std::uint64_t rewrittenBytes_ = 0;
  std::set<std::string, std::less<>> folders_;  // that were looked at by OpenFolder
  // The files with several links whose bytes change, and whether all of their names agree.
  std::map<Identity, std::pair<std::string, bool>> linked_;
  std::set<std::string_view> rewritten_;  // the paths of those that do
};

}  // namespace platform::posix
