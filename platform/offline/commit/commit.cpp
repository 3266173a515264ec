#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>
#include <vector>

#include "platform/linux/error_map.h"
#include "platform/linux/file_time.h"
#include "platform/machine_commit.h"
#include "platform/offline/commit/carry_out.h"
#include "platform/offline/commit/comparison.h"
#include "platform/offline/commit/planner.h"
#include "platform/offline/commit/staging.h"
#include "platform/offline/volume/volume.h"
#include "platform/volume_state.h"

namespace platform::machine {
namespace {

using posix::CodeOf;
using posix::CommitPlan;
using posix::Meter;

// What the names, the journal and the logs of the hives take beside the bytes.
constexpr std::uint64_t kLeastRoom = std::uint64_t{1} << 20;
constexpr std::uint64_t kRoomForEntry = std::uint64_t{4} << 10;

struct Costs {
  std::uint64_t work = 0;      // as a Meter counts it
  std::uint64_t room = 0;      // on the volume
  std::uint64_t reserved = 0;  // of it, what is needed after the commit has begun
};

Costs CostsOf(const ChangeSet& changes) {
  Costs costs;
  costs.reserved = kLeastRoom;
  for (const FileChange& change : changes.files) {
    const std::uint64_t before = change.before ? change.before->size : 0;
    const std::uint64_t after = change.after ? change.after->size : 0;
    costs.work += before + after + 4 * Meter::kStep;
    costs.room += after + kRoomForEntry;
  }
  for (const KeyChange& change : changes.keys) {
    for (const ValueChange& value : change.values) {
      costs.reserved += value.after ? 2 * value.after->data.size() : 0;
    }
    costs.reserved += kRoomForEntry;
  }
  costs.room += costs.reserved;
  return costs;
}

// The time that the machine's folder has in the end: the commit's own folder comes and goes in it.
timespec RootTime(const CommitPlan& plan, const timespec& before) {
  const auto isInRoot = [](const auto& one) { return posix::FolderOf(one.path).empty(); };
  const auto settled = std::ranges::find(plan.settled, "", &CommitPlan::Settled::path);
  if (settled != plan.settled.end() && settled->state.written != 0) {
    const auto written = static_cast<std::uint64_t>(settled->state.written);
    return posix::FileTimeOf(before) == written ? before : posix::TimeOf(written);
  }
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const bool isChanged = std::ranges::any_of(plan.departures, isInRoot) ||
                         std::ranges::any_of(plan.arrivals, isInRoot);
  return isChanged ? now : before;
}

// A commit on its way to the journal.
class Preparation {
 public:
  Preparation(const ChangeSet& changes, int root, Meter* meter)
      : changes_(changes), tree_(root), meter_(*meter) {}

  posix::MachineTree& Tree() { return tree_; }
  const CommitPlan& Plan() const { return plan_; }

  Code Compare(cvn::List<Conflict>* conflicts) {
    const Code code = outline_.Read(changes_);
    return code == kSuccess ? posix::FindConflicts(changes_, outline_, &tree_, &meter_, conflicts)
                            : code;
  }

  // Puts everything into the commit's folder, at last the journal.
  Code Stage(const posix::Staging& staging, ChangeBytes* bytes, std::uint64_t reserved,
             const timespec& rootTime) {
    posix::Planner planner(outline_, &tree_, staging, bytes, &meter_);
    Code code = planner.MakePlan(&plan_);
    if (code != kSuccess) {
      return code;
    }
    plan_.keys = changes_.keys;
    const timespec end = RootTime(plan_, rootTime);
    plan_.rootSeconds = end.tv_sec;
    plan_.rootNanoseconds = end.tv_nsec;
    code = staging.Reserve(reserved + planner.RewrittenBytes());
    return code == kSuccess ? staging.WriteJournal(posix::WriteJournal(plan_)) : code;
  }

 private:
  const ChangeSet& changes_;
  posix::MachineTree tree_;
  Meter& meter_;
  posix::Outline outline_;
  CommitPlan plan_;
};

// From the journal to the end.
Code Finish(const CommitPlan& plan, posix::Staging* staging, posix::MachineTree* tree,
            Meter* meter) {
  staging->GiveRoomBack();
  Code code = posix::CarryOut(plan, *staging, tree, meter);
  code = code == kSuccess ? staging->KeepTime({plan.rootSeconds, plan.rootNanoseconds}) : code;
  code = code == kSuccess ? staging->CloseJournal() : code;
  if (code == kSuccess) {
    IgnoreError(staging->Remove());  // what stays of it is removed by the next one
  }
  return code;
}

Code CheckRoom(const Costs& costs) {
  VolumeState volume;
  const Code code = LookAtVolume(&volume);
  if (code != kSuccess) {
    return code;
  }
  if (volume.isHibernated || volume.isReadOnly) {
    return volume.isReadOnly ? kWriteProtect : kHibernated;
  }
  return volume.freeBytes < costs.room ? kDiskFull : kSuccess;
}

Code FinishStaged(posix::Staging* staging, int root, PendingCommit* found) {
  if (!staging->HasJournal()) {
    *found = staging->IsComplete() ? PendingCommit::Finished
             : staging->IsEmpty()  ? PendingCommit::None
                                   : PendingCommit::Dropped;
    return staging->Remove();
  }
  std::vector<std::byte> journal;
  CommitPlan plan;
  Code code = staging->ReadJournal(&journal);
  code = code == kSuccess ? posix::ReadJournal(journal, &plan) : code;
  if (code == kSuccess) {
    const CommitProgress untold;
    Meter meter(untold, 0);
    posix::MachineTree tree(root);
    code = Finish(plan, staging, &tree, &meter);
  }
  *found = code == kSuccess ? PendingCommit::Finished : PendingCommit::None;
  return code;
}

}  // namespace

Code Commit(const ChangeSet& changes, ChangeBytes& bytes, const CommitProgress& progress,
            CommitResult* result) {
  *result = {};
  const posix::Machine& machine = posix::Machine::Get();
  if (machine.State() != kSuccess || changes.IsEmpty()) {
    return machine.State();
  }
  const int root = machine.Folder()->Get();
  const Costs costs = CostsOf(changes);
  Meter meter(progress, costs.work);
  Preparation preparation(changes, root, &meter);
  Code code = preparation.Compare(&result->conflicts);
  if (code == kSuccess && !result->conflicts.empty()) {
    code = kConflict;
  }
  code = code == kSuccess ? CheckRoom(costs) : code;
  struct stat entry {};
  if (code == kSuccess && fstat(root, &entry) != 0) {
    code = CodeOf(errno);
  }
  posix::Staging staging(root);
  code = code == kSuccess ? staging.Make() : code;
  if (code != kSuccess) {
    return code;
  }
  code = preparation.Stage(staging, &bytes, costs.reserved, entry.st_mtim);
  result->isPending = staging.HasJournal();
  if (!result->isPending) {
    IgnoreError(staging.Remove());  // what stays of it is removed by FinishPending
    return code;
  }
  code =
      code == kSuccess ? Finish(preparation.Plan(), &staging, &preparation.Tree(), &meter) : code;
  result->isPending = code != kSuccess;
  return code;
}

Code FindConflicts(const ChangeSet& changes, cvn::List<Conflict>* conflicts) {
  const posix::Machine& machine = posix::Machine::Get();
  if (machine.State() != kSuccess) {
    return machine.State();
  }
  const CommitProgress untold;
  Meter meter(untold, 0);
  return Preparation(changes, machine.Folder()->Get(), &meter).Compare(conflicts);
}

bool IsCommitPending() {
  const posix::Machine& machine = posix::Machine::Get();
  return machine.State() == kSuccess && posix::Staging(machine.Folder()->Get()).IsThere();
}

Code FinishPending(PendingCommit* found) {
  *found = PendingCommit::None;
  VolumeState volume;
  if (!IsCommitPending()) {
    return kSuccess;
  }
  Code code = LookAtVolume(&volume);
  if (code != kSuccess || volume.isReadOnly || volume.isHibernated) {
    return code;
  }
  const int root = posix::Machine::Get().Folder()->Get();
  posix::Staging staging(root);
  code = staging.Open();
  return code == kSuccess ? FinishStaged(&staging, root, found) : code;
}

}  // namespace platform::machine
